#include <vxunpack/FileIO.h>

#include "platform/Interrupt.h"
#include "platform/Mutex.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran {

namespace {

constexpr mode_t newFilePermissions = 0666; // less the umask
constexpr int pollInterval = 50;            // milliseconds
// Bytes that a writable pipe accepts without blocking.
constexpr std::size_t maxSequentialWrite = PIPE_BUF;

int openFlags(const char* mode)
{
    const bool plus = std::strchr(mode, '+') != nullptr;
    if (std::strchr(mode, 'r'))
        return plus ? O_RDWR | O_CREAT : O_RDONLY;
    if (std::strchr(mode, 'w'))
        return (plus ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
    return plus ? O_RDWR | O_CREAT : O_RDONLY;
}

// Removes only a regular file, never a device or a pipe. The target of a link is emptied instead, and so is a
// file in a directory without write permission.
void remove(const char* path) noexcept
{
    struct stat64 own, target;
    if (lstat64(path, &own) != 0 || (S_ISREG(own.st_mode) && ::unlink(path) == 0))
        return;
    if (stat64(path, &target) == 0 && S_ISREG(target.st_mode) && ::truncate64(path, 0) != 0)
        return; // a destructor cannot report it
}

bool isPipe(const char* path)
{
    struct stat64 status;
    return stat64(path, &status) == 0 && S_ISFIFO(status.st_mode);
}

bool canSeek(int descriptor)
{
    return ::lseek64(descriptor, 0, SEEK_CUR) >= 0 || errno != ESPIPE;
}

// Repeats a call that a signal interrupted before it did anything.
template <class Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

} // namespace

FileIO::Imp* FileIO::create()
{
    return new Imp;
}

void FileIO::deleteFile(const char* path)
{
    if (::unlink(path) != 0)
        QM_THROW_OS(path);
}

bool FileIO::fileExists(const char* path)
{
    struct stat64 status;
    return stat64(path, &status) == 0;
}

FileIO::Imp::Imp() : m_mutex(std::make_unique<Mutex>())
{}

void FileIO::Imp::init(const char* path, const char* mode)
{
    if (!path || !mode)
        QM_THROW(ErrorCode::InvalidArgument, "%s not given", path ? "mode" : "path");
    m_path = path;
    m_name = path;
    m_flags = openFlags(mode);
}

void FileIO::Imp::init(const char* directory)
{
    if (!directory)
        directory = std::getenv("TMPDIR");
    if (!directory)
        directory = "/tmp";
    std::string path = std::string(directory) + "/qmiXXXXXX";
    const int descriptor = ::mkostemp(path.data(), O_CLOEXEC);
    if (descriptor < 0)
        throwOSError(__FILE__, "impInit", __LINE__, directory);
    m_path = std::move(path);
    m_name = directory; // users do not know the file's name
    m_flags = O_RDWR;
    m_descriptor = descriptor;
    m_openCount = 1;
    m_unlink = true;
}

void FileIO::Imp::adopt(int descriptor, const char* name, Access access)
{
    if (!name)
        QM_THROW(ErrorCode::InvalidArgument, "name not given");
    m_path = name;
    m_name = name;
    m_descriptor = descriptor;
    m_isAdopted = true;
    m_isSequential = access == SEQUENTIAL;
}

FileIO::Imp::~Imp()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    if (m_unlink && !m_isAdopted)
        remove(m_path.c_str());
}

void FileIO::Imp::open()
{
    const std::lock_guard<Mutex> lock(*m_mutex);
    if (m_descriptor < 0) {
        m_descriptor = openDescriptor();
        m_isSequential = (m_flags & O_ACCMODE) != O_RDONLY && !canSeek(m_descriptor);
        m_next = 0;
        // A later open() after a full close keeps what was written.
        m_flags &= ~O_TRUNC;
    }
    ++m_openCount;
}

int FileIO::Imp::openDescriptor() const
{
    if (m_isAdopted) {
        errno = EBADF;
        QM_THROW_OS(m_name.c_str());
    }
    const bool isWriteOnly = (m_flags & O_ACCMODE) == O_WRONLY;
    const int descriptor = isWriteOnly && isPipe(m_path.c_str())
                               ? openPipe()
                               : ::open64(m_path.c_str(), m_flags | O_CLOEXEC, newFilePermissions);
    if (descriptor < 0)
        QM_THROW_OS(m_name.c_str());
    return descriptor;
}

// A plain open() waits for a reader and would miss a signal that arrived just before it.
int FileIO::Imp::openPipe() const
{
    for (;;) {
        const int descriptor = ::open64(m_path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (descriptor >= 0 || errno != ENXIO)
            return descriptor;
        if (isInterrupted())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
        ::poll(nullptr, 0, pollInterval);
    }
}

void FileIO::Imp::close()
{
    const std::lock_guard<Mutex> lock(*m_mutex);
    if (m_openCount-- == 1) {
        const int descriptor = m_descriptor;
        m_descriptor = -1;
        if (::close(descriptor) != 0)
            QM_THROW_OS(m_name.c_str());
    }
}

std::size_t FileIO::Imp::pread(std::int64_t offset, void* buffer, std::size_t count) const
{
    // The system refuses a read across the largest position, where no file has bytes.
    if (offset >= 0 && count > static_cast<std::uint64_t>(INT64_MAX - offset))
        return 0;
    const ssize_t moved = uninterrupted([&] { return ::pread64(m_descriptor, buffer, count, offset); });
    if (moved < 0)
        QM_THROW_OS(m_name.c_str());
    return static_cast<std::size_t>(moved);
}

std::size_t FileIO::Imp::pwrite(std::int64_t offset, const void* buffer, std::size_t count) const
{
    if (m_isSequential)
        return writeNext(offset, buffer, count);
    const ssize_t moved = uninterrupted([&] { return ::pwrite64(m_descriptor, buffer, count, offset); });
    if (moved < 0)
        QM_THROW_OS(m_name.c_str());
    if (moved == 0 && count != 0)
        QM_THROW(ErrorCode::Write, "write error path = %s", m_name.c_str());
    return static_cast<std::size_t>(moved);
}

// Checks for signals while it waits, since the reader of a pipe can block the writer indefinitely.
void FileIO::Imp::waitUntilWritable() const
{
    pollfd writable = {m_descriptor, POLLOUT, 0};
    for (;;) {
        const int result = ::poll(&writable, 1, pollInterval);
        if (result > 0 || (result < 0 && errno != EINTR))
            return;
        if (isInterrupted())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    }
}

std::size_t FileIO::Imp::writeNext(std::int64_t offset, const void* buffer, std::size_t count) const
{
    if (offset != m_next) {
        errno = ESPIPE;
        QM_THROW_OS(m_name.c_str());
    }
    ssize_t moved = -1;
    do {
        waitUntilWritable();
        moved = ::write(m_descriptor, buffer, std::min(count, maxSequentialWrite));
    } while (moved < 0 && (errno == EINTR || errno == EAGAIN));
    if (moved < 0) {
        m_isBrokenPipe = m_isBrokenPipe || errno == EPIPE;
        QM_THROW_OS(m_name.c_str());
    }
    m_next += moved;
    return static_cast<std::size_t>(moved);
}

std::int64_t FileIO::Imp::size() const
{
    struct stat64 status;
    const int result = m_descriptor >= 0 ? fstat64(m_descriptor, &status) : stat64(m_path.c_str(), &status);
    if (result != 0)
        QM_THROW_OS(m_name.c_str());
    return status.st_size;
}

void FileIO::Imp::truncate(std::int64_t length)
{
    if (uninterrupted([&] { return ::ftruncate64(m_descriptor, length); }) != 0)
        QM_THROW_OS(m_name.c_str());
}

} // namespace Quillmoran
