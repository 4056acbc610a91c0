#include "files/QMFileUtils.h"

#include "files/RemoteName.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>

namespace Quillmoran::QMFileUtils {

namespace fs = std::filesystem;

namespace {

void throwOn(const std::error_code& error, const QMFileSpec& file)
{
    if (!error)
        return;
    errno = error.value();
    QM_THROW_OS(file.c_str());
}

} // namespace

bool exists(const QMFileSpec& file)
{
    return RemoteName::isRemote(file.c_str()) || FileIO::fileExists(file.c_str());
}

bool isDirectory(const QMFileSpec& file)
{
    std::error_code ignored;
    return fs::is_directory(file.c_str(), ignored);
}

bool isSameFile(const QMFileSpec& a, const QMFileSpec& b)
{
    std::error_code ignored;
    return fs::equivalent(a.c_str(), b.c_str(), ignored);
}

std::int64_t getSize(const QMFileSpec& file)
{
    return getStats(file).size;
}

Stats getStats(const QMFileSpec& file)
{
    if (RemoteName::isRemote(file.c_str()))
        return {};
    struct stat64 status;
    if (stat64(file.c_str(), &status) != 0)
        QM_THROW_OS(file.c_str());
    return {status.st_size, status.st_mtim.tv_sec};
}

void requireRegularFile(const QMFileSpec& file)
{
    std::error_code ignored;
    const char* kind = nullptr;
    switch (fs::status(file.c_str(), ignored).type()) {
    case fs::file_type::directory:
        kind = "a directory";
        break;
    case fs::file_type::fifo:
        kind = "a pipe";
        break;
    case fs::file_type::socket:
        kind = "a socket";
        break;
    case fs::file_type::block:
    case fs::file_type::character:
        kind = "a device";
        break;
    default: // opening the file reports why it cannot be read
        return;
    }
    QM_THROW(ErrorCode::General, "cannot read '%s': it is %s, not a regular file", file.c_str(), kind);
}

int getContents(const QMFileSpec& directory, std::vector<std::string>& files,
                std::vector<std::string>& directories)
{
    std::error_code error;
    for (fs::directory_iterator entry(directory.c_str(), error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored; // a broken link is a file
        (entry->is_directory(ignored) ? directories : files).push_back(entry->path().filename().string());
    }
    return error.value();
}

void deleteFile(const QMFileSpec& file)
{
    FileIO::deleteFile(file.c_str());
}

void moveFile(const QMFileSpec& from, const QMFileSpec& to)
{
    std::error_code error;
    fs::rename(from.c_str(), to.c_str(), error);
    throwOn(error, exists(from) ? to : from);
}

QMFileSpec resolve(const QMFileSpec& file)
{
    if (RemoteName::isRemote(file.c_str()))
        return file;
    std::error_code error;
    const fs::path path = fs::absolute(file.c_str(), error);
    throwOn(error, file);
    const fs::path directory = fs::weakly_canonical(path.parent_path(), error);
    throwOn(error, file);
    return QMFileSpec(directory.c_str(), path.filename().c_str());
}

} // namespace Quillmoran::QMFileUtils
