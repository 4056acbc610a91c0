// Writes a file to a temporary file in the same directory and renames it when it is complete. An older file
// is replaced only then, and no program sees an incomplete file under the final name.
//
// The temporary file is created exclusively and written through its descriptor, so that a link or another
// file that replaces it meanwhile is not written.
#pragma once

#include "files/QMFileSpec.h"
#include <vxunpack/FileIO.h>

#include <cstdint>

struct stat64;

namespace Quillmoran {

class PartialFile
{
public:
    // Creates an empty file. A new file has the permissions 0666 less the umask. A replacement has the
    // permissions, owner and group of the old file as far as the system allows, and is never more readable.
    // The target of a link is replaced, not the link. A device or a pipe is written directly, and so is an
    // existing file in a directory where no file can be created; io()->open() opens and truncates these. The
    // mode, "w" or "+w", is that of FileIO. Throws OSError if a file of that name cannot be written,
    // InvalidArgument "path not given" for an empty name.
    explicit PartialFile(const QMFileSpec& final, const char* mode = "w");
    // Removes the temporary file unless finish() was called. A file that is written directly is not removed;
    // call io()->unlink() to remove or truncate it.
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    // False for a pipe or a terminal. Does not open a pipe.
    bool canSeek() const;

    // The file to open, write and close. Its errors name the path that the constructor was given.
    FileIO::Imp* io() const noexcept { return m_io.get(); }
    // The path of the file before finish().
    const QMFileSpec& path() const noexcept { return m_path; }
    // Renames the complete file, which must be closed.
    void finish();

private:
    // False if no file can be created in the directory.
    bool createTemporary(const struct stat64* replaced);

    void requireOwnFile() const;

    QMFileSpec m_given;
    QMFileSpec m_final;
    QMFileSpec m_path;
    Scoped<FileIO::Imp> m_io;
    std::uint64_t m_device = 0; // of the temporary file
    std::uint64_t m_inode = 0;
    bool m_isDirect = false;
    bool m_isFinished = false;
};

} // namespace Quillmoran
