#include <vxunpack/HilbertOrder.h>

#include "filters/HilbertCurve.h"

namespace Quillmoran {

HilbertOrder::~HilbertOrder() = default;

PointOrder::Keys HilbertOrder::makeKeys(const Bounds& bounds, PointInfo&) const
{
    return [grid = HilbertGrid(getSrc()->getBounds(), bounds)](std::uint64_t* keys, const PointData& block,
                                                               std::size_t count) {
        grid.getKeys(keys, block.getX(), block.getY(), count);
    };
}

} // namespace Quillmoran
