#include "files/Unicode.h"

#include "support/Errors.h"

#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using namespace std::string_literals;
using Testing::errorOf;

TEST(Unicode, ConvertsTheFirstAndLastCharacterOfEachLength)
{
    struct Case
    {
        std::u32string utf32;
        std::u16string utf16;
        std::string utf8;
    };
    const Case cases[] = {
        {{}, {}, {}},
        {U"\0\x7F"s, u"\0\x7F"s, "\0\x7F"s},
        {{0x80, 0x7FF}, {0x80, 0x7FF}, "\xC2\x80\xDF\xBF"},
        {{0x800, 0xD7FF, 0xE000, 0xFFFF},
         {0x800, 0xD7FF, 0xE000, 0xFFFF},
         "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
        {{0x10000, 0x10FFFF}, {0xD800, 0xDC00, 0xDBFF, 0xDFFF}, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Unicode::toUTF32(c.utf8), c.utf32);
        EXPECT_EQ(Unicode::toUTF32(c.utf16), c.utf32);
        EXPECT_EQ(Unicode::toUTF16(c.utf8), c.utf16);
        EXPECT_EQ(Unicode::toUTF8(c.utf16), c.utf8);
        EXPECT_EQ(Unicode::toUTF8(c.utf32), c.utf8);
    }
}

TEST(Unicode, RefusesWhatIsNoText)
{
    // Continuation alone, cut sequences, wrong continuation, overlong forms, a surrogate, too large, no byte
    // of any sequence.
    for (const char* text :
         {"\x80", "a\xC3", "\xE2\x82", "\xF0\x9F\x8C", "\xC3(", "\xE2(\xAC", "\xC0\x80", "\xE0\x80\x80",
          "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF"}) {
        EXPECT_EQ(errorOf(40007, [&] { Unicode::toUTF32(std::string_view(text)); }), "invalid UTF-8 text");
        EXPECT_EQ(errorOf(40007, [&] { Unicode::toUTF16(text); }), "invalid UTF-8 text");
    }
    for (const std::u16string& text :
         {std::u16string{0xD800}, std::u16string{0xDC00, 0xD800}, std::u16string{0xD800, 0xD800, 0xDC00}})
        EXPECT_EQ(errorOf(40007, [&] { Unicode::toUTF8(text); }), "invalid UTF-16 text");
    for (const char32_t c : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu})
        EXPECT_EQ(errorOf(40007, [&] { Unicode::toUTF8(std::u32string(1, c)); }), "invalid UTF-32 text");
}

} // namespace
} // namespace Quillmoran
