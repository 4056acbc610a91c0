// Compares the points of two clouds regardless of their order: as multisets, so that a point that occurs
// twice in one cloud must occur twice in the other. Both clouds are sorted on disk (RowSorter) and merged.
// Memory does not grow with the number of points.
#pragma once

#include "diff/DescriptionComparison.h"
#include <vxunpack/PointOrder.h>

namespace Quillmoran {

// Adds the numbers of points, their bounds and the surplus points of each cloud to the report. Throws what
// reading throws, the errors of the temporary files, and Cancelled.
void compareUnordered(const PointSource& a, const PointSource& b, const ComparedChannels& channels,
                      ProgressDelegate& progress, DiffReport& report, const PointOrder::Limits& limits = {});

} // namespace Quillmoran
