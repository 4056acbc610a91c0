#include "files/QMFileUtils.h"

#include "support/Errors.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <optional>

namespace Quillmoran {
namespace {

using Testing::errorOf;
using Testing::readFile;
using Testing::TemporaryDirectory;

// Sets a variable of the environment, or takes it out, for as long as it lives.
class Variable
{
public:
    Variable(const char* name, const char* value) : m_name(name)
    {
        if (const char* old = std::getenv(name))
            m_old = old;
        set(value);
    }
    ~Variable() { set(m_old ? m_old->c_str() : nullptr); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    void set(const char* value) const { value ? setenv(m_name, value, 1) : unsetenv(m_name); }

    const char* m_name;
    std::optional<std::string> m_old;
};

class QMFileUtilsTest : public testing::Test
{
protected:
    QMFileSpec at(const std::string& name) const { return QMFileSpec((directory / name).c_str()); }

    TemporaryDirectory directory;
};

TEST_F(QMFileUtilsTest, ListsFilesAndDirectoriesApart)
{
    directory.file("b.txt", "b");
    directory.file(".a", "");
    std::filesystem::create_directory(directory / "sub");
    std::filesystem::create_directory_symlink("sub", directory / "link");
    std::filesystem::create_symlink("nowhere", directory / "broken");
    std::vector<std::string> files, directories;
    EXPECT_EQ(QMFileUtils::getContents(directory.path().c_str(), files, directories), 0);
    std::sort(files.begin(), files.end());
    std::sort(directories.begin(), directories.end());
    EXPECT_EQ(files, (std::vector<std::string>{".a", "b.txt", "broken"}));
    EXPECT_EQ(directories, (std::vector<std::string>{"link", "sub"}));
    EXPECT_EQ(QMFileUtils::getContents(at("none"), files, directories), ENOENT);
    EXPECT_EQ(QMFileUtils::getContents(at("b.txt"), files, directories), ENOTDIR);
}

TEST_F(QMFileUtilsTest, TellsSizeTimeAndKind)
{
    directory.file("a", "12345");
    const QMFileUtils::Stats stats = QMFileUtils::getStats(at("a"));
    EXPECT_EQ(stats.size, 5);
    EXPECT_NEAR(static_cast<double>(stats.modificationTime), static_cast<double>(std::time(nullptr)), 60);
    EXPECT_EQ(QMFileUtils::getSize(at("a")), 5);
    EXPECT_TRUE(QMFileUtils::exists(at("a")));
    EXPECT_FALSE(QMFileUtils::isDirectory(at("a")));
    EXPECT_FALSE(QMFileUtils::exists(at("b")));
    EXPECT_TRUE(QMFileUtils::isDirectory(directory.path().c_str()));
    std::filesystem::create_hard_link(directory / "a", directory / "c");
    EXPECT_TRUE(QMFileUtils::isSameFile(at("a"), at("c")));
    EXPECT_FALSE(QMFileUtils::isSameFile(at("a"), at("b")));
    EXPECT_EQ(errorOf(ENOENT, [&] { QMFileUtils::getStats(at("b")); }),
              "No such file or directory path = " + directory / "b");
}

TEST_F(QMFileUtilsTest, MakesCopiesMovesAndDeletes)
{
    QMFileUtils::createDirectory(at("x/y"));
    QMFileUtils::createDirectory(at("x/y"));
    QMFileUtils::createFile(at("x/y/a"));
    EXPECT_EQ(errorOf(EEXIST, [&] { QMFileUtils::createFile(at("x/y/a")); }),
              "File exists path = " + directory / "x/y/a");
    directory.file("b", "new");
    QMFileUtils::copyFile(at("b"), at("x/y/a"));
    EXPECT_EQ(readFile(directory / "x/y/a"), "new");
    directory.file("c", "old");
    QMFileUtils::moveFile(at("b"), at("c"));
    EXPECT_EQ(readFile(directory / "c"), "new");
    EXPECT_FALSE(QMFileUtils::exists(at("b")));
    for (const auto change : {QMFileUtils::copyFile, QMFileUtils::moveFile})
        EXPECT_EQ(errorOf(ENOENT, [&] { change(at("b"), at("c")); }),
                  "No such file or directory path = " + directory / "b");
    QMFileUtils::deleteFile(at("c"));
    EXPECT_EQ(errorOf(ENOENT, [&] { QMFileUtils::deleteFile(at("c")); }),
              "No such file or directory path = " + directory / "c");
    EXPECT_EQ(errorOf(ENOTDIR, [&] { QMFileUtils::deleteDirectory(at("x/y/a")); }),
              "Not a directory path = " + directory / "x/y/a");
    QMFileUtils::deleteDirectory(at("x"));
    EXPECT_TRUE(directory.isEmpty());
}

TEST_F(QMFileUtilsTest, GivesOneNameToOneFile)
{
    QMFileUtils::createDirectory(at("d/e"));
    std::filesystem::create_directory_symlink("d/e", directory / "link");
    const std::string real = std::filesystem::canonical(directory.path()).string();
    for (const char* name : {"d/e/a", "d/./e//a", "link/a", "link/../e/a"})
        EXPECT_STREQ(QMFileUtils::resolve(at(name)).c_str(), (real + "/d/e/a").c_str()) << name;
    EXPECT_STREQ(QMFileUtils::resolve(at("none/../none/a")).c_str(), (real + "/none/a").c_str());
    EXPECT_STREQ(QMFileUtils::resolve(at("link")).c_str(), (real + "/link").c_str());
    EXPECT_EQ(QMFileUtils::resolve("a"), QMFileSpec(QMFileUtils::getCurrentDirectory(), "a"));
}

TEST_F(QMFileUtilsTest, FindsProgramsAndTheTemporaryDirectory)
{
    EXPECT_EQ(QMFileUtils::getProcessPath().basename(), "core_test");
    const QMFileSpec program(directory.file("tool", "").c_str());
    const std::string path = "/nowhere::" + directory.path();
    const Variable variable("PATH", path.c_str());
    EXPECT_TRUE(QMFileUtils::findProgram("tool").empty()) << "it may not be run";
    std::filesystem::permissions(program.c_str(), std::filesystem::perms::owner_all);
    EXPECT_EQ(QMFileUtils::findProgram("tool"), QMFileUtils::resolve(program));
    EXPECT_EQ(QMFileUtils::findProgram(program.c_str()), QMFileUtils::resolve(program));
    EXPECT_TRUE(QMFileUtils::findProgram("").empty());

    const Variable noTMPDIR("TMPDIR", nullptr), noTEMP("TEMP", "");
    EXPECT_STREQ(QMFileUtils::getTemporaryDirectory().c_str(), "/tmp");
    const Variable temp("TEMP", "/b");
    EXPECT_STREQ(QMFileUtils::getTemporaryDirectory().c_str(), "/b");
    const Variable tmpdir("TMPDIR", "/a");
    EXPECT_STREQ(QMFileUtils::getTemporaryDirectory().c_str(), "/a");
}

} // namespace
} // namespace Quillmoran
