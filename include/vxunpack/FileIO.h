// The IO over a file descriptor, also the system's temporary file. Reading and writing take no lock and may
// run on many threads; open() and close() are serialised.
//
// A file opened for writing that cannot seek (a pipe, a terminal) takes the writes of one thread, each of
// which begins where the last one ended; any other position is ESPIPE. Such writes, and the wait for a pipe's
// reader, end with Cancelled "operation cancelled." once isInterrupted() is true.
#pragma once

#include "platform/Mutex.h"
#include <vxunpack/IO.h>

#include <string>

namespace Quillmoran {

class QM_API FileIO : public IO
{
public:
    class Imp;
    // An unopened file; call init() before anything else.
    static Imp* create();

    // Throws OSError " path = %s" when the file cannot be removed.
    static void deleteFile(const char* path);
    static bool fileExists(const char* path);

protected:
    FileIO() = default;
};

class QM_API FileIO::Imp final : public FileIO
{
public:
    enum Access
    {
        POSITIONAL,
        SEQUENTIAL
    };

    // Names the file; nothing is touched before open(). The mode: "r" reads, "w" creates and truncates,
    // "+" adds the other direction (and creates); no other character has a meaning.
    void init(const char* path, const char* mode);
    // Makes and opens a temporary file that goes with this object. The directory defaults to TMPDIR, then
    // /tmp; errors name it.
    void init(const char* directory);
    // Takes over an open descriptor, which the last close() closes for good. The file is not reached by any
    // name: unlink() has no effect, and errors name `name`. With SEQUENTIAL it is written as one that cannot
    // seek, from where the descriptor is.
    void adopt(int descriptor, const char* name, Access access);

    void open() override;
    void close() override;
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override;
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override;
    std::int64_t size() const override;
    void truncate(std::int64_t length) override;
    void unlink() override { m_unlink = true; }

    const char* path() const noexcept { return m_path.c_str(); }
    // -1 while closed.
    int descriptor() const noexcept { return m_descriptor; }
    // Whether the open file is written sequentially only.
    bool isSequential() const noexcept { return m_isSequential; }

private:
    friend class FileIO;
    Imp() = default;
    ~Imp() override;

    int openDescriptor() const;
    int openPipe() const;
    void waitUntilWritable() const;
    std::size_t writeNext(std::int64_t offset, const void* buffer, std::size_t count) const;

    Mutex m_mutex;
    unsigned m_openCount = 0;
    bool m_unlink = false;
    bool m_isAdopted = false;
    bool m_isSequential = false;
    mutable std::int64_t m_next = 0; // of a sequential file: where the next write begins
    std::string m_path;
    std::string m_name; // in errors
    int m_flags = 0;
    int m_descriptor = -1;
};

} // namespace Quillmoran
