#include "files/QMFileSpec.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

TEST(QMFileSpec, SplitsPaths)
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

TEST(QMFileSpec, JoinsDirectoryAndName)
{
    EXPECT_STREQ(QMFileSpec("d", "a").c_str(), "d/a");
    EXPECT_STREQ(QMFileSpec("d/", "a").c_str(), "d/a");
    EXPECT_STREQ(QMFileSpec("/", "a").c_str(), "/a");
    EXPECT_STREQ(QMFileSpec("", "a").c_str(), "a");
    EXPECT_STREQ(QMFileSpec("d", "/a").c_str(), "/a");
    for (const char* ending : {"", "s", ".LAS", "a.Las"})
        EXPECT_TRUE(QMFileSpec("a.las").endsWith(ending)) << ending;
    for (const char* ending : {"b.las", "xa.las", ".la"})
        EXPECT_FALSE(QMFileSpec("a.las").endsWith(ending)) << ending;
    EXPECT_STREQ(QMFileSpec("d", "\xFF").c_str(), "d/\xFF") << "any bytes are valid";
}

}} // namespace Quillmoran::Testing
