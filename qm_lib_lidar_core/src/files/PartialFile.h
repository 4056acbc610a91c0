// A file under construction beside the one that it will replace, so that nobody ever sees half of it under
// its final name, and an older file of that name is kept until the new one is complete.
#pragma once

#include "files/QMFileSpec.h"
#include "platform/Export.h"

namespace Quillmoran {

class QM_API PartialFile
{
public:
    // What a link leads to is replaced, not the link. A device or a pipe is written to directly. The system's
    // error when a file of that name may not be written.
    explicit PartialFile(const QMFileSpec& final);
    // Removes what was written unless it was finished.
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    // Where to write. The file is not created here.
    const QMFileSpec& path() const noexcept { return m_path; }
    // Puts the complete file in its place.
    void finish();

private:
    QMFileSpec m_final;
    QMFileSpec m_path;
    bool m_isDirect = false;
    bool m_isFinished = false;
};

} // namespace Quillmoran
