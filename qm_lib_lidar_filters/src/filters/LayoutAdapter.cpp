#include "filters/LayoutAdapter.h"

#include "model/NameIndex.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

namespace Quillmoran {

namespace {

constexpr std::size_t mostBlockPoints = 16384;

class AdaptingIterator final : public PointIterator
{
public:
    AdaptingIterator(const PointSource& source, const Bounds& bounds, double fraction,
                     const PointInfo& layout, ProgressDelegate* delegate)
    {
        PointInfo present;
        const NameIndex names(source.getPointInfo());
        for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
            const ChannelInfo& wanted = layout.getChannel(i);
            const auto index = names.find(wanted.getName());
            const ChannelInfo* own = index ? &source.getChannel(*index) : nullptr;
            m_origins.push_back(own ? std::optional(present.getNumChannels()) : std::nullopt);
            if (own)
                present.append(own->getDataType() == wanted.getDataType() ? wanted : *own);
        }
        m_block.init(present, 0);
        m_mostPoints = present.getBlockPoints(mostBlockPoints);
        m_source.reset(source.createIterator(bounds, fraction, present, delegate));
    }

    std::size_t getNextPoints(PointData& out) override
    {
        const std::size_t capacity = std::min(out.getNumSamples(), m_mostPoints);
        if (m_block.getNumSamples() != capacity)
            m_block.resize(capacity);
        const std::size_t count = m_source->getNextPoints(m_block);
        for (std::size_t i = 0; i < m_origins.size(); ++i) {
            if (m_origins[i])
                convert(out.getChannel(i), m_block.getChannel(*m_origins[i]), count);
            else
                clear(out.getChannel(i), count);
        }
        return count;
    }

private:
    static void convert(ChannelData& to, const ChannelData& from, std::size_t count)
    {
        if (DataTypeUtils::isFloat(to.getDataType()) == DataTypeUtils::isFloat(from.getDataType()))
            ChannelData::convert(to, 0, from, 0, count);
        else
            ChannelData::convert(to, 0, from, 0, 0.0, 1.0, count);
    }

    static void clear(ChannelData& channel, std::size_t count)
    {
        const std::size_t bytes = count * DataTypeUtils::getSize(channel.getDataType());
        if (bytes != 0)
            std::memset(channel.getData(), 0, bytes);
    }

    Scoped<PointIterator> m_source;
    PointData m_block;                                 // in the source's types
    std::size_t m_mostPoints = 0;                      // of the block
    std::vector<std::optional<std::size_t>> m_origins; // of each wanted channel in the block; none: zeros
};

bool hasAll(const PointSource& source, const PointInfo& layout)
{
    const NameIndex names(source.getPointInfo());
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& wanted = layout.getChannel(i);
        const auto own = names.find(wanted.getName());
        if (!own || source.getChannel(*own).getDataType() != wanted.getDataType())
            return false;
    }
    return true;
}

} // namespace

PointIterator* createAdaptedIterator(const PointSource& source, const Bounds& bounds, double fraction,
                                     const PointInfo& layout, ProgressDelegate* delegate)
{
    if (hasAll(source, layout))
        return source.createIterator(bounds, fraction, layout, delegate);
    return new AdaptingIterator(source, bounds, fraction, layout, delegate);
}

} // namespace Quillmoran
