#include "files/Spool.h"

#include "platform/Interrupt.h"
#include <vxunpack/Base.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran::Spool {

namespace {

constexpr std::size_t bufferSize = 256 * 1024; // bytes; a pipe holds at most 64 KiB by default
constexpr int pollInterval = 50;               // milliseconds

bool isStandardInput(const char* path)
{
    return std::strcmp(path, "-") == 0;
}

// Of a stream that is being read.
class Descriptor
{
public:
    // A pipe that no writer has opened yet is opened, too: waiting for the writer in open() would miss a
    // signal that arrived just before it.
    Descriptor(const char* path, const char* name)
        : m_value(isStandardInput(path) ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)
                                        : ::open64(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)),
          m_name(name)
    {
        if (m_value < 0)
            QM_THROW_OS(name);
    }
    ~Descriptor()
    {
        if (m_value >= 0)
            ::close(m_value);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isFileAtItsBeginning() const
    {
        struct stat64 status;
        return fstat64(m_value, &status) == 0 && S_ISREG(status.st_mode) &&
               ::lseek64(m_value, 0, SEEK_CUR) == 0;
    }

    Scoped<FileIO::Imp> adopt()
    {
        Scoped<FileIO::Imp> file(FileIO::create());
        file->adopt(m_value, m_name, FileIO::Imp::POSITIONAL);
        m_value = -1;
        file->open();
        return file;
    }

    // Returns 0 at the end. Checks for signals while it waits.
    std::size_t read(void* buffer, std::size_t count) const
    {
        pollfd readable = {m_value, POLLIN, 0};
        for (;;) {
            const int ready = ::poll(&readable, 1, pollInterval);
            if (isInterrupted())
                QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
            if (ready == 0 || (ready < 0 && errno == EINTR))
                continue;
            const ssize_t got = ::read(m_value, buffer, count);
            if (got >= 0)
                return static_cast<std::size_t>(got);
            if (errno != EINTR && errno != EAGAIN)
                QM_THROW_OS(m_name);
        }
    }

private:
    int m_value;
    const char* m_name;
};

} // namespace

Scoped<FileIO::Imp> create()
{
    Scoped<FileIO::Imp> file(FileIO::create());
    file->init(nullptr);
    FileIO::deleteFile(file->path());
    return file;
}

Scoped<FileIO::Imp> read(const char* path, const char* name)
{
    Descriptor stream(path, name);
    if (stream.isFileAtItsBeginning())
        return stream.adopt();
    const auto writing = [name](const auto& write) {
        try {
            return write();
        } catch (const Error& error) {
            QM_THROW(ErrorCode::General, "cannot copy '%s' to a temporary file: %s", name, error.what());
        }
    };
    Scoped<FileIO::Imp> file = writing([] { return create(); });
    const Buffer<unsigned char> buffer = makeBuffer<unsigned char>(bufferSize);
    std::int64_t position = 0;
    while (const std::size_t got = stream.read(buffer.get(), bufferSize)) {
        writing([&] { writeFully(*file, position, buffer.get(), got); });
        position += static_cast<std::int64_t>(got);
    }
    return file;
}

void copy(const IO& from, const IO& to)
{
    const Buffer<unsigned char> buffer = makeBuffer<unsigned char>(bufferSize);
    std::int64_t position = 0;
    while (const std::size_t got = readFully(from, position, buffer.get(), bufferSize)) {
        writeFully(to, position, buffer.get(), got);
        position += static_cast<std::int64_t>(got);
    }
}

} // namespace Quillmoran::Spool
