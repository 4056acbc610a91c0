// The IO of a file or a temporary file.
//
// A file that is opened for writing and cannot seek (a pipe, a terminal) can be written by one thread, and
// each write must start where the previous one ended; otherwise it fails with ESPIPE. These writes, and the
// wait for a pipe's reader, throw Cancelled "operation cancelled." after a signal that
// PercentProgressDelegate handles.
#pragma once

#include <vxunpack/IO.h>

#include <atomic>
#include <memory>
#include <string>

namespace Quillmoran {

class Mutex;

class QM_API FileIO : public IO
{
public:
    class Imp;
    // A file without a name; call init() next.
    static Imp* create();

    // Throws OSError " path = %s" if the file cannot be removed.
    static void deleteFile(const char* path);
    static bool fileExists(const char* path);

protected:
    FileIO() = default;
};

// Failed system calls throw OSError with " path = %s". All functions but init(), adopt(), truncate() and
// unlink() may be called from any thread; pread() and pwrite() take no lock.
class QM_API FileIO::Imp final : public FileIO
{
public:
    enum Access
    {
        POSITIONAL,
        SEQUENTIAL
    };

    // Names the file; no file is touched before open(). In the mode "r" reads, "w" creates and truncates, and
    // "+" adds the other direction and creates; other characters have no meaning. Throws InvalidArgument
    // "path not given" for null.
    void init(const char* path, const char* mode);
    // Creates and opens a temporary file, which is removed with this object. The directory defaults to
    // TMPDIR, then /tmp; errors name the directory.
    void init(const char* directory);
    // Takes over an open descriptor; the last close() closes it and it cannot be opened again. unlink() has
    // no effect, and errors name `name`. With SEQUENTIAL it is written like a file that cannot seek.
    void adopt(int descriptor, const char* name, Access access);

    void open() override;
    void close() override;
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override;
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override;
    std::int64_t size() const override;
    void truncate(std::int64_t length) override;
    void unlink() override { m_unlink = true; }

    const char* path() const noexcept { return m_path.c_str(); }
    int descriptor() const noexcept { return m_descriptor; } // -1 while closed
    // Whether the file can only be written in order; of a file with a path, known while it is open.
    bool isSequential() const noexcept { return m_isSequential; }
    // Whether a write has failed because the reader of the pipe has closed it.
    bool isBrokenPipe() const noexcept { return m_isBrokenPipe; }

private:
    friend class FileIO;
    Imp();
    ~Imp() override;

    int openDescriptor() const;
    int openPipe() const;
    void waitUntilWritable() const;
    std::size_t writeNext(std::int64_t offset, const void* buffer, std::size_t count) const;

    std::unique_ptr<Mutex> m_mutex; // of open() and close()
    unsigned m_openCount = 0;
    bool m_unlink = false;
    bool m_isAdopted = false;
    bool m_isSequential = false;
    mutable std::atomic<bool> m_isBrokenPipe = false;
    mutable std::int64_t m_next = 0; // of a sequential file: the position of the next write
    std::string m_path;
    std::string m_name; // in errors
    int m_flags = 0;
    int m_descriptor = -1;
};

} // namespace Quillmoran
