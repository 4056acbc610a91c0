#include "files/QMFileUtils.h"

#include "support/Test.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace Quillmoran::Testing { namespace {

struct QMFileUtilsTest : testing::Test
{
    QMFileSpec at(const std::string& name) const { return QMFileSpec((directory / name).c_str()); }

    TemporaryDirectory directory;
};

TEST_F(QMFileUtilsTest, SeparatesFilesFromDirectories)
{
    directory.file("b.txt", "b");
    directory.file(".a", "");
    std::filesystem::create_directory(directory / "sub");
    std::filesystem::create_directory_symlink("sub", directory / "link");
    std::filesystem::create_symlink("nowhere", directory / "broken");
    Strings files, directories;
    EXPECT_EQ(QMFileUtils::getContents(directory.path().c_str(), files, directories), 0);
    std::sort(files.begin(), files.end());
    std::sort(directories.begin(), directories.end());
    EXPECT_EQ(files, (Strings{".a", "b.txt", "broken"}));
    EXPECT_EQ(directories, (Strings{"link", "sub"}));
    EXPECT_EQ(QMFileUtils::getContents(at("none"), files, directories), ENOENT);
    EXPECT_EQ(QMFileUtils::getContents(at("b.txt"), files, directories), ENOTDIR);
}

TEST_F(QMFileUtilsTest, ReportsSizeTimeAndType)
{
    directory.file("a", "12345");
    const timespec times[] = {{1, 0}, {1234567890, 999999999}}; // of the last access and change
    ASSERT_EQ(utimensat(AT_FDCWD, at("a").c_str(), times, 0), 0);
    EXPECT_EQ(QMFileUtils::getStats(at("a")).modificationTime, 1234567890);
    EXPECT_EQ(QMFileUtils::getSize(at("a")), 5);
    EXPECT_TRUE(QMFileUtils::exists(at("a")) && QMFileUtils::isDirectory(directory.path().c_str()));
    EXPECT_FALSE(QMFileUtils::isDirectory(at("a")) || QMFileUtils::exists(at("b")));
    std::filesystem::create_hard_link(directory / "a", directory / "c");
    EXPECT_TRUE(QMFileUtils::isSameFile(at("a"), at("c")));
    EXPECT_FALSE(QMFileUtils::isSameFile(at("a"), at("b")));
    QMFileUtils::requireRegularFile(at("a"));
    QMFileUtils::requireRegularFile(at("b")); // opening it reports the error
    EXPECT_EQ(errorOf(-1, [&] { QMFileUtils::requireRegularFile(at(".")); }),
              "cannot read '" + directory / "." + "': it is a directory, not a regular file");
    EXPECT_EQ(errorOf(ENOENT, [&] { QMFileUtils::getStats(at("b")); }),
              "No such file or directory path = " + directory / "b");
}

TEST_F(QMFileUtilsTest, ResolvesTheNamesOfAFileToOnePath)
{
    std::filesystem::create_directories(directory / "d/e");
    std::filesystem::create_directory_symlink("d/e", directory / "link");
    const std::string real = std::filesystem::canonical(directory.path()).string();
    for (const char* name : {"d/e/a", "d/./e//a", "link/a", "link/../e/a"})
        EXPECT_STREQ(QMFileUtils::resolve(at(name)).c_str(), (real + "/d/e/a").c_str()) << name;
    EXPECT_STREQ(QMFileUtils::resolve(at("none/../none/a")).c_str(), (real + "/none/a").c_str());
    EXPECT_STREQ(QMFileUtils::resolve(at("link")).c_str(), (real + "/link").c_str());
    EXPECT_EQ(QMFileUtils::resolve("a"), QMFileSpec(std::filesystem::current_path().c_str(), "a"));
}

}} // namespace Quillmoran::Testing
