// Reads a text table line by line for one query of TXTPointReader, with its own stream.
#pragma once

#include "text/FieldParse.h"
#include "text/LineReader.h"
#include <vxunpack/PointIterator.h>
#include <vxunpack/TXTPointReader.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

class TXTPointIterator final : public PointIterator
{
public:
    static TXTPointIterator* create();

    // The options' layout must have the requested channels. A channel may be requested several times; of
    // columns with the same name the first is read. With a file name, errors in the text begin with it, the
    // line and the column; without a name they have the fixed texts below.
    void init(IO* io, const std::string& name, const TextOptions& options, const Bounds& bounds,
              double fraction, const PointInfo& requested, ProgressDelegate* delegate);

    // Continues with the first line that begins at this byte of the file or after it.
    void seek(std::int64_t position) { m_lines.seek(position); }

    // TextRead "line %lu has %lu fields but was expecting at least %lu." (lines are counted from 1 after the
    // skipped ones) and "bad TXT file format", Cancelled "operation cancelled.". Lines without fields are
    // skipped, and so is the rest of a line after the last field, unless the options are strict.
    std::size_t getNextPoints(PointData& buffer) override;

    // Lines read so far, without the skipped ones.
    std::uint64_t getNumLines() const noexcept { return m_numLines; }

private:
    struct Field
    {
        FieldParse::Parser parser = nullptr;
        std::size_t channel = 0; // in the requested layout
        void* samples = nullptr; // of the block being filled; null for a skipped field
        std::uint8_t largest =
            0; // strict: the maximum of a channel with fewer bits than its type; 0: any value
    };

    // A channel that is requested again is copied from the first one.
    struct Copy
    {
        std::size_t from, to; // channels of the requested layout
    };

    TXTPointIterator() = default;

    void bindFields(const PointInfo& fileLayout, const PointInfo& requested);
    void bindSamples(PointData& buffer);
    // Whether the line has a point, which is then written to `index`.
    bool parseLine(std::size_t index);
    const char* skipSeparators(const char* text, std::size_t field) const;
    std::string locationOf(const char* text) const; // in the current line
    void checkHeader(std::string_view line);
    void checkEnd(const char* text) const;
    [[noreturn]] void throwBadField(std::size_t field, const char* text) const;
    [[noreturn]] void throwTooLarge(const Field& field, const char* text, const char* after) const;
    [[noreturn]] void throwWrongCount(std::size_t numFields, const char* text) const;
    void reportLines();

    std::string m_name; // of the file; empty for the fixed messages
    PointInfo m_layout; // of the file
    bool m_strict = false;
    std::string m_header;        // strict: the first header line of the file
    std::vector<Field> m_fields; // one per column of the file
    std::vector<Copy> m_copies;  // of channels that are requested several times
    LineReader m_lines;
    std::uint64_t m_numLines = 0;
    std::uint64_t m_numReported = 0; // lines
};

} // namespace Quillmoran
