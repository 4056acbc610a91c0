#include <vxunpack/Cloud.h>

#include "model/ChannelNames.h"
#include "sdk/Callbacks.h"
#include "sdk/GeneratedSource.h"
#include "sdk/Queries.h"
#include "srs/SpatialReference.h"
#include "utils/sets/CoordinateSystemFilter.h"
#include "utils/sets/Make.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

namespace vx {

using namespace Quillmoran;

namespace {

PointInfo layoutOf(const std::vector<Channel>& channels)
{
    PointInfo layout;
    for (const Channel& channel : channels) {
        if (!DataTypeUtils::isKnown(channel.type))
            QM_THROW(ErrorCode::InvalidArgument, "channel '%s' has no valid type", channel.name.c_str());
        if (layout.hasChannel(channel.name.c_str()))
            QM_THROW(ErrorCode::InvalidArgument, "there are two channels '%s'", channel.name.c_str());
        if (!(std::isfinite(channel.scale) && channel.scale >= 0))
            QM_THROW(ErrorCode::InvalidArgument, "the scale of channel '%s' is %g", channel.name.c_str(),
                     channel.scale);
        if (channel.bits < 0 || channel.bits > 8 * static_cast<int>(DataTypeUtils::getSize(channel.type)))
            QM_THROW(ErrorCode::InvalidArgument, "channel '%s' has %d bits", channel.name.c_str(),
                     channel.bits);
        ChannelInfo info;
        info.init(channel.name.c_str(), channel.type, channel.bits, channel.scale);
        layout.append(info);
    }
    return layout;
}

// The bits of a column of return numbers; 0 for other columns.
int bitsOf(const Column& column)
{
    const bool isReturn =
        column.channel.name == ChannelNames::returnNum || column.channel.name == ChannelNames::numReturns;
    if (!isReturn || column.channel.type != UINT8)
        return 0;
    constexpr int oldFormatBits = 3;
    unsigned all = 0;
    for (const std::uint8_t value : std::span(static_cast<const std::uint8_t*>(column.data), column.size))
        all |= value;
    return std::max(static_cast<int>(std::bit_width(all)), oldFormatBits);
}

Bounds::Range rangeOf(const Column& column)
{
    Bounds::Range range;
    for (const double value : std::span(static_cast<const double*>(column.data), column.size))
        range.grow(value);
    return range;
}

std::vector<Channel> channelsOf(const PointInfo& layout)
{
    std::vector<Channel> channels;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        channels.push_back(
            {channel.getName(), channel.getDataType(), channel.getQuantization(), channel.getBits()});
    }
    return channels;
}

// An iterator of a source, with a delegate that calls a function.
class ReportingIterator final : public PointIterator
{
public:
    ReportingIterator(const PointSource& source, const Bounds& bounds, double fraction,
                      const PointInfo& layout, std::function<bool(double)> progress)
        : m_progress(std::move(progress))
    {
        m_delegate.setTotal(source.getTotalWork(bounds, fraction));
        m_points.reset(source.createIterator(bounds, fraction, layout, &m_delegate));
    }
    std::size_t getNextPoints(PointData& buffer) override { return m_points->getNextPoints(buffer); }

private:
    const std::function<bool(double)> m_progress;
    const std::function<void(const std::string&)> m_noWarning;
    Callbacks m_delegate{m_progress, m_noWarning};
    Scoped<PointIterator> m_points;
};

} // namespace

Bounds toBounds(const Box& box)
{
    for (const auto& [min, max] :
         {std::pair(box.xMin, box.xMax), std::pair(box.yMin, box.yMax), std::pair(box.zMin, box.zMax)})
        if (!(min <= max))
            QM_THROW(ErrorCode::InvalidArgument, "the box is empty on one axis: %g to %g", min, max);
    Bounds bounds;
    bounds.x = {box.xMin, box.xMax};
    bounds.y = {box.yMin, box.yMax};
    bounds.z = {box.zMin, box.zMax};
    return bounds;
}

void checkFraction(double fraction)
{
    if (!(fraction > 0 && fraction <= 1))
        QM_THROW(ErrorCode::InvalidArgument, "the fraction is %g, it must be above 0 and at most 1",
                 fraction);
}

PointInfo chooseChannels(const PointInfo& all, const std::vector<std::string>& names)
{
    if (names.empty())
        return all;
    PointInfo layout;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z})
        layout.append(ChannelNames::require(name, all));
    for (const std::string& name : names) {
        const ChannelInfo& channel = ChannelNames::require(name, all);
        if (!layout.hasChannel(channel.getName()))
            layout.append(channel);
    }
    return layout;
}

const Channel* findChannel(const std::vector<Channel>& channels, const std::string& name)
{
    PointInfo layout;
    for (const Channel& channel : channels) {
        ChannelInfo info;
        info.init(channel.name.c_str(), channel.type, 0, channel.scale);
        layout.append(info);
    }
    const ChannelInfo* const found = ChannelNames::resolve(name, layout);
    return found ? &channels[static_cast<std::size_t>(layout.getChannelIndex(found->getName()))] : nullptr;
}

const void* Block::find(const std::string& channel, DataType type) const
{
    const ChannelInfo& info = ChannelNames::require(channel, *m_layout, "the block");
    if (info.getDataType() != type)
        QM_THROW(ErrorCode::ChannelType, "the samples of channel '%s' are %s, not %s", info.getName(),
                 DataTypeUtils::toString(info.getDataType()), DataTypeUtils::toString(type));
    return std::as_const(*m_data).getChannel(info.getName())->getData();
}

MutableBlock::MutableBlock(PointData& data, const PointInfo& layout, std::size_t size) noexcept
{
    m_data = &data;
    m_layout = &layout;
    m_size = size;
}

void* MutableBlock::samples(const std::string& channel) const
{
    return m_data->getChannel(ChannelNames::require(channel, *m_layout, "the block").getName())->getData();
}

Reader::Reader(Scoped<PointIterator> points, std::unique_ptr<PointInfo> layout)
    : m_points(std::move(points)), m_layout(std::move(layout)), m_data(std::make_unique<PointData>())
{
    constexpr std::size_t maxBlockPoints = 65536;
    m_data->init(*m_layout, m_layout->getBlockPoints(maxBlockPoints));
    m_block.m_data = m_data.get();
    m_block.m_layout = m_layout.get();
}

void Reader::advance()
{
    m_block.m_size = 0;
    m_block.m_size = m_points->getNextPoints(*m_data);
}

std::vector<Channel> Reader::channels() const
{
    return channelsOf(*m_layout);
}

std::size_t Reader::fill(std::span<void* const> arrays, std::size_t count)
{
    if (arrays.size() != m_layout->getNumChannels())
        QM_THROW(ErrorCode::InvalidArgument, "%zu arrays for %zu channels", arrays.size(),
                 m_layout->getNumChannels());
    if (count == 0)
        return 0;
    PointData block;
    block.wrap(*m_layout, arrays.data(), count);
    return m_points->getNextPoints(block);
}

Cloud::Cloud(Scoped<PointSource> source) : m_source(std::move(source))
{
    if (!m_source)
        QM_THROW(ErrorCode::InvalidArgument, "a cloud needs a source");
}

Cloud::Cloud(Scoped<PointSource> source, Scoped<FilePointSourceManager> files) : Cloud(std::move(source))
{
    m_files = std::move(files);
}

Cloud Cloud::fromColumns(std::vector<Column> columns)
{
    std::vector<Channel> channels;
    Bounds bounds;
    for (const Column& column : columns) {
        channels.push_back(column.channel);
        if (column.channel.bits == 0)
            channels.back().bits = bitsOf(column);
        if (column.size != columns.front().size)
            QM_THROW(ErrorCode::InvalidArgument, "channel '%s' has %zu samples and '%s' has %zu",
                     column.channel.name.c_str(), column.size, columns.front().channel.name.c_str(),
                     columns.front().size);
        if (column.channel.type != FLOAT64)
            continue;
        if (column.channel.name == ChannelNames::x)
            bounds.x = rangeOf(column);
        else if (column.channel.name == ChannelNames::y)
            bounds.y = rangeOf(column);
        else if (column.channel.name == ChannelNames::z)
            bounds.z = rangeOf(column);
    }
    const std::size_t numPoints = columns.empty() ? 0 : columns.front().size;
    const auto fill = [columns = std::move(columns)](std::uint64_t first, const MutableBlock& block) {
        for (const Column& column : columns) {
            const std::size_t sampleSize = DataTypeUtils::getSize(column.channel.type);
            std::memcpy(block.samples(column.channel.name),
                        static_cast<const unsigned char*>(column.data) + first * sampleSize,
                        block.size() * sampleSize);
        }
    };
    return Cloud(
        Scoped<PointSource>(GeneratedSource::create(layoutOf(channels), numPoints, bounds, fill, true)));
}

Cloud Cloud::generate(std::uint64_t numPoints, const std::vector<Channel>& channels,
                      std::function<void(std::uint64_t, const MutableBlock&)> fill, const Box& bounds)
{
    return generate(numPoints, channels, std::move(fill), bounds, false);
}

Cloud Cloud::generate(std::uint64_t numPoints, const std::vector<Channel>& channels,
                      std::function<void(std::uint64_t, const MutableBlock&)> fill, const Box& bounds,
                      bool inAnyOrder)
{
    if (!fill)
        QM_THROW(ErrorCode::InvalidArgument, "the function that makes the points is empty");
    return Cloud(Scoped<PointSource>(GeneratedSource::create(layoutOf(channels), numPoints, toBounds(bounds),
                                                             std::move(fill), inAnyOrder)));
}

std::optional<std::uint64_t> Cloud::numPoints() const
{
    const std::int64_t count = m_source->getNumPoints();
    if (count == PointSource::unknownNumPoints)
        return std::nullopt;
    return static_cast<std::uint64_t>(count);
}

Box Cloud::bounds() const
{
    const Bounds& bounds = m_source->getBounds();
    return {bounds.x.min, bounds.x.max, bounds.y.min, bounds.y.max, bounds.z.min, bounds.z.max};
}

std::vector<Channel> Cloud::channels() const
{
    return channelsOf(m_source->getPointInfo());
}

std::string Cloud::coordinateSystem() const
{
    const char* const wkt = m_source->getWKT();
    return wkt ? wkt : "";
}

Metadata Cloud::metadata() const
{
    Metadata records;
    m_source->loadMetadata(records, false);
    return records;
}

Reader Cloud::read(const Query& query) const
{
    return read(query, {});
}

Reader Cloud::read(const Query& query, std::function<bool(double)> progress) const
{
    checkFraction(query.fraction);
    auto layout = std::make_unique<PointInfo>(chooseChannels(m_source->getPointInfo(), query.channels));
    const Bounds bounds = toBounds(query.box);
    Scoped<PointIterator> points(
        progress ? new ReportingIterator(*m_source, bounds, query.fraction, *layout, std::move(progress))
                 : m_source->createIterator(bounds, query.fraction, *layout, nullptr));
    return Reader(std::move(points), std::move(layout));
}

Cloud Cloud::withCoordinateSystem(const std::string& system) const
{
    const std::optional<std::string> wkt = SpatialReference::fromUserInput(system.c_str());
    if (!wkt)
        QM_THROW(ErrorCode::InvalidArgument, "the coordinate system '%.200s' is not understood",
                 system.c_str());
    Cloud cloud(make<CoordinateSystemFilter, PointSource>(m_source.get(), *wkt));
    cloud.m_files = m_files;
    return cloud;
}

} // namespace vx
