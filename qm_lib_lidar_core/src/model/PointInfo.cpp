#include <vxunpack/PointInfo.h>

#include "model/ChannelNames.h"
#include <vxunpack/Base.h>
#include <vxunpack/PointData.h>

#include <algorithm>
#include <utility>

namespace Quillmoran {

void PointInfo::init(std::size_t count)
{
    m_channels.assign(count, ChannelInfo());
}

template <class Source>
void PointInfo::init(const Source& source, const std::size_t* indices, std::size_t count)
{
    init(count);
    for (std::size_t i = 0; i < count; ++i)
        m_channels[i].init(source.getChannel(indices[i]));
}

template <class Source>
void PointInfo::init(const Source& source, const char* const* names, std::size_t count)
{
    init(count);
    for (std::size_t i = 0; i < count; ++i) {
        const ChannelInfo* channel = source.getChannel(names[i]);
        if (!channel)
            QM_THROW(ErrorCode::NoSuchChannel, "bad channel name '%s'", names[i]);
        m_channels[i].init(*channel);
    }
}

void PointInfo::init(const PointData& source)
{
    init(source.getNumChannels());
    for (std::size_t i = 0; i < m_channels.size(); ++i)
        m_channels[i].init(source.getChannel(i));
}

template void PointInfo::init(const PointInfo&, const std::size_t*, std::size_t);
template void PointInfo::init(const PointInfo&, const char* const*, std::size_t);
template void PointInfo::init(const PointData&, const std::size_t*, std::size_t);
template void PointInfo::init(const PointData&, const char* const*, std::size_t);

const ChannelInfo& PointInfo::getChannel(std::size_t index) const
{
    if (index >= m_channels.size())
        QM_THROW(ErrorCode::NoSuchChannel, "bad channel index");
    return m_channels[index];
}

ChannelInfo& PointInfo::getChannel(std::size_t index)
{
    return const_cast<ChannelInfo&>(std::as_const(*this).getChannel(index));
}

const ChannelInfo* PointInfo::getChannel(const char* name) const noexcept
{
    const auto found = std::find_if(m_channels.begin(), m_channels.end(),
                                    [name](const ChannelInfo& channel) { return channel.isNamed(name); });
    return found == m_channels.end() ? nullptr : &*found;
}

ChannelInfo* PointInfo::getChannel(const char* name) noexcept
{
    return const_cast<ChannelInfo*>(std::as_const(*this).getChannel(name));
}

int PointInfo::getChannelIndex(const char* name) const noexcept
{
    const ChannelInfo* channel = getChannel(name);
    return channel ? static_cast<int>(channel - m_channels.data()) : -1;
}

std::size_t PointInfo::getPointSize() const noexcept
{
    std::size_t size = 0;
    for (const ChannelInfo& channel : m_channels)
        size += DataTypeUtils::getSize(channel.getDataType());
    return size;
}

std::size_t PointInfo::getBlockPoints(std::size_t max) const noexcept
{
    constexpr std::size_t blockBytes = std::size_t{1} << 20; // it stays in the caches
    return std::clamp<std::size_t>(blockBytes / std::max<std::size_t>(getPointSize(), 1), 1,
                                   std::max<std::size_t>(max, 1));
}

bool PointInfo::hasValidXYZ() const noexcept
{
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z}) {
        const ChannelInfo* channel = getChannel(name);
        if (!channel || channel->getDataType() != FLOAT64)
            return false;
    }
    return true;
}

} // namespace Quillmoran
