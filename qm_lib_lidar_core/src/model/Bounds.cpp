#include <vxunpack/Bounds.h>

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

double axisFraction(const Bounds::Range& a, const Bounds::Range& b) noexcept
{
    if (a.min >= a.max || b.min >= b.max)
        return 1.0;
    const double width = a.max - a.min;
    if (width > std::numeric_limits<double>::max())
        return 1.0;
    const double lo = std::max(a.min, b.min);
    const double hi = std::min(a.max, b.max);
    return lo >= hi ? 0.0 : (hi - lo) / width;
}

} // namespace

const Bounds& Bounds::Huge()
{
    static const Bounds huge{{-infinity, infinity}, {-infinity, infinity}, {-infinity, infinity}};
    return huge;
}

double Bounds::overlapFraction(const Bounds& a, const Bounds& b) noexcept
{
    return axisFraction(a.x, b.x) * axisFraction(a.y, b.y) * axisFraction(a.z, b.z);
}

} // namespace Quillmoran
