#include "support/TiledSource.h"

#include "model/ChannelNames.h"
#include "platform/Base.h"

#include <cmath>

namespace Quillmoran::Benchmarks {

namespace {

constexpr std::size_t blockPoints = 16384;

int findTime(const PointInfo& layout)
{
    const int time = layout.getChannelIndex(ChannelNames::gpsTime);
    return time >= 0 ? time : layout.getChannelIndex(ChannelNames::gpsTimeAdjusted);
}

void shift(ChannelData& channel, std::size_t count, double by)
{
    auto* const samples = static_cast<double*>(channel.getData());
    for (std::size_t i = 0; i < count; ++i)
        samples[i] += by;
}

double getDuration(const PointSource& source)
{
    const int time = findTime(source.getPointInfo());
    if (time < 0)
        return 0;
    const Scoped<PointIterator> points(
        source.createIterator(Bounds::Huge(), 1, source.getPointInfo(), nullptr));
    PointData block;
    block.init(source.getPointInfo(), blockPoints);
    Bounds::Range range;
    while (const std::size_t count = points->getNextPoints(block)) {
        const auto* const times =
            static_cast<const double*>(block.getChannel(static_cast<std::size_t>(time)).getData());
        for (std::size_t i = 0; i < count; ++i)
            range.grow(times[i]);
    }
    return range.max - range.min;
}

class Iterator final : public PointIterator
{
public:
    Iterator(const PointSource* source, std::int64_t numCopies, double width, double duration,
             const PointInfo& layout)
        : m_source(Scoped<const PointSource>::retained(source)),
          m_layout(layout),
          m_numCopies(numCopies),
          m_width(width),
          m_duration(duration)
    {
        init(Bounds::Huge(), 1, layout, nullptr);
    }

    std::size_t getNextPoints(PointData& buffer) override
    {
        for (;;) {
            if (!m_points) {
                if (m_copy == m_numCopies)
                    return 0;
                m_points.reset(m_source->createIterator(Bounds::Huge(), 1, m_layout, nullptr));
            }
            if (const std::size_t count = m_points->getNextPoints(buffer)) {
                shiftCopy(buffer, count);
                return count;
            }
            m_points.reset();
            ++m_copy;
        }
    }

private:
    void shiftCopy(PointData& buffer, std::size_t count) const
    {
        const auto copy = static_cast<double>(m_copy);
        shift(*buffer.getChannel(ChannelNames::x), count, copy * m_width);
        if (const int time = findTime(m_layout); time >= 0)
            shift(buffer.getChannel(static_cast<std::size_t>(time)), count, copy * m_duration);
    }

    Scoped<const PointSource> m_source;
    PointInfo m_layout;
    std::int64_t m_numCopies;
    double m_width;
    double m_duration;
    Scoped<PointIterator> m_points; // of the present copy
    std::int64_t m_copy = 0;
};

} // namespace

Scoped<TiledSource> TiledSource::make(PointSource* source, std::int64_t numCopies)
{
    const double* scale = source->getScale();
    if (!scale)
        QM_THROW(40007, "only a source with a grid can be tiled");
    Scoped<TiledSource> tiled(new TiledSource(numCopies));
    tiled->init(source);
    tiled->m_bounds = source->getBounds();
    Bounds::Range& x = tiled->m_bounds.x;
    // Whole steps, so that every copy is on the grid.
    tiled->m_width = (std::ceil((x.max - x.min) / scale[0]) + 1) * scale[0];
    x.max += static_cast<double>(numCopies - 1) * tiled->m_width;
    tiled->m_duration = getDuration(*source);
    return tiled;
}

PointIterator* TiledSource::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                           ProgressDelegate*) const
{
    if (bounds != Bounds::Huge() || fraction != 1)
        QM_THROW(40007, "tiles are read as a whole");
    return new Iterator(getSrc(), m_numCopies, m_width, m_duration, layout);
}

} // namespace Quillmoran::Benchmarks
