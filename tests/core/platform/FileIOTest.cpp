#include <vxunpack/FileIO.h>

#include "support/Test.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran::Testing { namespace {

class FileIOTest : public testing::Test
{
protected:
    static Scoped<FileIO::Imp> fileAt(const std::string& path, const char* mode)
    {
        Scoped<FileIO::Imp> file(FileIO::create());
        file->init(path.c_str(), mode);
        return file;
    }
    static std::string readAll(const IO& io)
    {
        char bytes[100];
        return {bytes, io.pread(0, bytes, sizeof bytes)};
    }
    static std::string failure(int code, const std::string& path)
    {
        return std::strerror(code) + (" path = " + path);
    }

    const TemporaryDirectory directory;
};

TEST_F(FileIOTest, OpensAccordingToItsMode)
{
    const std::string reads = " r rb rw r+ + w+b a ", writes = " r+ + w w+b ", truncates = " w w+b ";
    for (const std::string mode : {"r", "rb", "rw", "r+", "+", "w", "w+b", "a"}) {
        SCOPED_TRACE(mode);
        const auto isIn = [&](const std::string& modes) {
            return modes.find(' ' + mode + ' ') != std::string::npos;
        };
        const auto created = fileAt(directory.path("new"), mode.c_str());
        EXPECT_EQ(errorOf(ENOENT, [&] { created->open(); }),
                  isIn(writes) ? "nothing thrown" : failure(ENOENT, directory.path("new")));
        EXPECT_EQ(FileIO::fileExists(directory.path("new").c_str()), isIn(writes));
        std::filesystem::remove(directory.path("new"));

        const auto file = fileAt(directory.file("old", "abc"), mode.c_str());
        file->open();
        EXPECT_EQ(file->size(), isIn(truncates) ? 0 : 3);
        EXPECT_EQ(errorOf(EBADF, [&] { readAll(*file); }),
                  isIn(reads) ? "nothing thrown" : failure(EBADF, file->path()));
        EXPECT_EQ(errorOf(EBADF, [&] { file->pwrite(0, "x", 1); }),
                  isIn(writes) ? "nothing thrown" : failure(EBADF, file->path()));
    }
}

TEST_F(FileIOTest, NestsOpenAndTruncatesOnlyOnce)
{
    const auto file = fileAt(directory.file("a", "old"), "w+");
    for (const char* before : {"", "new"}) {
        file->open();
        file->open();
        EXPECT_EQ(readAll(*file), before);
        file->close();
        file->pwrite(0, "new", 3);
        file->close();
        EXPECT_EQ(errorOf(EBADF, [&] { readAll(*file); }), failure(EBADF, file->path()));
        EXPECT_EQ(file->size(), 3); // also when closed
    }
    file->open();
    std::filesystem::remove(file->path());
    EXPECT_EQ(file->size(), 3) << "of the open file";
    file->close();
    EXPECT_EQ(errorOf(ENOENT, [&] { file->size(); }), failure(ENOENT, file->path()));
    EXPECT_EQ(errorOf(EBADF, [&] { file->truncate(1); }), failure(EBADF, file->path()));
}

TEST_F(FileIOTest, TemporaryFilesAreInTMPDIRAndRemovedWithTheirObject)
{
    const char* const variable = std::getenv("TMPDIR");
    const std::string before = variable ? variable : "/tmp";
    setenv("TMPDIR", directory.path().c_str(), 1);
    for (const bool closed : {false, true}) {
        const Scoped<FileIO::Imp> file(FileIO::create());
        file->init(nullptr);
        EXPECT_EQ(std::string(file->path()).find(directory.path("qmi")), 0u);
        file->pwrite(0, "abc", 3);
        EXPECT_EQ(readFile(file->path()), "abc");
        if (closed) {
            file->close();
            EXPECT_EQ(errorOf(EBADF, [&] { readAll(*file); }), failure(EBADF, directory.path()));
        }
    }
    setenv("TMPDIR", before.c_str(), 1);
    EXPECT_TRUE(directory.isEmpty());
}

TEST_F(FileIOTest, UnlinkRemovesOnlyRegularFiles)
{
    const std::string target = directory.file("target", "abc"), link = directory.path("link"),
                      pipe = directory.path("pipe");
    std::filesystem::create_symlink(target, link);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& each : {link, pipe, target}) {
        const auto file = fileAt(each, "r+");
        file->unlink();
        EXPECT_TRUE(FileIO::fileExists(each.c_str()));
    }
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_FALSE(FileIO::fileExists(target.c_str()));
}

TEST_F(FileIOTest, WritesPipesInOrder)
{
    const std::string fifo = directory.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    const auto file = fileAt(fifo, "w");
    for (const char* text : {"abcz", "abcz"}) { // opened again, it starts again
        file->open();
        EXPECT_EQ(file->pwrite(0, text, 3), 3u);
        for (const std::int64_t offset : {0, 2, 4})
            EXPECT_EQ(errorOf(ESPIPE, [&] { file->pwrite(offset, "y", 1); }), failure(ESPIPE, fifo))
                << offset;
        EXPECT_EQ(file->pwrite(3, text + 3, 1), 1u);
        file->close();
        char got[9] = {};
        EXPECT_EQ(::read(reader, got, 8), 4);
        EXPECT_STREQ(got, text);
    }
    ::close(reader);
}

// Offsets and lengths may be those of a malformed file.
TEST_F(FileIOTest, ReadsNothingBeyondTheLargestPosition)
{
    const auto file = fileAt(directory.file("a", "abc"), "r");
    file->open();
    char bytes[16];
    for (const std::int64_t offset : {std::int64_t{3}, INT64_MAX - 16, INT64_MAX - 15, INT64_MAX})
        EXPECT_EQ(file->pread(offset, bytes, sizeof bytes), 0u) << offset;
    EXPECT_EQ(file->pread(0, bytes, SIZE_MAX), 0u);
    for (const std::int64_t offset : {std::int64_t{-1}, INT64_MIN})
        EXPECT_EQ(errorOf(EINVAL, [&] { file->pread(offset, bytes, sizeof bytes); }),
                  failure(EINVAL, file->path()));
}

}} // namespace Quillmoran::Testing
