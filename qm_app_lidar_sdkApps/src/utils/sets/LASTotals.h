// Totals of points that are known before the points are read, for LAS files that are written to a pipe.
#pragma once

#include <vxunpack/LASPointWriter.h>

#include <optional>

namespace Quillmoran {

class ProgressDelegate;

namespace Utils {

// The totals of all points of a .vxl file, whose return numbers are decoded for it; nothing for other sources.
// `layout` is that of the output. Without showing progress, asks the delegate whether to stop.
std::optional<LASPointWriter::Totals> findTotals(const PointSource& source, const PointInfo& layout,
                                                 ProgressDelegate& delegate);

} // namespace Utils

} // namespace Quillmoran
