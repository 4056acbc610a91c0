// Reads a text table line by line for one query of TXTPointReader. It has a stream of its own over the file.
#pragma once

#include "framework/PointIterator.h"
#include "model/PointInfo.h"
#include "platform/Stream.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

class TXTPointIterator final : public PointIterator
{
public:
    static TXTPointIterator* create();

    // The channels of `requested` must be among those of `fileLayout`. One that is requested twice is
    // delivered twice; where the file has a name twice the first column is taken.
    void init(IO* io, const PointInfo& fileLayout, std::size_t skipLines, const Bounds& bounds,
              double fraction, const PointInfo& requested, ProgressDelegate* delegate);

    // The buffer must have the requested layout. 40005 for a line of too few fields (lines are counted from 1
    // behind the skipped ones) or a field that is no number, 40006 "operation cancelled.". A line without
    // fields is passed over, and so is the rest of a line behind the last field.
    std::size_t getNextPoints(PointData& buffer) override;

    // Lines read so far, the skipped ones apart.
    std::uint64_t getNumLines() const noexcept { return m_numLines; }

private:
    // Reads a field at `text`, which is neither white space nor the end, and returns its end. `end` is the
    // NUL that ends the line.
    using Parser = const char* (*)(const char* text, const char* end, void* samples, std::size_t index);

    struct Field
    {
        Parser parser = nullptr;
        std::size_t channel = 0; // in the requested layout
        void* samples = nullptr; // of the block being filled, null for a field that is read over
    };

    // A channel requested again takes the samples of the first one.
    struct Copy
    {
        std::size_t from, to; // channels of the requested layout
    };

    struct Line
    {
        Line() = default;
        Line(const Line&) = delete;
        Line& operator=(const Line&) = delete;
        ~Line() { XDEALLOC(text); }

        char* text = nullptr;
        std::size_t capacity = 0;
    };

    TXTPointIterator() = default;

    static Parser parserOf(DataType type);
    void bindFields(const PointInfo& fileLayout, const PointInfo& requested);
    void bindSamples(PointData& buffer);
    // The number of fields read. What is read is stored at `index`.
    std::size_t parseLine(std::size_t index) const;
    void reportLines();

    std::vector<Field> m_fields; // one per column of the file
    std::vector<Copy> m_copies;  // for channels requested more than once
    StreamReader m_stream;
    Line m_line;
    std::uint64_t m_numLines = 0;
    std::uint64_t m_numReported = 0; // lines
};

} // namespace Quillmoran
