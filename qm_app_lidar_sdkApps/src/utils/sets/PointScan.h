// Reads the points of a source block by block.
#pragma once

#include <vxunpack/PointSource.h>

#include <cstddef>
#include <utility>

namespace Quillmoran {

// Calls visit(block, count) for each block of an even sample of the points in the box, with the channels of
// the layout. The delegate may be null; the caller sets its total.
template <class Visit>
void scanSample(const PointSource& source, const Bounds& box, double fraction, const PointInfo& layout,
                ProgressDelegate* delegate, Visit visit)
{
    constexpr std::size_t blockPoints = 4096;
    PointData block;
    block.init(layout, layout.getBlockPoints(blockPoints));
    const Scoped<PointIterator> iterator(source.createIterator(box, fraction, layout, delegate));
    while (const std::size_t count = iterator->getNextPoints(block))
        visit(block, count);
}

// The same for all points in the box.
template <class Visit>
void scanPoints(const PointSource& source, const Bounds& box, const PointInfo& layout,
                ProgressDelegate* delegate, Visit visit)
{
    scanSample(source, box, 1.0, layout, delegate, std::move(visit));
}

} // namespace Quillmoran
