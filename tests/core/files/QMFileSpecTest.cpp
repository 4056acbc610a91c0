#include "files/QMFileSpec.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

TEST(QMFileSpec, SplitsPaths)
{
    const std::array<const char*, 6> cases[] = {
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
    for (const auto& [path, directory, name, suffix, removed, replaced] : cases) {
        const QMFileSpec file(path);
        EXPECT_EQ((Strings{file.dirname(), file.basename(), file.getSuffix()}),
                  (Strings{directory, name, suffix}))
            << path;
        EXPECT_STREQ(file.removeSuffix().c_str(), removed) << path;
        EXPECT_STREQ(file.replaceSuffix("txt").c_str(), replaced) << path;
    }
}

TEST(QMFileSpec, JoinsDirectoryAndName)
{
    for (const auto& [directory, joined] : {std::pair{"d", "d/a"}, {"d/", "d/a"}, {"/", "/a"}, {"", "a"}})
        EXPECT_STREQ(QMFileSpec(directory, "a").c_str(), joined);
    EXPECT_STREQ(QMFileSpec("d", "/a").c_str(), "/a");
    for (const char* ending : {"", "s", ".LAS", "a.Las"})
        EXPECT_TRUE(QMFileSpec("a.las").endsWith(ending)) << ending;
    for (const char* ending : {"b.las", "xa.las", ".la"})
        EXPECT_FALSE(QMFileSpec("a.las").endsWith(ending)) << ending;
    EXPECT_STREQ(QMFileSpec("d", "\xFF").c_str(), "d/\xFF") << "any bytes are valid";
}

}} // namespace Quillmoran::Testing
