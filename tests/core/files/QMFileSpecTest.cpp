#include "files/QMFileSpec.h"

#include "support/Errors.h"

#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::errorOf;

TEST(QMFileSpec, TakesPathsApart)
{
    struct Case
    {
        const char *path, *directory, *name, *suffix, *removed, *replaced;
    };
    const Case cases[] = {
        {"a.vxl", "", "a.vxl", "vxl", "a", "a.txt"},
        {"d.x/a", "d.x", "a", "", "d.x/a", "d.x/a.txt"},
        {"/a.b.c", "/", "a.b.c", "c", "/a.b", "/a.b.txt"},
        {"/d/.hidden", "/d", ".hidden", "", "/d/.hidden", "/d/.hidden.txt"},
        {".hidden.vxl", "", ".hidden.vxl", "vxl", ".hidden", ".hidden.txt"},
        {"d/..", "d", "..", "", "d/..", "d/...txt"},
        {"d/a.", "d", "a.", "", "d/a", "d/a.txt"},
        {"d/", "d", "", "", "d/", "d/.txt"},
        {"", "", "", "", "", ".txt"},
    };
    for (const Case& c : cases) {
        const QMFileSpec file(c.path);
        EXPECT_EQ(file.dirname(), c.directory) << c.path;
        EXPECT_EQ(file.basename(), c.name) << c.path;
        EXPECT_EQ(file.getSuffix(), c.suffix) << c.path;
        EXPECT_STREQ(file.removeSuffix().c_str(), c.removed) << c.path;
        EXPECT_STREQ(file.replaceSuffix("txt").c_str(), c.replaced) << c.path;
    }
}

TEST(QMFileSpec, JoinsADirectoryAndAName)
{
    EXPECT_STREQ(QMFileSpec("d", "a").c_str(), "d/a");
    EXPECT_STREQ(QMFileSpec("d/", "a").c_str(), "d/a");
    EXPECT_STREQ(QMFileSpec("/", "a").c_str(), "/a");
    EXPECT_STREQ(QMFileSpec("", "a").c_str(), "a");
    EXPECT_STREQ(QMFileSpec("d", "/a").c_str(), "/a");
}

TEST(QMFileSpec, TakesTextInOtherEncodings)
{
    const QMFileSpec expected("\xC3\xA4/\xE2\x82\xAC\xF0\x9F\x8C\x8D");
    EXPECT_EQ(QMFileSpec(u"\u00E4/\u20AC\U0001F30D"), expected);
    EXPECT_EQ(QMFileSpec(L"\u00E4/\u20AC\U0001F30D"), expected);
    EXPECT_EQ(QMFileSpec("\xE4", QMFileSpec::Encoding::Latin1), QMFileSpec("\xC3\xA4"));
    EXPECT_EQ(QMFileSpec("\xC3\xA4", QMFileSpec::Encoding::UTF8), QMFileSpec("\xC3\xA4"));
    EXPECT_STREQ(QMFileSpec("\xFF").c_str(), "\xFF") << "a name need not be valid text";
    const char16_t lone[] = {0xD800, u'a', 0};
    EXPECT_EQ(errorOf(40007, [&] { QMFileSpec file(lone); }), "invalid UTF-16 text");
    const wchar_t tooLarge[] = {0x110000, 0};
    EXPECT_EQ(errorOf(40007, [&] { QMFileSpec file(tooLarge); }), "invalid UTF-32 text");
}

} // namespace
} // namespace Quillmoran
