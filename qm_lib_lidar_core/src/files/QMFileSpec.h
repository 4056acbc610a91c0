// A file path as a value. It does not access the file system; see QMFileUtils.h.
#pragma once

#include <string>

namespace Quillmoran {

class QMFileSpec
{
public:
    QMFileSpec() = default;
    // Null is the empty path. The text is usually UTF-8, but any bytes are valid.
    QMFileSpec(const char* path) : m_path(path ? path : "") {}
    // A name in a directory; an absolute name is used as it is.
    QMFileSpec(const QMFileSpec& directory, const char* name);

    const char* c_str() const noexcept { return m_path.c_str(); }
    bool empty() const noexcept { return m_path.empty(); }
    bool isAbsolute() const noexcept { return !m_path.empty() && m_path.front() == '/'; }

    // The part before the last slash; empty if there is no slash, "/" for a name in the root.
    std::string dirname() const;
    // The part after the last slash.
    std::string basename() const;
    // The part of the base name after its last dot; empty if there is none. A dot at the start of the name is
    // not a suffix, since it marks a hidden file.
    std::string getSuffix() const;
    // The path with another suffix, given without its dot, or without a suffix.
    QMFileSpec replaceSuffix(const char* suffix) const;
    QMFileSpec removeSuffix() const;
    // Whether the path ends with `ending`, ignoring case.
    bool endsWith(const char* ending) const noexcept;

    auto operator<=>(const QMFileSpec& other) const noexcept = default;

private:
    // The position of the dot before the suffix, or the length of the path.
    std::size_t findSuffix() const noexcept;

    std::string m_path;
};

} // namespace Quillmoran
