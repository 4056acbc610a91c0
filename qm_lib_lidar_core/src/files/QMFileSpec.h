// A file path as a value: UTF-8 text with the operations that names need. Nothing here touches the file
// system; see QMFileUtils.h.
#pragma once

#include <string>

namespace Quillmoran {

class QMFileSpec
{
public:
    // Of 8-bit text.
    enum class Encoding
    {
        UTF8,
        Latin1
    };

    QMFileSpec() = default;
    // Null is the empty path. The bytes are taken as they are: a file's name need not be valid UTF-8.
    QMFileSpec(const char* path) : m_path(path ? path : "") {}
    QMFileSpec(const char* path, Encoding encoding);
    // UTF-16 and UTF-32 text; InvalidArgument "invalid UTF-16 text", "invalid UTF-32 text".
    explicit QMFileSpec(const char16_t* path);
    explicit QMFileSpec(const wchar_t* path);
    // A name inside a directory; an absolute name stands for itself.
    QMFileSpec(const QMFileSpec& directory, const char* name);

    const char* c_str() const noexcept { return m_path.c_str(); } // UTF-8
    bool empty() const noexcept { return m_path.empty(); }
    bool isAbsolute() const noexcept { return !m_path.empty() && m_path.front() == '/'; }

    // All up to the last slash, without it; empty for a bare name, "/" for a name in the root.
    std::string dirname() const;
    // All behind the last slash.
    std::string basename() const;
    // What follows the last dot of the base name, without it; empty when there is none. A dot that begins
    // the name hides a file and is no suffix.
    std::string getSuffix() const;
    // The same path with another suffix, given without its dot, or with none.
    QMFileSpec replaceSuffix(const char* suffix) const;
    QMFileSpec removeSuffix() const;
    // Whether the path ends with `ending`, whatever the case of the letters.
    bool endsWith(const char* ending) const noexcept;

    bool operator==(const QMFileSpec& other) const noexcept { return m_path == other.m_path; }
    bool operator!=(const QMFileSpec& other) const noexcept { return m_path != other.m_path; }
    bool operator<(const QMFileSpec& other) const noexcept { return m_path < other.m_path; }

private:
    // The position of the dot before the suffix, or the length of the path.
    std::size_t findSuffix() const noexcept;

    std::string m_path;
};

} // namespace Quillmoran
