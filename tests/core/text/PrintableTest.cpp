#include "text/Printable.h"

#include "support/Test.h"

#include <cstdio>

namespace Quillmoran::Testing { namespace {

using namespace std::string_literals;

TEST(Printable, EscapesOnlyControlCharactersAndOverrides)
{
    // U+00A0, U+00E4, U+07FF and U+0800, and the neighbours of the overrides, surrogates and the largest code.
    for (const std::string text :
         {"plain \\ text~", "\xC2\xA0", "\xC3\xA4", "\xDF\xBF", "\xE0\xA0\x80", "\xE2\x80\xA9",
          "\xE2\x80\xAF", "\xE2\x81\xA5", "\xE2\x81\xAA", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
          "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_EQ(printable(text), text);
    EXPECT_EQ(printable("a\nb\tc\rd\x1B[2J\0\x1F\x7F"s), "a\\nb\\tc\\rd\\x1b[2J\\x00\\x1f\\x7f");
    EXPECT_EQ(printable("\xC2\x80\xC2\x9F\xE2\x80\xAA\xE2\x80\xAE\xE2\x81\xA6\xE2\x81\xA9"),
              "\\u0080\\u009f\\u202a\\u202e\\u2066\\u2069");
}

TEST(Printable, EscapesBytesThatAreNotUTF8)
{
    // Continuations without a start, truncated, overlong, surrogates, above U+10FFFF.
    for (const std::string bytes : {"\x80", "\xBF\x9B", "\xC3", "\xE2\x82", "\xF0\x90\x80", "\xC0\x9B",
                                    "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80",
                                    "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
        std::string escaped;
        for (const char byte : bytes) {
            char text[8];
            std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(byte));
            escaped += text;
        }
        EXPECT_EQ(printable(bytes), escaped);
        EXPECT_EQ(printable("a" + bytes + "b"), 'a' + escaped + 'b');
    }
}

}} // namespace Quillmoran::Testing
