// Writes points as a plain text table: a line "# X Y Z ..." that names the columns, then one line per point
// with its fields separated by single blanks. The programs use it for text output.
//
// Integers are written whole. A floating-point channel is written with the 3, 6, 9, 12 or 15 decimals that
// its quantization of 1, 0.1, 0.01 and so on needs, or, when it has none of that kind, with those that a
// metadata record of the source names (TextDecimals.h), else with all significant digits.
//
// Lines are formatted in parallel, a slice of a block of points each, and written by a thread of their own
// while the next ones are made.
#pragma once

#include "files/PartialFile.h"
#include "platform/OutputQueue.h"
#include "platform/Stream.h"
#include <vxunpack/PointWriter.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class QM_API TXTPointWriter final : public SimplePointWriter
{
public:
    static TXTPointWriter* create();

    // One column per channel of `fields` that the source has, in that order; a channel named twice gives two
    // columns. The format is a text of field letters (see FieldFormat.h). Nothing is written, nor is a file
    // created, before write() begins; a file takes its name when it is complete. Output is written in order,
    // so that it may be a pipe.
    void init(PointSource* source, IO* io, const PointInfo& fields);
    void init(PointSource* source, IO* io, const char* format);
    void init(PointSource* source, const char* path, const PointInfo& fields);
    void init(PointSource* source, const char* path, const char* format);

    // Every channel is supported.
    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override;

protected:
    // A column whose channel the layout lacks stays empty, without a separator. A channel of no known type is
    // TextField.
    void writeBegin(const PointInfo& layout) override;
    // Asks the delegate once per block: Cancelled "TXT Write operation cancelled.".
    void writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate) override;
    // Without points and with unbounded bounds nothing is left behind.
    void writeEnd(std::int64_t count, const Bounds& bounds) override;
    void writeAborted() noexcept override;

private:
    // Writes sample `index` at `out` and returns the end of the text.
    using Formatter = char* (*)(char* out, const void* samples, std::size_t index);

    struct Column
    {
        const char* name; // in m_names
        Formatter formatter;
        std::size_t channel; // in the layout being written
        const void* samples; // of the block being written
    };

    // Some lines.
    struct Slice
    {
        Buffer<char> text;
        std::size_t size = 0; // bytes
    };

    TXTPointWriter() = default;

    // `decimals` is 0 or a number for a channel whose quantization gives none.
    static Formatter getWriter(const ChannelInfo& channel, int decimals);
    // Bytes that a line can take at most.
    std::size_t longestLine() const noexcept;
    void openOutput();
    void writeHeader();
    void startQueue();
    // Formats points [first, end) of the block.
    void formatLines(Slice& slice, std::size_t first, std::size_t end) const;
    void releaseFile();

    std::optional<std::string> m_path;    // none when the caller gave the IO
    std::optional<PartialFile> m_partial; // of the path, while writing
    StreamWriter m_stream;
    bool m_begun = false; // the output was opened and is not complete
    std::vector<std::string> m_names;
    std::vector<Column> m_columns; // those of m_names that the layout has
    bool m_leadingBlank = false;   // the first name has no column, so every line begins with a blank
    std::size_t m_sliceLines = 0;
    std::vector<Slice> m_slices;               // being formatted
    std::optional<OutputQueue<Slice>> m_queue; // its thread uses the stream
};

} // namespace Quillmoran
