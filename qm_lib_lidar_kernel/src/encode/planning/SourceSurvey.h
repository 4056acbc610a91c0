// The first of the two passes of writing a file: what every channel holds, how many points there are, and
// runs of points that tell how the channels are best coded.
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
    // What is known of X, Y and Z beforehand.
    struct CoordinateGrid
    {
        const double* scale = nullptr; // null: unknown
        const double* offset = nullptr;
    };

    // Looks at all blocks of the reader, whose points have this layout. `onBlock` is called with the number
    // of points of each block.
    SourceSurvey(const PointInfo& layout, const CoordinateGrid& grid, BlockReader& reader,
                 const std::function<void(std::size_t)>& onBlock);

    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    const ChannelSurvey& getChannel(std::size_t index) const { return m_channels[index]; }
    // Runs from all over the points, few enough that trying to code them is a small part of the work.
    std::vector<const PlanChooser::Run*> getRuns() const;

private:
    void declareGrids(const PointInfo& layout, const CoordinateGrid& grid);
    void keepRun(const PointInfo& layout, const PointData& points, std::size_t count);

    std::int64_t m_numPoints = 0;
    std::vector<ChannelSurvey> m_channels;
    // Every so many blocks give one run; when there are too many, every second one goes.
    std::size_t m_block = 0;
    std::size_t m_stride = 1;
    std::size_t m_mostRuns;
    std::vector<std::unique_ptr<PlanChooser::Run>> m_runs;
};

} // namespace Quillmoran
