#include "platform/FileIO.h"
#include "platform/Base.h"
#include "support/Errors.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace Quillmoran {
namespace {

using Testing::TemporaryDirectory;
using TestSupport::errorOf;

Scoped<FileIO::Imp> fileAt(const std::string& path, const char* mode)
{
    Scoped<FileIO::Imp> file(FileIO::create());
    file->init(path.c_str(), mode);
    return file;
}

Scoped<FileIO::Imp> temporaryFile(const char* directory)
{
    Scoped<FileIO::Imp> file(FileIO::create());
    file->init(directory);
    return file;
}

std::string readAll(const IO& io)
{
    char bytes[100];
    return {bytes, io.pread(0, bytes, sizeof bytes)};
}

std::string failure(int code, const std::string& path)
{
    return std::strerror(code) + (" path = " + path);
}

// Sets a variable of the environment for as long as it lives.
class Environment
{
public:
    Environment(const char* name, const char* value) : m_name(name)
    {
        if (const char* old = std::getenv(name))
            m_old = old;
        setenv(name, value, 1);
    }
    ~Environment()
    {
        if (m_old)
            setenv(m_name, m_old->c_str(), 1);
        else
            unsetenv(m_name);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_old;
};

TEST(FileIO, OpensAsItsModeSays)
{
    const struct
    {
        const char* mode;
        bool reads, writes, creates, truncates;
    } cases[] = {
        {"r", true, false, false, false},  {"rb", true, false, false, false}, {"r+", true, true, true, false},
        {"w", false, true, true, true},    {"w+b", true, true, true, true},   {"+", true, true, true, false},
        {"rw", true, false, false, false}, {"a", true, false, false, false},  {"", true, false, false, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mode);
        const TemporaryDirectory directory;
        const std::string missing = directory.path("missing");
        const auto created = fileAt(missing, each.mode);
        if (each.creates)
            created->open();
        else
            EXPECT_EQ(errorOf(ENOENT, [&] { created->open(); }), failure(ENOENT, missing));
        EXPECT_EQ(FileIO::fileExists(missing.c_str()), each.creates);

        const std::string path = directory.file("present", "abc");
        const auto file = fileAt(path, each.mode);
        file->open();
        EXPECT_EQ(file->size(), each.truncates ? 0 : 3);
        if (each.reads)
            EXPECT_EQ(readAll(*file), each.truncates ? "" : "abc");
        else
            EXPECT_EQ(errorOf(EBADF, [&] { readAll(*file); }), failure(EBADF, path));
        if (each.writes)
            EXPECT_EQ(file->pwrite(0, "x", 1), 1u);
        else
            EXPECT_EQ(errorOf(EBADF, [&] { file->pwrite(0, "x", 1); }), failure(EBADF, path));
    }
}

TEST(FileIO, StaysOpenUntilEveryOpenHasMetItsClose)
{
    const TemporaryDirectory directory;
    const auto file = fileAt(directory.file("a", "abc"), "r");
    file->open();
    file->open();
    file->close();
    EXPECT_EQ(readAll(*file), "abc");
    file->close();
    EXPECT_EQ(errorOf(EBADF, [&] { readAll(*file); }), failure(EBADF, file->path()));
    file->open();
    EXPECT_EQ(readAll(*file), "abc");
}

TEST(FileIO, TruncatesAtTheFirstOpenOnly)
{
    const TemporaryDirectory directory;
    const auto file = fileAt(directory.file("a", "old"), "w+");
    for (const char* before : {"", "new"}) {
        file->open();
        EXPECT_EQ(readAll(*file), before);
        file->pwrite(0, "new", 3);
        file->close();
    }
}

TEST(FileIO, TellsTheSizeAlsoWhenClosed)
{
    const TemporaryDirectory directory;
    const auto file = fileAt(directory.file("a", "12345"), "r+");
    EXPECT_EQ(file->size(), 5);
    file->open();
    file->truncate(2);
    EXPECT_EQ(file->size(), 2);
    file->close();
    EXPECT_EQ(file->size(), 2);
}

TEST(FileIO, TemporaryFilesGoWithTheirObject)
{
    const TemporaryDirectory directory;
    for (const bool closed : {false, true}) {
        const auto file = temporaryFile(directory.path().c_str());
        EXPECT_EQ(std::string(file->path()).find(directory.path("qmi")), 0u);
        EXPECT_EQ(std::strlen(file->path()), directory.path("qmiXXXXXX").size());
        EXPECT_EQ(file->pwrite(0, "abc", 3), 3u);
        EXPECT_EQ(readAll(*file), "abc");
        if (closed)
            file->close();
        EXPECT_EQ(TemporaryDirectory::contentOf(file->path()), "abc");
    }
    EXPECT_TRUE(directory.isEmpty());
}

TEST(FileIO, TemporaryFilesStandInTMPDIRByDefault)
{
    const TemporaryDirectory directory;
    const Environment environment("TMPDIR", directory.path().c_str());
    const auto file = temporaryFile(nullptr);
    EXPECT_EQ(std::string(file->path()).find(directory.path("qmi")), 0u);
}

TEST(FileIO, UnlinkRemovesRegularFilesAlone)
{
    const TemporaryDirectory directory;
    const std::string target = directory.file("target", "abc");
    const std::string link = directory.path("link"), pipe = directory.path("pipe");
    std::filesystem::create_symlink(target, link);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {target, link, pipe}) {
        const auto file = fileAt(path, "r+");
        file->unlink();
        EXPECT_TRUE(FileIO::fileExists(path.c_str()));
    }
    EXPECT_FALSE(FileIO::fileExists(target.c_str()));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

TEST(FileIO, NamesThePathInItsErrors)
{
    const TemporaryDirectory directory;
    const std::string missing = directory.path("no/such"), path = directory.file("a", "abc");
    const char* const missingPath = missing.c_str();
    EXPECT_EQ(errorOf(ENOENT, [&] { fileAt(missing, "w")->open(); }), failure(ENOENT, missing));
    EXPECT_EQ(errorOf(ENOENT, [&] { fileAt(missing, "r")->size(); }), failure(ENOENT, missing));
    EXPECT_EQ(errorOf(ENOENT, [&] { FileIO::deleteFile(missingPath); }), failure(ENOENT, missing));
    EXPECT_EQ(errorOf(ENOENT, [&] { temporaryFile(missingPath); }), failure(ENOENT, missing));
    const auto file = fileAt(path, "r");
    file->open();
    EXPECT_EQ(errorOf(EINVAL, [&] { file->truncate(1); }), failure(EINVAL, path));
    FileIO::deleteFile(path.c_str());
    EXPECT_FALSE(FileIO::fileExists(path.c_str()));
}

// Offsets and lengths can come from a damaged file.
TEST(FileIO, ReadsNothingWhereNoFileCanReach)
{
    const TemporaryDirectory directory;
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

} // namespace
} // namespace Quillmoran
