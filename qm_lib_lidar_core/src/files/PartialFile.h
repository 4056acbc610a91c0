// A file under construction beside the one that it will replace, so that nobody ever sees half of it under
// its final name, and an older file of that name is kept until the new one is complete.
#pragma once

#include "files/QMFileSpec.h"
#include "platform/Export.h"

namespace Quillmoran {

class QM_API PartialFile
{
public:
    // Makes an empty file, one that nobody else writes, with the permissions of the one that it will replace.
    // What a link leads to is replaced, not the link. A device or a pipe is written to directly, and so is an
    // existing file in a directory that takes no others. The system's error when a file of that name may not
    // be written.
    explicit PartialFile(const QMFileSpec& final);
    // Removes what was written unless it was finished.
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    // Where to write.
    const QMFileSpec& path() const noexcept { return m_path; }
    // Puts the complete file in its place.
    void finish();
    // There is nothing to write: neither this file nor an older one is left.
    void finishWithoutFile();

private:
    // False when the directory takes no new files.
    bool createBeside(unsigned permissions);

    QMFileSpec m_final;
    QMFileSpec m_path;
    bool m_isDirect = false;
    bool m_isFinished = false;
};

} // namespace Quillmoran
