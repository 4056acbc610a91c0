// Reads a source in a layout that need not be its own, as the mosaic does when its sources differ: channels
// that the source lacks are zeros, samples of another type or meaning are converted (see MergeRules.h).
#pragma once

#include "filters/MergeRules.h"
#include <vxunpack/PointSource.h>

namespace Quillmoran {

// A new iterator with a count of 1; the source's own one when nothing has to be converted. `layout` holds the
// wanted channels, `target` the layout of the whole mosaic, which settles what they mean. Floating-point
// values become integers by rounding, never clamped. The caller keeps the source for as long as the iterator
// is used; the target is read only here. Errors: those of MergeRules::findOrigin() and of the source.
PointIterator* createAdaptedIterator(const PointSource& source, const MergeRules::Target& target,
                                     const Bounds& bounds, double fraction, const PointInfo& layout,
                                     ProgressDelegate* delegate);

} // namespace Quillmoran
