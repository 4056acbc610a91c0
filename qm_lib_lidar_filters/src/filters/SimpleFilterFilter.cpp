#include <vxunpack/SimpleFilterFilter.h>

#include "framework/MetadataKeys.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace Quillmoran {

namespace {

constexpr std::size_t bufferPoints = 16384;

} // namespace

template <class T>
class SimpleFilterFilter::Iterator final : public PointIterator
{
public:
    Iterator(const SimpleFilterFilter& filter, std::size_t channel, const Bounds& bounds, double fraction,
             const PointInfo& layout, ProgressDelegate* delegate)
        : m_channel(channel), m_include(filter.m_include)
    {
        init(bounds, fraction, layout, delegate);
        m_source.reset(filter.getSrc()->createIterator(bounds, fraction, layout, delegate));
        for (const int value : filter.m_values)
            m_values.insert(static_cast<T>(value));
        m_buffer.init(layout, layout.getBlockPoints(bufferPoints));
    }

    // Copies channels by index: `out` has the layout of the query or its first channels.
    std::size_t getNextPoints(PointData& out) override
    {
        const std::size_t capacity = out.getNumSamples();
        std::size_t written = 0;
        while (written < capacity && (m_position < m_count || refill())) {
            const std::size_t begin = find(true, m_position, m_count);
            const std::size_t end = find(false, begin, std::min(m_count, begin + (capacity - written)));
            for (std::size_t i = 0; i < out.getNumChannels(); ++i)
                ChannelData::copy(out.getChannel(i), written, m_buffer.getChannel(i), begin, end - begin);
            written += end - begin;
            m_position = end;
        }
        return written;
    }

private:
    bool refill()
    {
        m_position = m_count = 0;
        m_count = m_source->getNextPoints(m_buffer);
        return m_count != 0;
    }

    bool keeps(std::size_t index) const
    {
        const T value = static_cast<const T*>(m_buffer.getChannel(m_channel).getData())[index];
        return (m_values.count(value) != 0) == m_include;
    }

    // The first point in [index, limit) that is kept, or dropped; the limit if there is none.
    std::size_t find(bool kept, std::size_t index, std::size_t limit) const
    {
        while (index < limit && keeps(index) != kept)
            ++index;
        return index;
    }

    Scoped<PointIterator> m_source;
    std::size_t m_channel; // of the layout
    std::set<T> m_values;
    bool m_include;
    PointData m_buffer;
    std::size_t m_position = 0; // of the next point in the buffer
    std::size_t m_count = 0;    // points in the buffer
};

void SimpleFilterFilter::init(PointSource* source, const char* channelName, bool include)
{
    if (source && !source->hasChannel(channelName))
        QM_THROW(ErrorCode::InvalidArgument, "the point source does not have channel: '%s'",
                 channelName ? channelName : "");
    PointFilter::init(source);
    m_channelName = channelName;
    m_include = include;
}

void SimpleFilterFilter::loadMetadata(Metadata& into, bool sanitize) const
{
    Metadata records;
    getSrc()->loadMetadata(records, sanitize);
    MetadataKeys::removeCounts(records);
    into.add(records);
}

PointIterator* SimpleFilterFilter::createIterator(const Bounds& bounds, double fraction,
                                                  const PointInfo& layout, ProgressDelegate* delegate) const
{
    const int index = layout.getChannelIndex(m_channelName.c_str());
    if (index < 0) {
        PointInfo extended = layout;
        extended.append(*getSrc()->getChannel(m_channelName.c_str()));
        return createIterator(bounds, fraction, extended, delegate);
    }
    const auto channel = static_cast<std::size_t>(index);
    PointIterator* iterator = nullptr;
    visitDataType(layout.getChannel(channel).getDataType(), [&](auto zero) {
        using T = decltype(zero);
        if constexpr (std::is_integral_v<T> && sizeof(T) <= sizeof(std::int32_t))
            iterator = new Iterator<T>(*this, channel, bounds, fraction, layout, delegate);
    });
    if (!iterator)
        QM_THROW(ErrorCode::General, "unsupported datatype");
    return iterator;
}

} // namespace Quillmoran
