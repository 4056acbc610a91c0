#include "encode/planning/SourceSurvey.h"

#include "model/ChannelNames.h"
#include "platform/ParallelLoop.h"

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

constexpr std::size_t runPoints = 8192;
constexpr std::size_t maxRuns = 16; // kept
constexpr std::size_t maxRunBytes = 32 << 20;
constexpr std::int64_t maxRunsUsed = 8;
constexpr std::int64_t pointsPerRun = 524288; // points of the source per run that is used

} // namespace

SourceSurvey::SourceSurvey(const PointInfo& layout, const CoordinateGrid& grid, BlockReader& reader,
                           const std::function<void(std::size_t)>& onBlock)
    : m_channels(layout.getNumChannels()),
      m_maxRuns(std::clamp<std::size_t>(maxRunBytes / (runPoints * layout.getPointSize() + 1), 1, maxRuns))
{
    declareGrids(layout, grid);
    reader.forEach([&](const PointData& points, std::size_t count) {
        m_numPoints += static_cast<std::int64_t>(count);
        keepRun(layout, points, count);
        parallelLoop(m_channels.size() + 1, [&](std::size_t job) {
            if (job == 0)
                reader.readNext();
            else
                m_channels[job - 1].add(points.getChannel(job - 1), count);
        });
        onBlock(count);
    });
}

// The source's scale and offset for coordinates, and the quantization of other channels.
void SourceSurvey::declareGrids(const PointInfo& layout, const CoordinateGrid& grid)
{
    const char* const names[3] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (std::size_t i = 0; i < m_channels.size(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        if (!DataTypeUtils::isFloat(channel.getDataType()))
            continue;
        const auto axis =
            static_cast<std::size_t>(std::find_if(std::begin(names), std::end(names),
                                                  [&](const char* name) { return channel.isNamed(name); }) -
                                     std::begin(names));
        m_channels[i].setCoordinate(axis < 3);
        if (axis < 3 && grid.scale)
            m_channels[i].declare({grid.scale[axis], grid.offset[axis] + 0.0}); // no -0
        if (channel.getQuantization() != 0)
            m_channels[i].declare({channel.getQuantization(), std::nan("")});
    }
}

void SourceSurvey::keepRun(const PointInfo& layout, const PointData& points, std::size_t count)
{
    if (m_block++ % m_stride != 0)
        return;
    if (m_runs.size() == m_maxRuns) {
        const std::size_t kept = (m_maxRuns + 1) / 2;
        for (std::size_t i = 0; i < kept; ++i)
            m_runs[i] = std::move(m_runs[2 * i]);
        m_runs.resize(kept);
        m_stride *= 2;
        if (kept == m_maxRuns)
            return;
    }
    auto run = std::make_unique<PlanChooser::Run>();
    run->count = std::min(count, runPoints);
    run->points.init(layout, run->count);
    PointData::copy(run->points, 0, points, (count - run->count) / 2, run->count);
    m_runs.push_back(std::move(run));
}

std::vector<const PlanChooser::Run*> SourceSurvey::getRuns() const
{
    std::vector<const PlanChooser::Run*> chosen;
    const auto wanted = static_cast<std::size_t>(std::min(m_numPoints / pointsPerRun + 1, maxRunsUsed));
    const std::size_t used = std::min(wanted, m_runs.size());
    for (std::size_t i = 0; i < used; ++i)
        chosen.push_back(m_runs[(2 * i + 1) * m_runs.size() / (2 * used)].get());
    return chosen;
}

} // namespace Quillmoran
