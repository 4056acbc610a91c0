#include "files/PartialFile.h"
#include "support/Errors.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran {
namespace {

namespace fs = std::filesystem;
using Testing::readFile;
using Testing::writeFile;

class PartialFileTest : public testing::Test
{
protected:
    std::size_t countFiles() const
    {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory.path()), {}));
    }
    static void write(const PartialFile& file, const std::string& content)
    {
        file.io()->open();
        writeFully(*file.io(), 0, content.data(), content.size());
        file.io()->close();
    }
    static unsigned permissionsOf(const std::string& file)
    {
        return static_cast<unsigned>(fs::status(file).permissions());
    }

    Testing::TemporaryDirectory directory;
    const std::string path = directory / "out";
};

TEST_F(PartialFileTest, KeepsTheOldFileUntilTheNewOneIsComplete)
{
    for (const bool finishes : {false, true}) {
        writeFile(path, std::string("old"));
        std::optional<PartialFile> file(path.c_str());
        write(*file, "new");
        EXPECT_EQ(readFile(path), "old");
        EXPECT_EQ(countFiles(), 2u);
        if (finishes)
            file->finish();
        file.reset();
        EXPECT_EQ(readFile(path), finishes ? "new" : "old");
        EXPECT_EQ(countFiles(), 1u);
    }
}

// From its creation on, so that no other user can open it.
TEST_F(PartialFileTest, CopiesOwnerAndPermissionsOfTheOldFile)
{
    const mode_t mask = umask(027);
    EXPECT_EQ(permissionsOf(PartialFile(path.c_str()).path().c_str()), 0640u) << "of a new file";
    const struct
    {
        mode_t permissions;
        int group; // -1: ours
    } cases[] = {{0600, -1}, {0664, -1}, {0644, 12345}};
    for (const auto& each : cases) {
        writeFile(path, std::string("old"));
        if (each.group >= 0 && chown(path.c_str(), 4321, static_cast<gid_t>(each.group)) != 0)
            continue; // only root may do so
        fs::permissions(path, fs::perms(each.permissions));
        struct stat before, after;
        ASSERT_EQ(stat(path.c_str(), &before), 0);
        PartialFile file(path.c_str());
        EXPECT_EQ(permissionsOf(file.path().c_str()), each.permissions);
        write(file, "new");
        file.finish();
        ASSERT_EQ(stat(path.c_str(), &after), 0);
        EXPECT_EQ(after.st_mode, before.st_mode);
        EXPECT_EQ(after.st_uid, before.st_uid);
        EXPECT_EQ(after.st_gid, before.st_gid);
    }
    umask(mask);
}

TEST_F(PartialFileTest, IsNotWrittenThroughALinkWithItsTemporaryName)
{
    const std::string victim = directory / "victim";
    writeFile(victim, std::string("precious"));
    PartialFile file(path.c_str());
    fs::remove(file.path().c_str());
    fs::create_symlink(victim, file.path().c_str());
    write(file, "content");
    EXPECT_EQ(readFile(victim), "precious");
    EXPECT_THROW(file.finish(), Error);
    EXPECT_FALSE(fs::exists(fs::symlink_status(path)));
}

TEST_F(PartialFileTest, IsNeverSharedByTwoWriters)
{
    PartialFile first(path.c_str()), second(path.c_str());
    write(first, "first");
    write(second, "second");
    first.finish();
    EXPECT_EQ(readFile(path), "first");
    second.finish();
    EXPECT_EQ(readFile(path), "second");
    EXPECT_EQ(countFiles(), 1u);
}

TEST_F(PartialFileTest, ReplacesTheTargetOfALink)
{
    fs::create_directory(directory / "there");
    const std::string target = directory / "there/target";
    fs::create_symlink("there/target", directory / "link");
    fs::create_symlink("link", path);
    for (const char* content : {"made", "replaced"}) {
        PartialFile file(path.c_str());
        write(file, content);
        file.finish();
        EXPECT_EQ(readFile(target), content);
        EXPECT_TRUE(fs::is_symlink(path) && fs::is_symlink(directory / "link"));
    }
    fs::create_symlink("loop", directory / "loop");
    EXPECT_EQ(Testing::errorOf(ELOOP, [&] { PartialFile((directory / "loop").c_str()); }),
              std::strerror(ELOOP) + (" path = " + (directory / "loop")));
}

TEST_F(PartialFileTest, AcceptsTheLongestNames)
{
    const std::string longest = directory / std::string(255, 'n');
    PartialFile file(longest.c_str());
    write(file, "content");
    file.finish();
    EXPECT_EQ(readFile(longest), "content");
}

TEST_F(PartialFileTest, WritesDevicesDirectlyAndRejectsDirectories)
{
    PartialFile device("/dev/null");
    EXPECT_STREQ(device.path().c_str(), "/dev/null");
    device.finish();
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(Testing::failureOf([&] { PartialFile(path.c_str()).requireSeekable("LAS"); }),
              "40610 Unable to create output " + path + ". LAS output needs a seekable file");
    EXPECT_EQ(Testing::failureOf([] { PartialFile(""); }), "40007 path not given");
    EXPECT_EQ(Testing::errorOf(EISDIR, [&] { PartialFile(directory.path().c_str()); }),
              std::strerror(EISDIR) + (" path = " + directory.path()));
}

} // namespace
} // namespace Quillmoran
