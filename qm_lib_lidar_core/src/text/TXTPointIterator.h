// Reads a text table line by line for one query of TXTPointReader. It has a stream of its own over the file.
#pragma once

#include "text/FieldParse.h"
#include "text/LineReader.h"
#include <vxunpack/PointIterator.h>
#include <vxunpack/TextOptions.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

class TXTPointIterator final : public PointIterator
{
public:
    static TXTPointIterator* create();

    // The channels of `requested` must be among those of the options' layout. One that is requested twice is
    // delivered twice; where the file has a name twice the first column is taken. With the file's name,
    // errors in its text begin with it, the line and the column; without one they have the fixed texts below.
    void init(IO* io, const std::string& name, const TextOptions& options, const Bounds& bounds,
              double fraction, const PointInfo& requested, ProgressDelegate* delegate);

    // The buffer must have the requested layout. TextRead "line %lu has %lu fields but was expecting at least
    // %lu." (lines are counted from 1 after the skipped ones) and "bad TXT file format", Cancelled "operation
    // cancelled.". A line without fields is skipped; so is the rest of a line after the last field, unless
    // the options are strict.
    std::size_t getNextPoints(PointData& buffer) override;

    // Lines read so far, the skipped ones apart.
    std::uint64_t getNumLines() const noexcept { return m_numLines; }

private:
    struct Field
    {
        FieldParse::Parser parser = nullptr;
        std::size_t channel = 0;  // in the requested layout
        void* samples = nullptr;  // of the block being filled, null for a field that is skipped
        std::uint8_t largest = 0; // strict: of a channel with fewer bits than its type; 0: any value
    };

    // A channel requested again takes the samples of the first one.
    struct Copy
    {
        std::size_t from, to; // channels of the requested layout
    };

    TXTPointIterator() = default;

    void bindFields(const PointInfo& fileLayout, const PointInfo& requested);
    void bindSamples(PointData& buffer);
    // Whether the line holds a point; it is stored at `index`.
    bool parseLine(std::size_t index);
    const char* skipSeparators(const char* text, std::size_t field) const;
    void checkHeader(std::string_view line);
    void checkEnd(const char* text) const;
    [[noreturn]] void throwBadField(std::size_t field, const char* text) const;
    [[noreturn]] void throwTooLarge(const Field& field, const char* text, const char* after) const;
    [[noreturn]] void throwWrongCount(std::size_t numFields, const char* text) const;
    void reportLines();

    std::string m_name; // of the file; empty for the fixed messages
    PointInfo m_layout; // of the file
    bool m_strict = false;
    std::string m_header;        // strict: the first header line that was read
    std::vector<Field> m_fields; // one per column of the file
    std::vector<Copy> m_copies;  // for channels requested more than once
    LineReader m_lines;
    std::uint64_t m_numLines = 0;
    std::uint64_t m_numReported = 0; // lines
};

} // namespace Quillmoran
