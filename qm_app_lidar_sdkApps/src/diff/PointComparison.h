// Compares the points of two clouds in their order: point 0 with point 0, and so on. Both clouds are decoded
// at the same time, while the previous block is compared. Memory does not grow with the number of points.
#pragma once

#include "diff/DescriptionComparison.h"

namespace Quillmoran {

class PointSource;
class ProgressDelegate;

// Adds the numbers of points, their bounds and the differences of their samples to the report. `tolerance`
// has three values, for X, Y and Z, or is null. If one cloud has more points, its last points are only
// counted. Throws what reading throws; if both clouds cannot be read, the error of the first one.
void comparePoints(const PointSource& a, const PointSource& b, const ComparedChannels& channels,
                   const double* tolerance, ProgressDelegate& progress, DiffReport& report);

} // namespace Quillmoran
