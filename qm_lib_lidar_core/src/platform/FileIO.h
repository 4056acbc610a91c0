// The IO over a file descriptor, also the system's temporary file. Reading and writing take no lock and may
// run on many threads; open() and close() are serialised.
#pragma once

#include "platform/IO.h"
#include "platform/Mutex.h"

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
    // Names the file; nothing is touched before open(). The mode: "r" reads, "w" creates and truncates,
    // "+" adds the other direction (and creates); no other character has a meaning.
    void init(const char* path, const char* mode);
    // Makes and opens a temporary file that goes with this object. The directory defaults to TMPDIR, then
    // /tmp.
    void init(const char* directory);

    void open() override;
    void close() override;
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override;
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override;
    std::int64_t size() const override;
    void truncate(std::int64_t length) override;
    void unlink() override { m_unlink = true; }

    const char* path() const noexcept { return m_path.c_str(); }

private:
    friend class FileIO;
    Imp() = default;
    ~Imp() override;

    Mutex m_mutex;
    unsigned m_openCount = 0;
    bool m_unlink = false;
    std::string m_path;
    int m_flags = 0;
    int m_descriptor = -1;
};

} // namespace Quillmoran
