// A file path as a value: UTF-8 text with the operations that names need. Nothing here touches the file
// system.
#pragma once

#include "platform/Export.h"

#include <string>

namespace Quillmoran {

class QM_API QMFileSpec
{
public:
    QMFileSpec() = default;
    QMFileSpec(const char* path) : m_path(path ? path : "") {}
    // A name inside a directory; an absolute name stands for itself.
    QMFileSpec(const QMFileSpec& directory, const char* name);

    const char* c_str() const noexcept { return m_path.c_str(); } // UTF-8
    bool empty() const noexcept { return m_path.empty(); }
    bool isAbsolute() const noexcept { return !m_path.empty() && m_path.front() == '/'; }

    // All up to the last slash, without it; empty for a bare name, "/" for a name in the root.
    std::string dirname() const;
    // All behind the last slash.
    std::string basename() const;
    // What follows the last dot of the base name, without it; empty when there is none.
    std::string getSuffix() const;
    // Whether the path ends with `ending`, whatever the case of the letters.
    bool endsWith(const char* ending) const noexcept;

    bool operator==(const QMFileSpec& other) const noexcept { return m_path == other.m_path; }
    bool operator!=(const QMFileSpec& other) const noexcept { return m_path != other.m_path; }
    bool operator<(const QMFileSpec& other) const noexcept { return m_path < other.m_path; }

private:
    std::string m_path;
};

} // namespace Quillmoran
