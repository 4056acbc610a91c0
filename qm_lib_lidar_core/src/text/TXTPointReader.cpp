#include <vxunpack/TXTPointReader.h>

#include "model/ChannelNames.h"
#include "platform/Stream.h"
#include "text/FieldFormat.h"
#include "text/LineReader.h"
#include "text/TXTPointIterator.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::size_t scanBlockSize = 4096; // points
constexpr std::size_t sampleSize = 4096;    // bytes, to estimate the length of lines

PointInfo parseGivenFormat(const char* format)
{
    if (!format || *format == '\0')
        QM_THROW(ErrorCode::InvalidArgument, "format string not given");
    PointInfo layout;
    FieldFormat::parse(format, layout);
    return layout;
}

PointInfo withoutSkipped(const PointInfo& fileLayout)
{
    PointInfo layout;
    for (std::size_t i = 0; i < fileLayout.getNumChannels(); ++i)
        if (!fileLayout.getChannel(i).isNamed(ChannelNames::skip))
            layout.append(fileLayout.getChannel(i));
    return layout;
}

// Passes on cancellation but no progress, since the scan for bounds is not part of a total.
class Cancellation final : public ProgressDelegate
{
public:
    explicit Cancellation(ProgressDelegate* delegate) : m_delegate(delegate) {}

    void reportProgress(double, const char*) override {}
    bool getCancelled() override { return m_delegate && m_delegate->getCancelled(); }

private:
    ProgressDelegate* m_delegate;
};

} // namespace

TXTPointReader* TXTPointReader::create()
{
    return new TXTPointReader;
}

void TXTPointReader::init(IO* io, const std::string& name, const TextOptions& options)
{
    if (!io)
        QM_THROW(ErrorCode::InvalidArgument, "io is NULL");
    const Extent extent = options.scanNow ? scan(io, name, options) : estimate(io);
    TextOptions kept = options;
    std::string keptName = name;
    setPointInfo(withoutSkipped(options.layout));
    setQuantization(nullptr, nullptr);
    setWKT(nullptr);
    m_io = Scoped<IO>::retained(io);
    m_options = std::move(kept);
    m_name = std::move(keptName);
    m_extent = extent;
}

void TXTPointReader::init(const char* path, const TextOptions& options)
{
    const Scoped<FileIO::Imp> io(FileIO::create());
    io->init(path, "r");
    init(io.get(), std::string(path), options);
}

void TXTPointReader::init(IO* io, const PointInfo& layout, std::size_t skipLines, bool scanNow)
{
    TextOptions options;
    options.layout = layout;
    options.skipLines = skipLines;
    options.scanNow = scanNow;
    init(io, std::string(), options);
}

void TXTPointReader::init(const char* path, const PointInfo& layout, std::size_t skipLines, bool scanNow)
{
    const Scoped<FileIO::Imp> io(FileIO::create());
    io->init(path, "r");
    init(io.get(), layout, skipLines, scanNow);
}

void TXTPointReader::init(IO* io, const char* format, std::size_t skipLines, bool scanNow)
{
    init(io, parseGivenFormat(format), skipLines, scanNow);
}

void TXTPointReader::init(const char* path, const char* format, std::size_t skipLines, bool scanNow)
{
    init(path, parseGivenFormat(format), skipLines, scanNow);
}

std::optional<PointInfo> TXTPointReader::readHeader(const char* path, std::size_t skipLines)
{
    const Scoped<FileIO::Imp> io(FileIO::create());
    io->init(path, "r");
    return readHeader(io.get(), path, skipLines);
}

std::optional<PointInfo> TXTPointReader::readHeader(IO* io, const std::string& name, std::size_t skipLines)
{
    LineReader lines;
    lines.init(io, name, nullptr);
    for (std::size_t i = 0; i <= skipLines; ++i)
        if (!lines.next())
            return std::nullopt;
    PointInfo layout;
    if (!FieldFormat::parseHeader(lines.line(), layout))
        return std::nullopt;
    return layout;
}

void TXTPointReader::parseFormat(const char* format, PointInfo& out)
{
    FieldFormat::parse(format, out);
}

void TXTPointReader::parseFormat(const char* format, PointInfo& out, const PointInfo& known)
{
    FieldFormat::parse(format, out, known);
}

void TXTPointReader::parseQuantization(const char* text, PointInfo& layout)
{
    FieldFormat::parseQuantization(text, layout);
}

TXTPointReader::Extent TXTPointReader::scan(IO* io, const std::string& name, const TextOptions& options)
{
    if (!io)
        QM_THROW(ErrorCode::InvalidArgument, "io is NULL");
    if (!options.layout.hasValidXYZ())
        QM_THROW(ErrorCode::InvalidArgument, "must have x, y, and z channels");
    const char* const names[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    // Strict mode reads all columns, so that the scan rejects what a later query would reject.
    PointInfo wanted;
    if (options.strict)
        wanted = withoutSkipped(options.layout);
    else
        wanted.init(options.layout, names, std::size(names));
    Cancellation cancellation(options.cancellation);
    const Scoped<TXTPointIterator> iterator(TXTPointIterator::create());
    iterator->init(io, name, options, Bounds::Huge(), 1.0, wanted, &cancellation);

    PointData block;
    block.init(wanted, wanted.getBlockPoints(scanBlockSize));
    Extent extent{0, Bounds(), 0};
    while (const std::size_t count = iterator->getNextPoints(block)) {
        extent.numPoints += static_cast<std::int64_t>(count);
        for (std::size_t i = 0; i < count; ++i) {
            extent.bounds.x.grow(block.getX()[i]);
            extent.bounds.y.grow(block.getY()[i]);
            extent.bounds.z.grow(block.getZ()[i]);
        }
    }
    extent.lines = static_cast<double>(iterator->getNumLines());
    return extent;
}

TXTPointReader::Extent TXTPointReader::estimate(IO* io)
{
    StreamReader stream;
    stream.init(io, true, sampleSize);
    char sample[sampleSize];
    const std::size_t length = stream.read(sample, sampleSize);
    const auto lines = static_cast<double>(std::count(sample, sample + length, '\n'));
    const auto size = static_cast<double>(io->size());
    Extent extent;
    extent.lines = length == 0 ? 0 : std::max(lines, 1.0) * size / static_cast<double>(length);
    stream.close();
    return extent;
}

void TXTPointReader::initBoundsAndNumPoints() const
{
    if (m_extent.numPoints == unknownNumPoints)
        m_extent = scan(m_io.get(), m_name, m_options);
}

const Bounds& TXTPointReader::getBounds() const
{
    initBoundsAndNumPoints();
    return m_extent.bounds;
}

double TXTPointReader::getTotalWork(const Bounds&, double) const
{
    return m_extent.lines;
}

PointIterator* TXTPointReader::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                              ProgressDelegate* delegate) const
{
    if (!m_io)
        QM_THROW(ErrorCode::InvalidArgument, "io is NULL");
    Scoped<TXTPointIterator> iterator(TXTPointIterator::create());
    iterator->init(m_io.get(), m_name, m_options, bounds, fraction, layout, delegate);
    return iterator.detach();
}

PointIterator* TXTPointReader::createSampleIterator(double position, const PointInfo& layout) const
{
    Scoped<TXTPointIterator> iterator(
        static_cast<TXTPointIterator*>(createIterator(Bounds::Huge(), 1.0, layout, nullptr)));
    iterator->seek(static_cast<std::int64_t>(position * static_cast<double>(m_io->size())));
    return iterator.detach();
}

} // namespace Quillmoran
