#include "filters/LayoutAdapter.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace Quillmoran {

namespace {

using MergeRules::Origin;
using MergeRules::Rule;

constexpr std::size_t maxBlockPoints = 16384;

// Creates an iterator of the source for a layout.
using CreateIterator = std::function<PointIterator*(const PointInfo&)>;
using Origins = std::vector<std::optional<Origin>>; // of each wanted channel; none: zeros

Origins findOrigins(const PointInfo& source, const MergeRules::Target& target, const PointInfo& layout)
{
    const NameIndex names(source);
    Origins origins;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        origins.push_back(MergeRules::findOrigin(source, names, target, layout.getChannel(i).getName()));
    return origins;
}

class AdaptingIterator final : public PointIterator
{
public:
    AdaptingIterator(const PointSource& source, Origins origins, const std::optional<int>& gpsWeek,
                     const PointInfo& layout, const CreateIterator& create)
        : m_origins(std::move(origins)), m_gpsWeek(gpsWeek)
    {
        PointInfo present;
        std::map<std::size_t, std::size_t> positions; // of the source's channels in the block
        const auto take = [&](std::size_t channel, const ChannelInfo& description) {
            const auto [known, isNew] = positions.emplace(channel, present.getNumChannels());
            if (isNew)
                present.append(description);
            return known->second;
        };
        for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
            if (!m_origins[i])
                continue;
            Origin& origin = *m_origins[i];
            const ChannelInfo& wanted = layout.getChannel(i);
            const ChannelInfo& own = source.getChannel(origin.channel);
            if (origin.rule == Rule::EitherToAdjusted)
                origin.other = take(origin.other, source.getChannel(origin.other));
            const bool isSame = origin.rule == Rule::Copy && own.getDataType() == wanted.getDataType();
            origin.channel = take(origin.channel, isSame ? wanted : own);
        }
        m_block.init(present, 0);
        m_maxPoints = present.getBlockPoints(maxBlockPoints);
        m_source.reset(create(present));
    }

    bool hasPoints() const { return m_source.get() != nullptr; }

    std::size_t getNextPoints(PointData& out) override
    {
        const std::size_t capacity = std::min(out.getNumSamples(), m_maxPoints);
        if (m_block.getNumSamples() != capacity)
            m_block.resize(capacity);
        const std::size_t count = m_source->getNextPoints(m_block);
        for (std::size_t i = 0; i < m_origins.size(); ++i) {
            if (const auto& origin = m_origins[i])
                MergeRules::convert(out.getChannel(i), m_block.getChannel(origin->channel),
                                    &m_block.getChannel(origin->other), origin->rule, m_gpsWeek, count);
            else
                clear(out.getChannel(i), count);
        }
        return count;
    }

private:
    static void clear(ChannelData& channel, std::size_t count)
    {
        const std::size_t bytes = count * DataTypeUtils::getSize(channel.getDataType());
        if (bytes != 0)
            std::memset(channel.getData(), 0, bytes);
    }

    Scoped<PointIterator> m_source;
    PointData m_block; // in the source's types
    std::size_t m_maxPoints = 0;
    Origins m_origins; // of each wanted channel in the block
    std::optional<int> m_gpsWeek;
};

bool isOwnLayout(const PointSource& source, const Origins& origins, const PointInfo& layout)
{
    for (std::size_t i = 0; i < origins.size(); ++i)
        if (!origins[i] || origins[i]->rule != Rule::Copy ||
            source.getChannel(origins[i]->channel).getDataType() != layout.getChannel(i).getDataType())
            return false;
    return true;
}

PointIterator* adapt(const PointSource& source, const MergeRules::Target& target, const PointInfo& layout,
                     const CreateIterator& create)
{
    Origins origins = findOrigins(source.getPointInfo(), target, layout);
    if (isOwnLayout(source, origins, layout))
        return create(layout);
    Scoped<AdaptingIterator> iterator(
        new AdaptingIterator(source, std::move(origins), target.getGPSWeek(), layout, create));
    return iterator->hasPoints() ? iterator.detach() : nullptr;
}

} // namespace

PointIterator* createAdaptedIterator(const PointSource& source, const MergeRules::Target& target,
                                     const Bounds& bounds, double fraction, const PointInfo& layout,
                                     ProgressDelegate* delegate)
{
    return adapt(source, target, layout, [&](const PointInfo& own) {
        return source.createIterator(bounds, fraction, own, delegate);
    });
}

PointIterator* createAdaptedSampleIterator(const PointSource& source, const MergeRules::Target& target,
                                           double position, const PointInfo& layout)
{
    return adapt(source, target, layout,
                 [&](const PointInfo& own) { return source.createSampleIterator(position, own); });
}

} // namespace Quillmoran
