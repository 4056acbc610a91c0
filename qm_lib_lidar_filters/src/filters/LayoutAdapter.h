// Reads a source in another layout, as the mosaic does when its sources differ: channels that the source
// lacks are zeros, samples of another type or meaning are converted (see MergeRules.h).
#pragma once

#include "filters/MergeRules.h"
#include <vxunpack/PointSource.h>

namespace Quillmoran {

// A new iterator with a count of 1; the source's own one when nothing needs conversion. `layout` has the
// wanted channels; `target`, the layout of the whole mosaic, defines their meaning and is not kept.
// Floating-point values are rounded to integers, not clamped. The source must outlive the iterator. Throws
// the errors of MergeRules::findOrigin() and of the source.
PointIterator* createAdaptedIterator(const PointSource& source, const MergeRules::Target& target,
                                     const Bounds& bounds, double fraction, const PointInfo& layout,
                                     ProgressDelegate* delegate);
// The same for the points of a sample iterator. Null if the source cannot be sampled.
PointIterator* createAdaptedSampleIterator(const PointSource& source, const MergeRules::Target& target,
                                           double position, const PointInfo& layout);

} // namespace Quillmoran
