#include "index/BoxGrid.h"

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

// A fraction of the extent that leaves room in 32 bits for the widening. It is never so small that adding it
// to a coordinate is lost in rounding (a double has 53 bits), nor of any use below a nanometre.
double chooseStep(const Bounds::Range& range)
{
    if (!(range.min <= range.max))
        return 1;
    const double extent = std::ldexp(range.max, -30) - std::ldexp(range.min, -30);
    const double largest = std::max(std::fabs(range.min), std::fabs(range.max));
    return std::max({extent, std::ldexp(largest, -49), 1e-9});
}

} // namespace

BoxGrid::BoxGrid(const Bounds& bounds)
    : m_steps{chooseStep(bounds.x), chooseStep(bounds.y), chooseStep(bounds.z)}
{}

Bounds BoxGrid::widen(const Bounds& box) const
{
    Bounds wider = box;
    Bounds::Range* const ranges[] = {&wider.x, &wider.y, &wider.z};
    for (int axis = 0; axis < 3; ++axis) {
        ranges[axis]->min -= m_steps[axis];
        ranges[axis]->max += m_steps[axis];
    }
    return wider;
}

} // namespace Quillmoran
