#include <vxunpack/TXTPointWriter.h>

#include "model/NameIndex.h"
#include "platform/ParallelLoop.h"
#include "text/FieldFormat.h"
#include "text/NumberFormat.h"
#include "text/Printable.h"
#include "text/TextDecimals.h"
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBufferSize = 4096;
// What a slice of lines may take at most, and how many lines are worth a task.
constexpr std::size_t mostSliceBytes = std::size_t{2} << 20;
constexpr std::size_t mostSliceLines = 2048;
constexpr std::size_t numSlices = 8; // formatted at a time
// The text of a whole block can wait, so that the next block is decoded while it is written.
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

// How many decimals a step of 1, 0.1, 0.01 and so on needs, at least 1; 0 for any other step and for more
// than `maximum`. The tenths come from repeated division and the tolerance shrinks with them, so that far
// down only the very double that the division arrives at is recognised.
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

} // namespace

TXTPointWriter* TXTPointWriter::create()
{
    return new TXTPointWriter;
}

void TXTPointWriter::init(PointSource* source, IO* io, const PointInfo& fields)
{
    PointWriter::init(source);
    std::vector<std::string> names;
    const NameIndex known(source->getPointInfo());
    for (std::size_t i = 0; i < fields.getNumChannels(); ++i) {
        const char* name = fields.getChannel(i).getName();
        if (known.find(name))
            names.emplace_back(name);
    }
    m_names = std::move(names);
    m_path.reset();
    m_stream.init(io, false, streamBufferSize);
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
    m_path = path;
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

TXTPointWriter::Formatter TXTPointWriter::getWriter(const ChannelInfo& channel, int decimals)
{
    switch (channel.getDataType()) {
    case UINT8:
        return writeInteger<std::uint8_t>;
    case SINT8:
        return writeInteger<std::int8_t>;
    case UINT16:
        return writeInteger<std::uint16_t>;
    case SINT16:
        return writeInteger<std::int16_t>;
    case UINT32:
        return writeInteger<std::uint32_t>;
    case SINT32:
        return writeInteger<std::int32_t>;
    case UINT64:
        return writeInteger<std::uint64_t>;
    case SINT64:
        return writeInteger<std::int64_t>;
    case FLOAT32: {
        // Decimals come in threes: 1 to 3 of them are written as 3, 4 to 6 as 6.
        constexpr Formatter writers[] = {writeGeneral<float, 9>, writeFixed<float, 3>, writeFixed<float, 6>};
        const int ofStep = countDecimals(static_cast<float>(channel.getQuantization()), 6);
        return writers[((ofStep == 0 && decimals <= 6 ? decimals : ofStep) + 2) / 3];
    }
    case FLOAT64: {
        constexpr Formatter writers[] = {writeGeneral<double, 18>, writeFixed<double, 3>,
                                         writeFixed<double, 6>,    writeFixed<double, 9>,
                                         writeFixed<double, 12>,   writeFixed<double, 15>};
        const int ofStep = countDecimals(channel.getQuantization(), 15);
        return writers[((ofStep == 0 ? decimals : ofStep) + 2) / 3];
    }
    case INVALID:
        break;
    }
    QM_THROW(ErrorCode::TextField);
}

void TXTPointWriter::writeBegin(const PointInfo& layout)
{
    m_columns.clear();
    const NameIndex channels(layout);
    const std::map<std::string, int> decimalsOf = TextDecimals::read(getMetadata());
    for (const std::string& name : m_names)
        if (const auto channel = channels.find(name.c_str())) {
            const auto known = decimalsOf.find(name);
            const int decimals = known == decimalsOf.end() ? 0 : known->second;
            m_columns.push_back(
                {name.c_str(), getWriter(layout.getChannel(*channel), decimals), *channel, nullptr});
        }
    m_leadingBlank = !m_names.empty() && !layout.hasChannel(m_names.front().c_str());

    openOutput();
    writeHeader();
    startQueue();
}

void TXTPointWriter::startQueue()
{
    m_sliceLines = std::clamp<std::size_t>(mostSliceBytes / longestLine(), 1, mostSliceLines);
    m_queue.emplace(
        [this](const Slice& slice) {
            if (m_stream.write(slice.text.get(), slice.size) != slice.size)
                QM_THROW(ErrorCode::Write, "write error");
        },
        numSlices + numWaitingSlices);
}

void TXTPointWriter::openOutput()
{
    if (m_path) {
        m_partial.emplace(m_path->c_str());
        m_stream.init(m_partial->io(), false, streamBufferSize);
    }
    m_stream.open(streamBufferSize);
    m_begun = true;
}

std::size_t TXTPointWriter::longestLine() const noexcept
{
    return m_columns.size() * (maxFieldLength + 1) + 1;
}

void TXTPointWriter::writeHeader()
{
    std::string header = "#";
    for (const Column& column : m_columns) {
        header += ' ';
        header += printable(column.name); // one line, and nothing that a terminal obeys
    }
    header += '\n';
    if (!m_stream.put_str(header.data(), header.size()))
        QM_THROW(ErrorCode::Write, "write error");
}

void TXTPointWriter::writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate)
{
    if (delegate) {
        delegate->updateCompleted(0, activity);
        if (delegate->getCancelled())
            QM_THROW(ErrorCode::Cancelled, "TXT Write operation cancelled.");
    }
    for (Column& column : m_columns)
        column.samples = block.getChannel(column.channel).getData();
    for (std::size_t first = 0; first < count; first += numSlices * m_sliceLines) {
        const std::size_t left = count - first;
        m_slices.resize(std::min(numSlices, (left + m_sliceLines - 1) / m_sliceLines));
        for (Slice& slice : m_slices)
            slice = m_queue->take();
        parallelLoop(m_slices.size(), [&](std::size_t i) {
            const std::size_t begin = first + i * m_sliceLines;
            formatLines(m_slices[i], begin, std::min(begin + m_sliceLines, count));
        });
        for (Slice& slice : m_slices)
            m_queue->put(std::move(slice));
    }
    if (delegate)
        delegate->updateCompleted(static_cast<double>(count), activity);
}

void TXTPointWriter::formatLines(Slice& slice, std::size_t first, std::size_t end) const
{
    if (!slice.text)
        slice.text = makeBuffer<char>(m_sliceLines * longestLine());
    const bool leadingBlank = m_leadingBlank;
    char* out = slice.text.get();
    for (std::size_t point = first; point < end; ++point) {
        bool blank = leadingBlank;
        for (const Column& column : m_columns) {
            *out = ' ';
            out = column.formatter(out + blank, column.samples, point);
            blank = true;
        }
        *out++ = '\n';
    }
    slice.size = static_cast<std::size_t>(out - slice.text.get());
}

void TXTPointWriter::writeEnd(std::int64_t count, const Bounds& bounds)
{
    const bool nothing = count == 0 && bounds == Bounds::Huge();
    if (nothing)
        m_stream.getIO()->unlink();
    else
        m_queue->finish();
    m_queue.reset();
    m_stream.close(!nothing);
    if (m_partial && nothing)
        m_partial->finishWithoutFile();
    else if (m_partial)
        m_partial->finish();
    m_begun = false;
    m_slices.clear();
    releaseFile();
}

void TXTPointWriter::writeAborted() noexcept
{
    m_queue.reset();
    m_slices.clear();
    // What was never opened is untouched; a file that was there before is not ours to remove.
    try {
        if (std::exchange(m_begun, false)) {
            m_stream.getIO()->unlink();
            m_stream.close(false);
        }
    } catch (...) {
        // The failure that brought us here is the one to report.
    }
    releaseFile();
}

void TXTPointWriter::releaseFile()
{
    if (m_path)
        m_stream.init(nullptr, false, streamBufferSize);
    m_partial.reset();
}

} // namespace Quillmoran
