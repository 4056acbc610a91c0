#include "encode/planning/SourceSurvey.h"

#include "model/ChannelNames.h"
#include "platform/ParallelLoop.h"

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

constexpr std::size_t maxRuns = 16; // kept
constexpr std::size_t maxRunBytes = 32 << 20;
constexpr std::int64_t maxRunsUsed = 8;
constexpr std::int64_t pointsPerRun = 524288; // points of the source per run that is used

// The runs that are used of those that were read.
std::vector<std::size_t> chooseRuns(std::size_t count, std::int64_t numPoints)
{
    const auto wanted = static_cast<std::size_t>(std::min(numPoints / pointsPerRun + 1, maxRunsUsed));
    const std::size_t used = std::min(wanted, count);
    std::vector<std::size_t> chosen;
    for (std::size_t i = 0; i < used; ++i)
        chosen.push_back((2 * i + 1) * count / (2 * used));
    return chosen;
}

} // namespace

std::size_t SourceSurvey::getMaxRuns(const PointInfo& layout)
{
    return std::min(maxRunBytes / (runPoints * layout.getPointSize() + 1), maxRuns);
}

SourceSurvey::SourceSurvey(const PointInfo& layout, const CoordinateGrid& grid)
    : m_layout(layout),
      m_channels(layout.getNumChannels()),
      m_maxRuns(std::max<std::size_t>(getMaxRuns(layout), 1))
{
    declareGrids(grid);
}

// The source's scale and offset for coordinates, and the quantization of other channels.
void SourceSurvey::declareGrids(const CoordinateGrid& grid)
{
    const char* const names[3] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (std::size_t i = 0; i < m_channels.size(); ++i) {
        const ChannelInfo& channel = m_layout.getChannel(i);
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

void SourceSurvey::begin(const PointData& points, std::size_t count)
{
    m_numPoints += static_cast<std::int64_t>(count);
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
    const std::size_t taken = std::min(count, runPoints);
    keepRun(points, (count - taken) / 2, taken);
}

void SourceSurvey::addSamples(const PointData& points, const std::vector<std::size_t>& runs,
                              std::int64_t numPoints)
{
    m_numPoints = numPoints;
    const std::vector<std::size_t> used = chooseRuns(runs.size(), numPoints);
    std::size_t first = 0;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (std::find(used.begin(), used.end(), i) != used.end())
            keepRun(points, first, runs[i]);
        first += runs[i];
    }
    parallelLoop(m_channels.size(), [&](std::size_t i) { survey(i, points, first); });
}

void SourceSurvey::keepRun(const PointData& points, std::size_t first, std::size_t count)
{
    auto run = std::make_unique<PlanChooser::Run>();
    run->count = count;
    run->points.init(m_layout, count);
    PointData::copy(run->points, 0, points, first, count);
    m_runs.push_back(std::move(run));
}

std::vector<const PlanChooser::Run*> SourceSurvey::getRuns() const
{
    std::vector<const PlanChooser::Run*> chosen;
    for (const std::size_t run : chooseRuns(m_runs.size(), m_numPoints))
        chosen.push_back(m_runs[run].get());
    return chosen;
}

} // namespace Quillmoran
