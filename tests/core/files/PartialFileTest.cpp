#include "files/PartialFile.h"
#include "support/Errors.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>

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
        writeFile(file.path().c_str(), content);
    }

    Testing::TemporaryDirectory directory;
    const std::string path = directory / "out";
};

TEST_F(PartialFileTest, KeepsTheOldFileUntilTheNewOneIsComplete)
{
    for (const bool finishes : {false, true}) {
        writeFile(path, std::string("old"));
        fs::permissions(path, fs::perms(0640));
        std::optional<PartialFile> file(path.c_str());
        write(*file, "new");
        EXPECT_EQ(readFile(path), "old");
        EXPECT_EQ(countFiles(), 2u);
        if (finishes)
            file->finish();
        file.reset();
        EXPECT_EQ(readFile(path), finishes ? "new" : "old");
        EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640)) << "those of the old file";
        EXPECT_EQ(countFiles(), 1u);
    }
    PartialFile(path.c_str()).finishWithoutFile();
    EXPECT_TRUE(directory.isEmpty());
    PartialFile(path.c_str()).finishWithoutFile(); // nothing was there
    EXPECT_TRUE(directory.isEmpty());
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

TEST_F(PartialFileTest, ReplacesWhatALinkLeadsTo)
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

TEST_F(PartialFileTest, TakesNamesAsLongAsTheSystem)
{
    const std::string longest = directory / std::string(255, 'n');
    PartialFile file(longest.c_str());
    write(file, "content");
    file.finish();
    EXPECT_EQ(readFile(longest), "content");
}

TEST_F(PartialFileTest, WritesDevicesDirectlyAndRefusesDirectories)
{
    PartialFile device("/dev/null");
    EXPECT_STREQ(device.path().c_str(), "/dev/null");
    device.finish();
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_EQ(Testing::errorOf(EISDIR, [&] { PartialFile(directory.path().c_str()); }),
              std::strerror(EISDIR) + (" path = " + directory.path()));
}

} // namespace
} // namespace Quillmoran
