#include "text/Printable.h"

#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using namespace std::string_literals;

TEST(Printable, EscapesControlCharacters)
{
    EXPECT_EQ(printable("plain \\ text, \xC3\xA4, \xE2\x82\xAC, \xF0\x9F\x8C\x8D"),
              "plain \\ text, \xC3\xA4, \xE2\x82\xAC, \xF0\x9F\x8C\x8D");
    EXPECT_EQ(printable("a\nb\tc\rd\x1B[2J\0\x7F"s), "a\\nb\\tc\\rd\\x1b[2J\\x00\\x7f");
    EXPECT_EQ(printable("\xC2\x9B"
                        "2J \xE2\x80\xAE \xE2\x81\xA6"),
              "\\u009b2J \\u202e \\u2066");
}

TEST(Printable, EscapesBytesThatAreNotUTF8)
{
    EXPECT_EQ(printable("\x9B"
                        "2J"),
              "\\x9b2J");                                             // a control in Latin-1
    EXPECT_EQ(printable("a\xC3"), "a\\xc3");                          // truncated
    EXPECT_EQ(printable("\xC0\x9B"), "\\xc0\\x9b");                   // overlong
    EXPECT_EQ(printable("\xED\xA0\x80"), "\\xed\\xa0\\x80");          // a surrogate
    EXPECT_EQ(printable("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80"); // above U+10FFFF
}

} // namespace
} // namespace Quillmoran
