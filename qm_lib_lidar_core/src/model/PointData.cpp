#include <vxunpack/PointData.h>

#include "model/ChannelNames.h"
#include "model/SampleConversion.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Quillmoran {

namespace {

bool fits(std::size_t index, std::size_t count, std::size_t size) noexcept
{
    return count <= size && index <= size - count;
}

void checkRange(std::size_t index, std::size_t count, const ChannelData& channel, const char* side)
{
    if (!fits(index, count, channel.getNumSamples()))
        QM_THROW(ErrorCode::InvalidArgument, "%s too small", side);
}

void* sample(ChannelData& channel, std::size_t index) noexcept
{
    return static_cast<unsigned char*>(channel.getData()) +
           index * DataTypeUtils::getSize(channel.getDataType());
}

const void* sample(const ChannelData& channel, std::size_t index) noexcept
{
    return static_cast<const unsigned char*>(channel.getData()) +
           index * DataTypeUtils::getSize(channel.getDataType());
}

void copySamples(ChannelData& dst, std::size_t dstIndex, const ChannelData& src, std::size_t srcIndex,
                 std::size_t count) noexcept
{
    const std::size_t bytes = count * DataTypeUtils::getSize(src.getDataType());
    if (bytes != 0)
        std::memmove(sample(dst, dstIndex), sample(src, srcIndex), bytes);
}

} // namespace

void ChannelData::freeData() noexcept
{
    if (m_ownsData)
        XDEALLOC(m_data);
}

void ChannelData::init(const ChannelInfo& info, std::size_t count)
{
    ChannelInfo::init(info);
    resize(count);
}

void ChannelData::wrap(const ChannelInfo& info, void* data, std::size_t count)
{
    ChannelInfo::init(info);
    setData(data, false);
    m_numSamples = count;
    m_offset = 0;
}

void ChannelData::resize(std::size_t count)
{
    freeData();
    m_data = nullptr;
    m_ownsData = false;
    m_numSamples = m_offset = 0;
    const std::size_t size = DataTypeUtils::getSize(getDataType());
    if (count != 0 && size != 0)
        m_data = allocateArray(count, size);
    m_ownsData = m_data != nullptr;
    m_numSamples = count;
}

void ChannelData::setData(void* data, bool owns)
{
    freeData();
    m_data = data;
    m_ownsData = owns;
}

void ChannelData::setOffset(std::size_t offset)
{
    if (offset >= m_numSamples)
        QM_THROW(ErrorCode::InvalidArgument, "offset too large");
    m_offset = offset;
}

const void* ChannelData::getData() const noexcept
{
    return static_cast<const unsigned char*>(m_data) + m_offset * DataTypeUtils::getSize(getDataType());
}

void* ChannelData::getData() noexcept
{
    return const_cast<void*>(std::as_const(*this).getData());
}

void ChannelData::copy(ChannelData& dst, std::size_t dstIndex, const ChannelData& src, std::size_t srcIndex,
                       std::size_t count)
{
    checkRange(dstIndex, count, dst, "dst");
    checkRange(srcIndex, count, src, "dst"); // this word for both sides: users match on the text
    if (dst.getDataType() != src.getDataType())
        QM_THROW(ErrorCode::InvalidArgument, "datatype are not the same");
    copySamples(dst, dstIndex, src, srcIndex, count);
}

void ChannelData::convert(ChannelData& dst, std::size_t dstIndex, const ChannelData& src,
                          std::size_t srcIndex, std::size_t count)
{
    checkRange(dstIndex, count, dst, "dst");
    checkRange(srcIndex, count, src, "src");
    if (DataTypeUtils::isFloat(dst.getDataType()) != DataTypeUtils::isFloat(src.getDataType()))
        QM_THROW(ErrorCode::InvalidArgument, "isFloat(dst) != isFloat(src)");
    if (dst.getDataType() == src.getDataType())
        copySamples(dst, dstIndex, src, srcIndex, count);
    else
        SampleConversion::convert(sample(dst, dstIndex), dst.getDataType(), sample(src, srcIndex),
                                  src.getDataType(), count);
}

void ChannelData::convert(ChannelData& dst, std::size_t dstIndex, const ChannelData& src,
                          std::size_t srcIndex, double offset, double scale, std::size_t count)
{
    checkRange(dstIndex, count, dst, "dst");
    checkRange(srcIndex, count, src, "dst");
    if (DataTypeUtils::isFloat(dst.getDataType()) == DataTypeUtils::isFloat(src.getDataType()))
        QM_THROW(ErrorCode::InvalidArgument, "isFloat(dst) == isFloat(src)");
    const auto convertSamples =
        DataTypeUtils::isFloat(dst.getDataType()) ? SampleConversion::dequantize : SampleConversion::quantize;
    convertSamples(sample(dst, dstIndex), dst.getDataType(), sample(src, srcIndex), src.getDataType(), offset,
                   scale, count);
}

void PointData::reset(const PointInfo& info)
{
    m_channels.clear();
    m_numSamples = m_offset = 0;
    m_x = m_y = m_z = nullptr;
    if (!info.hasValidXYZ())
        QM_THROW(ErrorCode::InvalidArgument, "must have x, y, and z channels");
}

void PointData::init(const PointInfo& info, std::size_t count)
{
    reset(info);
    std::vector<ChannelData> channels(info.getNumChannels());
    for (std::size_t i = 0; i < channels.size(); ++i)
        channels[i].init(info.getChannel(i), count);
    m_channels = std::move(channels);
    m_numSamples = count;
    cacheCoordinates();
}

void PointData::wrap(const PointInfo& info, void* const* arrays, std::size_t count)
{
    reset(info);
    m_channels = std::vector<ChannelData>(info.getNumChannels());
    for (std::size_t i = 0; i < m_channels.size(); ++i)
        m_channels[i].wrap(info.getChannel(i), arrays[i], count);
    m_numSamples = count;
    cacheCoordinates();
}

void PointData::resize(std::size_t count)
{
    for (ChannelData& channel : m_channels)
        channel.resize(count);
    m_numSamples = count;
    m_offset = 0;
    cacheCoordinates();
}

void PointData::cacheCoordinates() noexcept
{
    const auto samples = [this](const char* name) {
        ChannelData* channel = getChannel(name);
        return channel ? static_cast<double*>(channel->getData()) : nullptr;
    };
    m_x = samples(ChannelNames::x);
    m_y = samples(ChannelNames::y);
    m_z = samples(ChannelNames::z);
}

void PointData::setOffset(std::size_t offset)
{
    for (ChannelData& channel : m_channels)
        channel.setOffset(offset);
    m_offset = offset;
}

const ChannelData& PointData::getChannel(std::size_t index) const
{
    if (index >= m_channels.size())
        QM_THROW(ErrorCode::NoSuchChannel, "bad channel index");
    return m_channels[index];
}

ChannelData& PointData::getChannel(std::size_t index)
{
    return const_cast<ChannelData&>(std::as_const(*this).getChannel(index));
}

const ChannelData* PointData::getChannel(const char* name) const noexcept
{
    const auto found = std::find_if(m_channels.begin(), m_channels.end(),
                                    [name](const ChannelData& channel) { return channel.isNamed(name); });
    return found == m_channels.end() ? nullptr : &*found;
}

ChannelData* PointData::getChannel(const char* name) noexcept
{
    return const_cast<ChannelData*>(std::as_const(*this).getChannel(name));
}

void PointData::copy(PointData& dst, std::size_t dstIndex, const PointData& src, std::size_t srcIndex,
                     std::size_t count)
{
    if (dst.getNumChannels() != src.getNumChannels())
        QM_THROW(ErrorCode::InvalidArgument, "number of channels must the same");
    for (std::size_t i = 0; i < dst.m_channels.size(); ++i)
        ChannelData::copy(dst.m_channels[i], dstIndex, src.m_channels[i], srcIndex, count);
}

void PointData::merge(PointData& dst, std::size_t seen, const PointData& src, std::size_t count)
{
    if (dst.getNumChannels() != src.getNumChannels())
        QM_THROW(ErrorCode::InvalidArgument, "number of channels must the same");
    const std::size_t capacity = dst.getNumSamples();
    std::size_t filled = 0;
    if (capacity > seen) {
        filled = std::min(count, capacity - seen);
        for (std::size_t i = 0; i < dst.m_channels.size(); ++i)
            ChannelData::copy(dst.m_channels[i], seen, src.m_channels[i], 0, filled);
        seen += filled;
        count -= filled;
    }
    if (count == 0)
        return;

    // After this batch one point in `step` of all offered points is held; `kept` of them come from the batch.
    const double before = static_cast<double>(seen);
    const double offered = static_cast<double>(count);
    const double slots = static_cast<double>(capacity);
    const double available = static_cast<double>(std::min(count, src.getNumSamples()));
    const double step = (before + offered) / slots;
    const double kept = offered / step;
    const double dstStride = slots / kept;
    const double srcStride = available / kept;
    double phase = std::floor(before / step + 0.5) * step - before;
    if (phase < 0)
        phase += step;
    const double srcStart = phase * (available / offered);

    for (std::size_t i = 0; i < dst.m_channels.size(); ++i) {
        ChannelData& to = dst.m_channels[i];
        const ChannelData& from = src.m_channels[i];
        if (to.getDataType() != from.getDataType())
            QM_THROW(ErrorCode::InvalidArgument, "datatype are not the same");
        double t = srcStart;
        for (double d = dstStride - 1; t < available && d < slots; d += dstStride, t += srcStride) {
            const std::size_t source = filled + static_cast<std::size_t>(t);
            if (source < src.getNumSamples() && d >= 0)
                copySamples(to, static_cast<std::size_t>(d), from, source, 1);
        }
    }
}

} // namespace Quillmoran
