// Reads a file line by line, each line in place in a buffer that grows up to the longest line allowed.
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

    // `name` is the file's name for messages. The delegate may be null; it and isInterrupted() are asked
    // whether to stop each time the buffer is filled.
    void init(IO* io, const std::string& name, ProgressDelegate* delegate);

    // Goes to the next line; false at the end. TextRead "line is longer than 1048576 bytes", after the file's
    // name and the number of the line; Cancelled "operation cancelled.".
    bool next();

    // The present line without its newline and, in the first line, without a UTF-8 byte order mark; followed
    // by a NUL. Valid until next().
    std::string_view line() const noexcept { return m_line; }
    std::uint64_t number() const noexcept { return m_number; } // of the present line, from 1
    // "points.txt:17: ", or "line 17: " for a file without a name. A column, from 1, follows the line.
    std::string location() const;
    std::string location(std::size_t column) const;

private:
    bool fill();

    StreamReader m_stream;
    std::string m_name;
    ProgressDelegate* m_delegate = nullptr;
    std::vector<char> m_buffer; // one byte is always spare, for the NUL of the last line
    std::size_t m_begin = 0;    // of the bytes that were read and belong to no line so far
    std::size_t m_end = 0;
    std::string_view m_line;
    std::uint64_t m_number = 0;
};

} // namespace Quillmoran
