// A survey of the points of a source: surveys the channels, counts the points, and keeps runs of points on
// which codings are tried. The points are either all points, block by block, or samples of a source.
#pragma once

#include "encode/planning/ChannelSurvey.h"
#include "encode/planning/PlanChooser.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class SourceSurvey
{
public:
    // The scale and offset of X, Y and Z in the source.
    struct CoordinateGrid
    {
        const double* scale = nullptr; // null: unknown
        const double* offset = nullptr;
    };

    // The points have this layout.
    SourceSurvey(const PointInfo& layout, const CoordinateGrid& grid);

    // Takes the next block: begin(), then survey() for each channel, which different threads may call.
    void begin(const PointData& points, std::size_t count);
    void survey(std::size_t channel, const PointData& points, std::size_t count)
    {
        m_channels[channel].add(points.getChannel(channel), count);
    }
    // Takes samples in place of all points: `runs` with the number of points of each, one after the other in
    // `points`. `numPoints` is the number of points of the source. Called once.
    void addSamples(const PointData& points, const std::vector<std::size_t>& runs, std::int64_t numPoints);

    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    ChannelSurvey& getChannel(std::size_t index) { return m_channels[index]; }
    const ChannelSurvey& getChannel(std::size_t index) const { return m_channels[index]; }
    // Runs spread over all points. They are few, so that trials are a small part of the work.
    std::vector<const PlanChooser::Run*> getRuns() const;

    static constexpr std::size_t runPoints = 8192;
    // The number of runs of points of this layout that are kept. 0 if not even one fits into memory.
    static std::size_t getMaxRuns(const PointInfo& layout);

private:
    void declareGrids(const CoordinateGrid& grid);
    void keepRun(const PointData& points, std::size_t first, std::size_t count);

    PointInfo m_layout;
    std::int64_t m_numPoints = 0;
    std::vector<ChannelSurvey> m_channels;
    // One block in m_stride provides a run. When there are too many runs, every second one is dropped.
    std::size_t m_block = 0;
    std::size_t m_stride = 1;
    std::size_t m_maxRuns;
    std::vector<std::unique_ptr<PlanChooser::Run>> m_runs;
};

} // namespace Quillmoran
