// Reads a file line by line. The buffer grows up to the maximum length of a line.
#pragma once

#include "platform/Stream.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Quillmoran {

class ProgressDelegate;

class LineReader
{
public:
    static constexpr std::size_t maxLength = std::size_t{1} << 20; // bytes of a line, without its newline

    // `name` is the name of the file in messages. The delegate may be null; it and isInterrupted() are
    // checked each time the buffer is filled.
    void init(IO* io, const std::string& name, ProgressDelegate* delegate);

    // Continues with the first line that begins at this byte or after it. Lines are then counted from that
    // byte.
    void seek(std::int64_t position);

    // Reads the next line; false at the end. TextRead "line is longer than 1048576 bytes", with the location
    // of the line; Cancelled "operation cancelled.".
    bool next();

    // The current line without its newline and without a UTF-8 byte order mark, followed by a NUL. Valid
    // until next().
    std::string_view line() const noexcept { return m_line; }
    std::uint64_t number() const noexcept { return m_number; } // of the current line, from 1
    // "points.txt:17: ", or "line 17: " for a file without a name; with a column, from 1, "points.txt:17:9:
    // ".
    std::string location() const;
    std::string location(std::size_t column) const;

private:
    bool fill();

    StreamReader m_stream;
    std::string m_name;
    ProgressDelegate* m_delegate = nullptr;
    std::vector<char> m_buffer; // with a spare byte for the NUL of the last line
    std::size_t m_begin = 0;    // of the bytes after the current line
    std::size_t m_end = 0;
    std::string_view m_line;
    std::uint64_t m_number = 0;
};

} // namespace Quillmoran
