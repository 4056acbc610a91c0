#include "files/Unicode.h"

#include <vxunpack/Base.h>

namespace Quillmoran::Unicode {

namespace {

constexpr char32_t lastCharacter = 0x10FFFF;
constexpr char32_t firstSurrogate = 0xD800;
constexpr char32_t firstLowSurrogate = 0xDC00;
constexpr char32_t lastSurrogate = 0xDFFF;
constexpr char32_t firstOfTwo = 0x10000; // the first character that UTF-16 writes as a pair

[[noreturn]] void throwInvalid(const char* encoding)
{
    QM_THROW(ErrorCode::InvalidArgument, "invalid %s text", encoding);
}

bool isCharacter(char32_t c)
{
    return c <= lastCharacter && (c < firstSurrogate || c > lastSurrogate);
}

// The form of a sequence by its first byte: 0xxxxxxx, 110xxxxx, 1110xxxx or 11110xxx, then bytes 10xxxxxx.
struct Sequence
{
    std::size_t length; // bytes; 0: not a first byte
    char32_t bits;      // that the first byte holds
    char32_t smallest;  // a smaller character has a shorter sequence
};

Sequence startSequence(unsigned char first)
{
    if (first < 0x80)
        return {1, first, 0};
    if (first >= 0xC0 && first < 0xE0)
        return {2, first & 0x1Fu, 0x80};
    if (first >= 0xE0 && first < 0xF0)
        return {3, first & 0x0Fu, 0x800};
    if (first >= 0xF0 && first < 0xF8)
        return {4, first & 0x07u, firstOfTwo};
    return {0, 0, 0};
}

void appendUTF8(std::string& text, char32_t c)
{
    const auto continuation = [c](int shift) { return static_cast<char>(0x80 | (c >> shift & 0x3F)); };
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xC0 | c >> 6);
        text += continuation(0);
    } else if (c < firstOfTwo) {
        text += static_cast<char>(0xE0 | c >> 12);
        text += continuation(6);
        text += continuation(0);
    } else {
        text += static_cast<char>(0xF0 | c >> 18);
        text += continuation(12);
        text += continuation(6);
        text += continuation(0);
    }
}

} // namespace

std::u32string toUTF32(std::string_view utf8)
{
    std::u32string text;
    for (std::size_t at = 0; at < utf8.size();) {
        const Sequence sequence = startSequence(static_cast<unsigned char>(utf8[at]));
        if (sequence.length == 0 || sequence.length > utf8.size() - at)
            throwInvalid("UTF-8");
        char32_t c = sequence.bits;
        for (std::size_t i = 1; i < sequence.length; ++i) {
            const auto byte = static_cast<unsigned char>(utf8[at + i]);
            if ((byte & 0xC0) != 0x80)
                throwInvalid("UTF-8");
            c = c << 6 | (byte & 0x3Fu);
        }
        if (c < sequence.smallest || !isCharacter(c))
            throwInvalid("UTF-8");
        text += c;
        at += sequence.length;
    }
    return text;
}

std::u32string toUTF32(std::u16string_view utf16)
{
    std::u32string text;
    for (std::size_t at = 0; at < utf16.size(); ++at) {
        char32_t c = utf16[at];
        if (c >= firstSurrogate && c < firstLowSurrogate && at + 1 < utf16.size()) {
            const char32_t low = utf16[at + 1];
            if (low >= firstLowSurrogate && low <= lastSurrogate) {
                c = firstOfTwo + ((c - firstSurrogate) << 10) + (low - firstLowSurrogate);
                ++at;
            }
        }
        if (!isCharacter(c))
            throwInvalid("UTF-16");
        text += c;
    }
    return text;
}

std::u16string toUTF16(std::string_view utf8)
{
    std::u16string text;
    for (const char32_t c : toUTF32(utf8)) {
        if (c < firstOfTwo) {
            text += static_cast<char16_t>(c);
        } else {
            text += static_cast<char16_t>(firstSurrogate + ((c - firstOfTwo) >> 10));
            text += static_cast<char16_t>(firstLowSurrogate + ((c - firstOfTwo) & 0x3FF));
        }
    }
    return text;
}

std::string toUTF8(std::u32string_view utf32)
{
    std::string text;
    for (const char32_t c : utf32) {
        if (!isCharacter(c))
            throwInvalid("UTF-32");
        appendUTF8(text, c);
    }
    return text;
}

std::string toUTF8(std::u16string_view utf16)
{
    return toUTF8(toUTF32(utf16));
}

} // namespace Quillmoran::Unicode
