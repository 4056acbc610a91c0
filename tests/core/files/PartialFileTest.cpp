#include "files/PartialFile.h"

#include "support/Test.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran::Testing { namespace {

namespace fs = std::filesystem;

class PartialFileTest : public testing::Test
{
protected:
    auto countFiles() const { return std::distance(fs::directory_iterator(directory.path()), {}); }
    static void write(PartialFile& file, const std::string& content, bool finishes = false)
    {
        file.io()->open();
        writeFully(*file.io(), 0, content.data(), content.size());
        file.io()->close();
        if (finishes)
            file.finish();
    }
    static unsigned permissionsOf(const std::string& file)
    {
        return static_cast<unsigned>(fs::status(file).permissions());
    }

    TemporaryDirectory directory;
    const std::string path = directory / std::string(255, 'n'); // of the greatest length
};

TEST_F(PartialFileTest, KeepsTheOldFileUntilTheNewOneIsComplete)
{
    for (const bool finishes : {false, true}) {
        writeFile(path, std::string("old"));
        std::optional<PartialFile> file(path.c_str());
        write(*file, "new");
        EXPECT_EQ(failureOf([&] { file->io()->open(); }), "9 Bad file descriptor path = " + path);
        file->io()->unlink(); // concerns only files that are written directly
        EXPECT_EQ(readFile(path), "old");
        EXPECT_EQ(countFiles(), 2);
        if (finishes)
            file->finish();
        file.reset();
        EXPECT_EQ(readFile(path), finishes ? "new" : "old");
        EXPECT_EQ(countFiles(), 1);
    }
}

// From its creation on, so that no other user can open it.
TEST_F(PartialFileTest, CopiesOwnerAndPermissionsOfTheOldFile)
{
    const mode_t mask = umask(027);
    EXPECT_EQ(permissionsOf(PartialFile(path.c_str()).path().c_str()), 0640u) << "of a new file";
    for (const mode_t permissions : {0600u, 0664u, 0644u}) {
        writeFile(path, std::string("old"));
        if (permissions == 0644 && chown(path.c_str(), 4321, 12345) != 0)
            continue; // only root may do so
        fs::permissions(path, fs::perms(permissions));
        struct stat before, after;
        ASSERT_EQ(stat(path.c_str(), &before), 0);
        PartialFile file(path.c_str());
        EXPECT_EQ(permissionsOf(file.path().c_str()), permissions);
        write(file, "new", true);
        ASSERT_EQ(stat(path.c_str(), &after), 0);
        EXPECT_EQ(std::tuple(after.st_mode, after.st_uid, after.st_gid),
                  std::tuple(before.st_mode, before.st_uid, before.st_gid));
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
    write(second, "second", true);
    EXPECT_EQ(readFile(path), "second");
    first.finish();
    EXPECT_EQ(readFile(path), "first");
    std::optional<PartialFile> complete(path.c_str());
    write(*complete, "third", true);
    PartialFile next(path.c_str());
    EXPECT_STREQ(next.path().c_str(), complete->path().c_str());
    complete.reset(); // must not remove the file that has its temporary name now
    write(next, "fourth", true);
    EXPECT_EQ(readFile(path), "fourth");
    EXPECT_EQ(countFiles(), 1);
}

TEST_F(PartialFileTest, ReplacesTheTargetOfALink)
{
    fs::create_directory(directory / "there");
    const std::string target = directory / "there/target";
    fs::create_symlink("there/target", directory / "link");
    fs::create_symlink("link", path);
    for (const char* content : {"made", "replaced"}) {
        PartialFile file(path.c_str());
        write(file, content, true);
        EXPECT_EQ(readFile(target), content);
        EXPECT_TRUE(fs::is_symlink(path) && fs::is_symlink(directory / "link"));
    }
    fs::create_symlink("loop", directory / "loop");
    EXPECT_EQ(errorOf(ELOOP, [&] { PartialFile((directory / "loop").c_str()); }),
              std::strerror(ELOOP) + (" path = " + (directory / "loop")));
}

TEST_F(PartialFileTest, WritesPipesDirectlyAndRejectsDirectories)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    PartialFile pipe(path.c_str());
    EXPECT_STREQ(pipe.path().c_str(), path.c_str());
    write(pipe, "content", true);
    EXPECT_EQ(countFiles(), 1);
    char got[8] = {};
    EXPECT_EQ(read(reader, got, sizeof got), 7);
    EXPECT_STREQ(got, "content");
    close(reader);
    EXPECT_FALSE(pipe.canSeek());
    EXPECT_TRUE(fs::is_fifo(path));
    EXPECT_TRUE(PartialFile((directory / "regular").c_str()).canSeek());
    for (const auto& [given, error] : {std::pair{directory.path(), "21 Is a directory path = "},
                                       {directory / "none/out", "2 No such file or directory path = "},
                                       {path + "/out", "20 Not a directory path = "}})
        EXPECT_EQ(failureOf([&, given = given] { PartialFile(given.c_str()); }), error + given);
}

}} // namespace Quillmoran::Testing
