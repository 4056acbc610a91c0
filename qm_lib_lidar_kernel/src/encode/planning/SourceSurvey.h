// The first of two passes over the source of a file: surveys the channels, counts the points, and keeps runs
// of points on which codings are tried.
#pragma once

#include "encode/BlockReader.h"
#include "encode/planning/ChannelSurvey.h"
#include "encode/planning/PlanChooser.h"

#include <cstdint>
#include <functional>
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

    // Reads all blocks of the reader, whose points have this layout. `onBlock` is called with the number of
    // points of each block.
    SourceSurvey(const PointInfo& layout, const CoordinateGrid& grid, BlockReader& reader,
                 const std::function<void(std::size_t)>& onBlock);

    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    const ChannelSurvey& getChannel(std::size_t index) const { return m_channels[index]; }
    // Runs spread over all points. They are few, so that trials are a small part of the work.
    std::vector<const PlanChooser::Run*> getRuns() const;

private:
    void declareGrids(const PointInfo& layout, const CoordinateGrid& grid);
    void keepRun(const PointInfo& layout, const PointData& points, std::size_t count);

    std::int64_t m_numPoints = 0;
    std::vector<ChannelSurvey> m_channels;
    // One block in m_stride provides a run. When there are too many runs, every second one is dropped.
    std::size_t m_block = 0;
    std::size_t m_stride = 1;
    std::size_t m_maxRuns;
    std::vector<std::unique_ptr<PlanChooser::Run>> m_runs;
};

} // namespace Quillmoran
