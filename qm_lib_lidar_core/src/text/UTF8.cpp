#include "text/UTF8.h"

namespace Quillmoran {

namespace {

std::size_t sizeOf(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead < 0xE0)
        return 2;
    if (lead >= 0xE0 && lead < 0xF0)
        return 3;
    return lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
}

} // namespace

Character firstCharacter(std::string_view text)
{
    const auto byteAt = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const std::size_t size = sizeOf(byteAt(0));
    if (size == 0 || size > text.size())
        return {};
    if (size == 1)
        return {byteAt(0), 1};
    std::uint32_t code = byteAt(0) & (0x7Fu >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byteAt(i) & 0xC0u) != 0x80)
            return {};
        code = code << 6 | (byteAt(i) & 0x3Fu);
    }
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    if (code < smallest[size] || code > 0x10FFFF || isSurrogate)
        return {};
    return {code, size};
}

} // namespace Quillmoran
