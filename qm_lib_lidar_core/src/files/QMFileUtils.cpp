#include "files/QMFileUtils.h"

#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

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

struct stat64 getStatus(const QMFileSpec& file)
{
    struct stat64 status;
    if (stat64(file.c_str(), &status) != 0)
        QM_THROW_OS(file.c_str());
    return status;
}

const char* getVariable(const char* name)
{
    const char* value = std::getenv(name);
    return value && *value != '\0' ? value : nullptr;
}

} // namespace

bool exists(const QMFileSpec& file)
{
    return FileIO::fileExists(file.c_str());
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
    const struct stat64 status = getStatus(file);
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
    default: // opening the name gives the reason if there is nothing to read
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
        std::error_code ignored; // a link that leads nowhere is a file
        (entry->is_directory(ignored) ? directories : files).push_back(entry->path().filename().string());
    }
    return error.value();
}

void createFile(const QMFileSpec& file)
{
    constexpr mode_t permissions = 0644;
    const int descriptor = ::open64(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
    if (descriptor < 0 || ::close(descriptor) != 0)
        QM_THROW_OS(file.c_str());
}

void createDirectory(const QMFileSpec& directory)
{
    std::error_code error;
    fs::create_directories(directory.c_str(), error);
    throwOn(error, directory);
}

void deleteFile(const QMFileSpec& file)
{
    FileIO::deleteFile(file.c_str());
}

void deleteDirectory(const QMFileSpec& directory)
{
    std::error_code error;
    if (!isDirectory(directory))
        error.assign(exists(directory) ? ENOTDIR : ENOENT, std::generic_category());
    else
        fs::remove_all(directory.c_str(), error);
    throwOn(error, directory);
}

void copyFile(const QMFileSpec& from, const QMFileSpec& to)
{
    std::error_code error;
    fs::copy_file(from.c_str(), to.c_str(), fs::copy_options::overwrite_existing, error);
    throwOn(error, exists(from) ? to : from);
}

void moveFile(const QMFileSpec& from, const QMFileSpec& to)
{
    std::error_code error;
    fs::rename(from.c_str(), to.c_str(), error);
    if (error.value() != EXDEV)
        return throwOn(error, exists(from) ? to : from);
    // Another file system: the old name goes only when the copy is complete.
    copyFile(from, to);
    deleteFile(from);
}

QMFileSpec resolve(const QMFileSpec& file)
{
    std::error_code error;
    const fs::path path = fs::absolute(file.c_str(), error);
    throwOn(error, file);
    const fs::path directory = fs::weakly_canonical(path.parent_path(), error);
    throwOn(error, file);
    return QMFileSpec(directory.c_str(), path.filename().c_str());
}

QMFileSpec getCurrentDirectory()
{
    std::error_code error;
    const fs::path path = fs::current_path(error);
    throwOn(error, ".");
    return path.c_str();
}

QMFileSpec getTemporaryDirectory()
{
    for (const char* name : {"TMPDIR", "TEMP"})
        if (const char* value = getVariable(name))
            return value;
    return "/tmp";
}

QMFileSpec getProcessPath()
{
    std::error_code error;
    const fs::path path = fs::read_symlink("/proc/self/exe", error);
    if (!error)
        return path.c_str();
    return findProgram(program_invocation_name);
}

QMFileSpec findProgram(const char* name)
{
    const auto isProgram = [](const QMFileSpec& file) {
        return !isDirectory(file) && ::access(file.c_str(), X_OK) == 0;
    };
    if (std::strchr(name, '/'))
        return isProgram(name) ? resolve(name) : QMFileSpec();
    const char* path = getVariable("PATH");
    for (std::string rest = path ? path : ""; !rest.empty();) {
        const std::size_t colon = rest.find(':');
        const std::string directory = rest.substr(0, colon);
        rest = colon == std::string::npos ? std::string() : rest.substr(colon + 1);
        const QMFileSpec file(QMFileSpec(directory.empty() ? "." : directory.c_str()), name);
        if (isProgram(file))
            return resolve(file);
    }
    return {};
}

} // namespace Quillmoran::QMFileUtils
