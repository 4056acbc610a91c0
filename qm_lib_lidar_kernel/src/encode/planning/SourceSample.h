// Plans the coding of a file from samples of its source, so that the source is read only once, and compares
// the plan with all points while they are encoded.
#pragma once

#include "encode/planning/ChannelPlan.h"
#include "encode/planning/SourceSurvey.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace Quillmoran {

class PointSource;

namespace SourceSample {

// A survey of runs of points that are spread over the source, with margins for the points between them. Null
// if the source cannot be sampled, or has so few points that it is as fast to survey all of them.
// `beforeRun` is called before a run is read.
std::unique_ptr<SourceSurvey> read(const PointSource& source, const PointInfo& layout,
                                   const SourceSurvey::CoordinateGrid& grid,
                                   const std::function<void()>& beforeRun);

// Adapts the plan of a channel, which was chosen from samples, to ranges that the samples do not have. False if
// it cannot be used for other samples.
bool generalize(ChannelPlan& plan);

// Whether a plan also suits all samples that a survey has seen; `isExact` says whether the transform restores
// them (PlanChooser::supports()). If not, another plan is necessary.
bool isSuitable(const ChannelPlan& plan, const ChannelSurvey& survey, bool isExact);

} // namespace SourceSample

} // namespace Quillmoran
