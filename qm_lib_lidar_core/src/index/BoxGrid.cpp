#include "index/BoxGrid.h"

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

// 2^-30 of the extent, so that enlarged boxes fit into 32 bits. At least 2^-49 of the largest coordinate,
// since a smaller step would be lost when it is added (a double has 53 bits), and at least a nanometre.
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
