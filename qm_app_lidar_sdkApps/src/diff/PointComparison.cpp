#include "diff/PointComparison.h"

#include "diff/PointStream.h"
#include "diff/SampleComparison.h"
#include "model/ChannelNames.h"
#include "platform/ParallelLoop.h"

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr std::size_t maxBlockPoints = 16384;
constexpr const char* activity = "comparing points";

// A stream with two blocks: one is read while the other is compared.
class Side
{
public:
    Side(const PointSource& source, const PointInfo& layout, std::size_t blockPoints,
         ProgressDelegate& progress)
        : m_stream(source, layout, progress)
    {
        for (Block& block : m_blocks)
            block.points.init(layout, blockPoints);
    }

    void readNext()
    {
        Block& next = m_blocks[1 - m_current];
        next.count = m_stream.read(next.points);
    }
    void advance() noexcept { m_current = 1 - m_current; }
    const PointData& points() const noexcept { return m_blocks[m_current].points; }
    std::size_t count() const noexcept { return m_blocks[m_current].count; }

    void describe(DiffReport::Cloud& cloud) const
    {
        cloud.numPoints = m_stream.getNumPoints();
        cloud.bounds = m_stream.getBounds();
    }

private:
    struct Block
    {
        PointData points;
        std::size_t count = 0;
    };

    PointStream m_stream;
    Block m_blocks[2];
    std::size_t m_current = 0;
};

double toleranceOf(const ChannelInfo& channel, const double* tolerance)
{
    constexpr const char* axes[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (std::size_t axis = 0; tolerance && axis < 3; ++axis)
        if (channel.isNamed(axes[axis]))
            return tolerance[axis];
    return 0;
}

} // namespace

void comparePoints(const PointSource& a, const PointSource& b, const ComparedChannels& channels,
                   const double* tolerance, ProgressDelegate& progress, DiffReport& report)
{
    std::mutex mutex;
    SharedProgress progressOfA(progress, mutex, activity);
    SharedProgress progressOfB(progress, mutex, activity);
    progress.setTotal(a.getTotalWork(Bounds::Huge(), 1.0) + b.getTotalWork(Bounds::Huge(), 1.0));
    const std::size_t blockPoints =
        std::min(channels.a.getBlockPoints(maxBlockPoints), channels.b.getBlockPoints(maxBlockPoints));
    Side sideA(a, channels.a, blockPoints, progressOfA);
    Side sideB(b, channels.b, blockPoints, progressOfB);
    std::vector<SampleComparison> samples;
    for (const std::size_t channel : channels.compared)
        samples.emplace_back(channels.a.getChannel(channel), channels.b.getChannel(channel),
                             toleranceOf(channels.a.getChannel(channel), tolerance));

    std::uint64_t firstPoint = 0;
    const auto compareBlocks = [&] {
        const std::size_t count = std::min(sideA.count(), sideB.count());
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i].add(sideA.points().getChannel(channels.compared[i]),
                           sideB.points().getChannel(channels.compared[i]), count, firstPoint);
        firstPoint += count;
    };
    do {
        parallelLoop(3, [&](std::size_t job) {
            if (job == 0)
                sideA.readNext();
            else if (job == 1)
                sideB.readNext();
            else
                compareBlocks(); // none before the first
        });
        sideA.advance();
        sideB.advance();
    } while (sideA.count() != 0 || sideB.count() != 0);

    sideA.describe(report.a);
    sideB.describe(report.b);
    for (const SampleComparison& channel : samples)
        if (channel.getResult().numDifferent != 0)
            report.samples.push_back(channel.getResult());
}

} // namespace Quillmoran
