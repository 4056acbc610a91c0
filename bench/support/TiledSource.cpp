#include "support/TiledSource.h"

#include "model/ChannelNames.h"
#include "support/Random.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>
#include <limits>

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

// Whole steps, so that every copy is on the grid.
double wholeSteps(const Bounds::Range& range, double step)
{
    return (std::ceil((range.max - range.min) / step) + 1) * step;
}

} // namespace

class TiledIterator final : public PointIterator
{
public:
    TiledIterator(const TiledSource& tiles, const PointInfo& layout)
        : m_tiles(Scoped<const TiledSource>::retained(&tiles)), m_layout(layout)
    {
        init(Bounds::Huge(), 1, layout, nullptr);
    }

    std::size_t getNextPoints(PointData& buffer) override
    {
        for (;;) {
            if (!m_points) {
                if (m_copy == m_tiles->m_tiling.numCopies)
                    return 0;
                m_points.reset(m_tiles->getSrc()->createIterator(Bounds::Huge(), 1, m_layout, nullptr));
            }
            if (const std::size_t count = m_points->getNextPoints(buffer)) {
                shiftCopy(buffer, count);
                addNoise(buffer, count);
                return count;
            }
            m_points.reset();
            ++m_copy;
        }
    }

private:
    void shiftCopy(PointData& buffer, std::size_t count) const
    {
        const std::int64_t column = m_copy % m_tiles->m_numColumns;
        const std::int64_t row = m_copy / m_tiles->m_numColumns;
        shift(*buffer.getChannel(ChannelNames::x), count, static_cast<double>(column) * m_tiles->m_width);
        shift(*buffer.getChannel(ChannelNames::y), count, static_cast<double>(row) * m_tiles->m_height);
        if (const int time = findTime(m_layout); time >= 0)
            shift(buffer.getChannel(static_cast<std::size_t>(time)), count,
                  static_cast<double>(m_copy) * m_tiles->m_duration);
    }

    void addNoise(PointData& buffer, std::size_t count)
    {
        ChannelData* const intensity = buffer.getChannel(ChannelNames::intensity);
        const int most = m_tiles->m_tiling.intensityNoise;
        if (most == 0 || !intensity)
            return;
        auto* const samples = static_cast<std::uint16_t*>(intensity->getData());
        for (std::size_t i = 0; i < count; ++i) {
            const std::int64_t noisy = samples[i] + m_random.between(-most, most);
            samples[i] = static_cast<std::uint16_t>(
                std::clamp<std::int64_t>(noisy, 0, std::numeric_limits<std::uint16_t>::max()));
        }
    }

    Scoped<const TiledSource> m_tiles;
    PointInfo m_layout;
    Testing::Random m_random{11};
    Scoped<PointIterator> m_points; // of the present copy
    std::int64_t m_copy = 0;
};

Scoped<TiledSource> TiledSource::make(PointSource* source, const Tiling& tiling)
{
    const double* scale = source->getScale();
    if (!scale)
        QM_THROW(ErrorCode::InvalidArgument, "only a source with a grid can be tiled");
    const ChannelInfo* intensity = source->getChannel(ChannelNames::intensity);
    if (tiling.intensityNoise != 0 && intensity && intensity->getDataType() != UINT16)
        QM_THROW(ErrorCode::InvalidArgument, "noise is for intensities of 16 bits");
    Scoped<TiledSource> tiled(new TiledSource(tiling));
    tiled->init(source);
    tiled->m_bounds = source->getBounds();
    Bounds& bounds = tiled->m_bounds;
    tiled->m_width = wholeSteps(bounds.x, scale[0]);
    tiled->m_height = wholeSteps(bounds.y, scale[1]);
    tiled->m_duration = getDuration(*source);

    const std::int64_t numCopies = tiling.numCopies;
    const double side = std::sqrt(static_cast<double>(numCopies) * tiled->m_height / tiled->m_width);
    const std::int64_t numColumns =
        tiling.isSquare ? std::clamp<std::int64_t>(std::llround(side), 1, numCopies) : numCopies;
    tiled->m_numColumns = numColumns;
    bounds.x.max += static_cast<double>(numColumns - 1) * tiled->m_width;
    const std::int64_t lastRow = (numCopies - 1) / numColumns;
    bounds.y.max += static_cast<double>(lastRow) * tiled->m_height;
    return tiled;
}

PointIterator* TiledSource::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                           ProgressDelegate*) const
{
    if (bounds != Bounds::Huge() || fraction != 1)
        QM_THROW(ErrorCode::InvalidArgument, "tiles are read as a whole");
    return new TiledIterator(*this, layout);
}

} // namespace Quillmoran::Benchmarks
