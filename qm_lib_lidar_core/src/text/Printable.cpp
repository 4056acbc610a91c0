#include "text/Printable.h"

#include <cstdint>
#include <cstdio>

namespace Quillmoran {

namespace {

struct Character
{
    std::uint32_t code = 0;
    std::size_t size = 0; // bytes; 0: not valid UTF-8
};

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

Character decode(std::string_view text)
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

bool isHarmless(std::uint32_t code)
{
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool isOverride = (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    return !isControl && !isOverride;
}

void appendEscape(std::string& to, std::uint32_t code, bool isByte)
{
    char escape[16];
    if (const char letter = code == '\n' ? 'n' : code == '\t' ? 't' : code == '\r' ? 'r' : '\0')
        std::snprintf(escape, sizeof escape, "\\%c", letter);
    else
        std::snprintf(escape, sizeof escape, isByte || code < 0x80 ? "\\x%02x" : "\\u%04x", code);
    to += escape;
}

} // namespace

std::string printable(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Character character = decode(text);
        if (character.size == 0)
            appendEscape(result, static_cast<unsigned char>(text[0]), true);
        else if (isHarmless(character.code))
            result.append(text.substr(0, character.size));
        else
            appendEscape(result, character.code, false);
        text.remove_prefix(character.size == 0 ? 1 : character.size);
    }
    return result;
}

} // namespace Quillmoran
