#include "sdk/GeneratedSource.h"

#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace Quillmoran {

class GeneratedSource::Iterator final : public PointIterator
{
public:
    Iterator(const GeneratedSource& source, std::uint64_t first, const Bounds& bounds, double fraction,
             const PointInfo& layout, ProgressDelegate* delegate)
        : m_source(Scoped<const GeneratedSource>::retained(&source)),
          m_numPoints(static_cast<std::uint64_t>(source.getNumPoints())),
          m_first(first)
    {
        init(bounds, fraction, layout, delegate);
        const PointInfo& all = source.getPointInfo();
        for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
            const ChannelInfo& wanted = layout.getChannel(i);
            const int index = all.getChannelIndex(wanted.getName());
            if (index < 0)
                QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
            m_origins.push_back(static_cast<std::size_t>(index));
            if (all.getChannel(m_origins.back()).getDataType() != wanted.getDataType())
                QM_THROW(ErrorCode::ChannelType, "channel '%s' has another type in the source",
                         wanted.getName());
        }
        m_block.init(all, all.getBlockPoints(maxBlockPoints));
        for (std::size_t i = 0; i < all.getNumChannels(); ++i) // for functions that do not fill all channels
            std::memset(m_block.getChannel(i).getData(), 0,
                        m_block.getNumSamples() * DataTypeUtils::getSize(all.getChannel(i).getDataType()));
    }

    std::size_t getNextPoints(PointData& buffer) override
    {
        const std::size_t capacity = buffer.getNumSamples();
        std::size_t filled = 0;
        while (filled < capacity && (m_cursor < m_size || makeBlock())) {
            const auto copyRun = [&](std::size_t to, std::size_t from, std::size_t count) {
                for (std::size_t i = 0; i < m_origins.size(); ++i)
                    ChannelData::copy(buffer.getChannel(i), to, m_block.getChannel(m_origins[i]), from,
                                      count);
            };
            filled = takeKept(m_block.getX(), m_block.getY(), m_block.getZ(), m_cursor, m_size, filled,
                              capacity, copyRun);
        }
        return filled;
    }

private:
    static constexpr std::size_t maxBlockPoints = 16384;

    bool makeBlock()
    {
        ProgressDelegate* const delegate = getDelegate();
        if (delegate) {
            if (delegate->getCancelled())
                QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
            delegate->updateCompleted(static_cast<double>(m_size), "reading points");
        }
        m_first += m_size;
        m_cursor = 0;
        m_size =
            static_cast<std::size_t>(std::min<std::uint64_t>(m_block.getNumSamples(), m_numPoints - m_first));
        if (m_size != 0)
            m_source->m_fill(m_first, vx::MutableBlock(m_block, m_source->getPointInfo(), m_size));
        return m_size != 0;
    }

    Scoped<const GeneratedSource> m_source;
    const std::uint64_t m_numPoints;
    std::vector<std::size_t> m_origins; // of the source, one per requested channel
    PointData m_block;
    std::uint64_t m_first;  // index of the first point in the block
    std::size_t m_size = 0; // points in the block
    std::size_t m_cursor = 0;
};

GeneratedSource* GeneratedSource::create(const PointInfo& layout, std::uint64_t numPoints,
                                         const Bounds& bounds, Fill fill, bool inAnyOrder)
{
    if (!layout.hasValidXYZ())
        QM_THROW(ErrorCode::InvalidArgument, "must have x, y, and z channels");
    if (numPoints >= static_cast<std::uint64_t>(unknownNumPoints))
        QM_THROW(ErrorCode::InvalidArgument, "too many points");
    Scoped<GeneratedSource> source(new GeneratedSource(std::move(fill), inAnyOrder));
    source->setPointInfo(layout);
    source->setNumPoints(static_cast<std::int64_t>(numPoints));
    source->setBounds(bounds);
    const double scale[] = {layout.getChannel("X")->getQuantization(),
                            layout.getChannel("Y")->getQuantization(),
                            layout.getChannel("Z")->getQuantization()};
    source->setQuantization(scale, nullptr);
    return source.detach();
}

double GeneratedSource::getTotalWork(const Bounds&, double) const
{
    return static_cast<double>(getNumPoints()); // all points are generated, even those that are dropped
}

PointIterator* GeneratedSource::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                               ProgressDelegate* delegate) const
{
    return new Iterator(*this, 0, bounds, fraction, layout, delegate);
}

PointIterator* GeneratedSource::createSampleIterator(double position, const PointInfo& layout) const
{
    if (!m_inAnyOrder)
        return nullptr;
    const auto count = static_cast<std::uint64_t>(getNumPoints());
    const auto first =
        static_cast<std::uint64_t>(std::clamp(position, 0.0, 1.0) * static_cast<double>(count));
    return new Iterator(*this, std::min(first, count), Bounds::Huge(), 1, layout, nullptr);
}

} // namespace Quillmoran
