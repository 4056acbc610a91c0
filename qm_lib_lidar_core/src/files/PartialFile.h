// A file under construction, in a temporary file in the directory of the one that it will replace, so that
// nobody ever sees half of it under its final name, and an older file of that name is kept until the new one
// is complete.
//
// The temporary file is created once and written through its descriptor: a link or another file that is put
// in its place meanwhile is not written to.
#pragma once

#include "files/QMFileSpec.h"
#include <vxunpack/FileIO.h>

#include <cstdint>

struct stat64;

namespace Quillmoran {

class PartialFile
{
public:
    // Creates an empty file. A new file gets the permissions 0666 less the umask. One that replaces a file
    // gets its permissions, owner and group, as far as the system allows, and is never more readable than it.
    // What a link leads to is replaced, not the link. A device or a pipe is written to directly, and so is an
    // existing file in a directory in which no file can be created; these are opened, and emptied, by
    // io()->open(). The mode, "w" or "+w", is that of FileIO. The system's error when a file of that name may
    // not be written, InvalidArgument "path not given" without a name.
    explicit PartialFile(const QMFileSpec& final, const char* mode = "w");
    // Removes the temporary file unless it was finished. A file that is written directly stays;
    // io()->unlink() removes or empties it.
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    // For writers of a format that is not written in order: OutputCreate when the file cannot seek.
    void requireSeekable(const char* format) const;

    // The file to open, write and close. Errors name the path as given to the constructor.
    FileIO::Imp* io() const noexcept { return m_io.get(); }
    // Where the file is until it is finished.
    const QMFileSpec& path() const noexcept { return m_path; }
    // Gives the complete file, which was closed, its name.
    void finish();
    // There is nothing to write: neither this file nor an older one is left.
    void finishWithoutFile();

private:
    // False when no file can be created in the directory.
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
