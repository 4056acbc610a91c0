#include <vxunpack/TXTPointWriter.h>

#include "files/OutputFile.h"
#include "model/NameIndex.h"
#include "platform/ParallelLoop.h"
#include "platform/Stream.h"
#include "text/FieldFormat.h"
#include "text/NumberFormat.h"
#include "text/Printable.h"
#include "text/TextDecimals.h"
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBufferSize = 4096;
constexpr std::size_t maxSliceBytes = std::size_t{2} << 20;
constexpr std::size_t maxSliceLines = 2048;
constexpr std::size_t numSlices = 8; // formatted at a time
// The text of a whole block fits into the queue, so that it is written while the next block is decoded.
constexpr std::size_t numWaitingSlices = 12;
constexpr const char* activity = "writing text file";

template <class T>
char* writeInteger(char* out, const void* samples, std::size_t index)
{
    const T value = static_cast<const T*>(samples)[index];
    if constexpr (std::is_signed_v<T>)
        return formatSigned(out, value);
    else
        return formatUnsigned(out, value);
}

template <class T, int decimals>
char* writeFixed(char* out, const void* samples, std::size_t index)
{
    return formatFixed(out, static_cast<double>(static_cast<const T*>(samples)[index]), decimals);
}

template <class T, int precision>
char* writeGeneral(char* out, const void* samples, std::size_t index)
{
    return formatGeneral(out, static_cast<double>(static_cast<const T*>(samples)[index]), precision);
}

// The number of decimals of a step of 1, 0.1, 0.01 and so on, at least 1; 0 for any other step and for more
// than `maximum`. The tenths are found by repeated division, and the tolerance shrinks with them: a very
// small step is recognised only if it equals the result of the division.
template <class Real>
int countDecimals(Real step, int maximum)
{
    if (std::fabs(step - 1) < 0.001)
        return 1;
    if (!(step > 0 && step <= 1))
        return 0;
    double tenth = 0.1;
    for (int decimals = 1; decimals <= maximum; ++decimals, tenth /= 10) {
        const Real candidate = static_cast<Real>(tenth);
        if (candidate < step)
            return 0;
        if (std::fabs(step / candidate - 1) < candidate / 1000)
            return decimals;
    }
    return 0;
}

// Writes sample `index` to `out` and returns the end of the text.
using Formatter = char* (*)(char* out, const void* samples, std::size_t index);

// `decimals` is used for a channel whose quantization gives none; 0 if unknown.
Formatter getWriter(const ChannelInfo& channel, int decimals)
{
    Formatter formatter = nullptr;
    visitDataType(channel.getDataType(), [&](auto sample) {
        using T = decltype(sample);
        if constexpr (std::is_integral_v<T>) {
            formatter = writeInteger<T>;
        } else {
            // Decimals come in threes: 1 to 3 of them are written as 3, 4 to 6 as 6.
            constexpr int maximum = sizeof(T) == sizeof(double) ? 15 : 6;
            constexpr int digits = sizeof(T) == sizeof(double) ? 18 : 9;
            constexpr Formatter writers[] = {writeGeneral<T, digits>, writeFixed<T, 3>,  writeFixed<T, 6>,
                                             writeFixed<T, 9>,        writeFixed<T, 12>, writeFixed<T, 15>};
            const int ofStep = countDecimals(static_cast<T>(channel.getQuantization()), maximum);
            formatter = writers[((ofStep == 0 && decimals <= maximum ? decimals : ofStep) + 2) / 3];
        }
    });
    if (!formatter)
        QM_THROW(ErrorCode::TextField);
    return formatter;
}

} // namespace

struct TXTPointWriter::Private
{
    struct Column
    {
        const char* name; // in `names`
        Formatter formatter;
        std::size_t channel; // in the layout being written
        const void* samples; // of the block being written
    };

    void chooseColumns(const PointInfo& layout, const Metadata& metadata);
    std::string header() const;
    // The maximum length of a line, in bytes.
    std::size_t maxLineLength() const noexcept { return columns.size() * (maxFieldLength + 1) + 1; }
    // Formats points [first, end) of the block.
    void formatLines(OutputFile::Slice& slice, std::size_t first, std::size_t end) const;

    OutputFile output{"TXT", OutputFile::SEQUENTIAL};
    std::optional<StreamWriter> stream; // of the open output; the queue's thread uses it
    std::vector<std::string> names;
    std::vector<Column> columns; // the names that the layout has
    bool leadingBlank = false;   // the first name has no column, so every line begins with a blank
    std::size_t sliceLines = 0;
    std::vector<OutputFile::Slice> slices; // being formatted
};

TXTPointWriter::TXTPointWriter() : m_private(std::make_unique<Private>())
{}

TXTPointWriter::~TXTPointWriter() = default;

TXTPointWriter* TXTPointWriter::create()
{
    return new TXTPointWriter;
}

void TXTPointWriter::init(PointSource* source, IO* io, const PointInfo& fields)
{
    PointWriter::init(source);
    m_private->names.clear();
    const NameIndex known(source->getPointInfo());
    for (std::size_t i = 0; i < fields.getNumChannels(); ++i) {
        const char* name = fields.getChannel(i).getName();
        if (known.find(name))
            m_private->names.emplace_back(name);
    }
    m_private->output.init(io);
}

void TXTPointWriter::init(PointSource* source, IO* io, const char* format)
{
    PointInfo fields;
    FieldFormat::parse(format, fields);
    init(source, io, fields);
}

void TXTPointWriter::init(PointSource* source, const char* path, const PointInfo& fields)
{
    init(source, static_cast<IO*>(nullptr), fields);
    m_private->output.init(path);
}

void TXTPointWriter::init(PointSource* source, const char* path, const char* format)
{
    PointInfo fields;
    FieldFormat::parse(format, fields);
    init(source, path, fields);
}

bool TXTPointWriter::supportedChannels(const PointInfo& wanted, PointInfo& supported) const
{
    supported.init(wanted);
    return true;
}

void TXTPointWriter::Private::chooseColumns(const PointInfo& layout, const Metadata& metadata)
{
    columns.clear();
    const NameIndex channels(layout);
    const std::map<std::string, int> decimalsOf = TextDecimals::read(metadata);
    for (const std::string& name : names)
        if (const auto channel = channels.find(name.c_str())) {
            const auto known = decimalsOf.find(name);
            const int decimals = known == decimalsOf.end() ? 0 : known->second;
            columns.push_back(
                {name.c_str(), getWriter(layout.getChannel(*channel), decimals), *channel, nullptr});
        }
    leadingBlank = !names.empty() && !layout.hasChannel(names.front().c_str());
    sliceLines = std::clamp<std::size_t>(maxSliceBytes / maxLineLength(), 1, maxSliceLines);
}

std::string TXTPointWriter::Private::header() const
{
    std::string header = "#";
    for (const Column& column : columns) {
        header += ' ';
        header += printable(column.name); // one line, without control characters
    }
    return header + '\n';
}

void TXTPointWriter::writeBegin(const PointInfo& layout)
{
    Private& state = *m_private;
    state.chooseColumns(layout, getMetadata());
    IO& io = state.output.open();
    const auto write = [&state](const void* bytes, std::size_t size) {
        if (state.stream->write(bytes, size) != size)
            QM_THROW(ErrorCode::Write, "write error");
    };
    state.stream.emplace();
    state.stream->init(&io, true, streamBufferSize);
    const std::string header = state.header();
    write(header.data(), header.size());
    state.output.startQueue([write](const OutputFile::Slice& slice) { write(slice.bytes.get(), slice.size); },
                            numSlices + numWaitingSlices);
}

void TXTPointWriter::writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate)
{
    Private& state = *m_private;
    state.output.checkCancelled(delegate, activity);
    for (Private::Column& column : state.columns)
        column.samples = block.getChannel(column.channel).getData();
    for (std::size_t first = 0; first < count; first += numSlices * state.sliceLines) {
        const std::size_t left = count - first;
        state.slices.resize(std::min(numSlices, (left + state.sliceLines - 1) / state.sliceLines));
        for (OutputFile::Slice& slice : state.slices)
            slice = state.output.queue().take();
        parallelLoop(state.slices.size(), [&](std::size_t i) {
            const std::size_t begin = first + i * state.sliceLines;
            state.formatLines(state.slices[i], begin, std::min(begin + state.sliceLines, count));
        });
        for (OutputFile::Slice& slice : state.slices)
            state.output.queue().put(std::move(slice));
    }
    if (delegate)
        delegate->updateCompleted(static_cast<double>(count), activity);
}

void TXTPointWriter::Private::formatLines(OutputFile::Slice& slice, std::size_t first, std::size_t end) const
{
    slice.reserve(sliceLines * maxLineLength());
    const bool leads = leadingBlank;
    char* const text = reinterpret_cast<char*>(slice.bytes.get());
    char* out = text;
    for (std::size_t point = first; point < end; ++point) {
        bool blank = leads;
        for (const Column& column : columns) {
            *out = ' ';
            out = column.formatter(out + blank, column.samples, point);
            blank = true;
        }
        *out++ = '\n';
    }
    slice.size = static_cast<std::size_t>(out - text);
}

void TXTPointWriter::writeEnd(std::int64_t, const Bounds&)
{
    Private& state = *m_private;
    state.output.finishQueue();
    state.stream->close(true);
    state.output.commit();
    writeAborted(); // releases the memory
}

void TXTPointWriter::writeAborted() noexcept
{
    m_private->output.abort();
    m_private->stream.reset();
    m_private->slices.clear();
}

} // namespace Quillmoran
