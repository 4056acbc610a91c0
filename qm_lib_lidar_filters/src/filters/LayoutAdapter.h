// Reads a source in a layout that need not be its own, as the mosaic does when its sources differ: channels
// that the source lacks come as zeros, samples of another type are converted.
#pragma once

#include "framework/PointSource.h"

namespace Quillmoran {

// A new iterator with a count of 1; the source's own one when nothing has to be converted. Floating-point
// values become integers by rounding, never clamped. As with every source, the caller keeps it for as long as
// the iterator is used.
PointIterator* createAdaptedIterator(const PointSource& source, const Bounds& bounds, double fraction,
                                     const PointInfo& layout, ProgressDelegate* delegate);

} // namespace Quillmoran
