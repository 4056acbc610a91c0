// A box of three closed ranges, in the units of the coordinates. A value without locks.
#pragma once

#include <vxunpack/Export.h>

#include <limits>

namespace Quillmoran {

struct QM_API Bounds
{
    struct Range
    {
        double min = std::numeric_limits<double>::infinity();
        double max = -std::numeric_limits<double>::infinity();

        bool operator==(const Range&) const noexcept = default;
        bool contains(double value) const noexcept { return value >= min && value <= max; }
        bool contains(const Range& other) const noexcept { return min <= other.min && max >= other.max; }
        bool meets(const Range& other) const noexcept { return max >= other.min && other.max >= min; }
        void grow(const Range& other) noexcept
        {
            min = other.min < min ? other.min : min;
            max = other.max > max ? other.max : max;
        }
        // A NaN has no effect.
        void grow(double value) noexcept { grow(Range{value, value}); }
    };

    // A new box is empty; growing it by a point makes it that point.
    Range x, y, z;

    bool operator==(const Bounds&) const noexcept = default;
    bool contains(double px, double py, double pz) const noexcept
    {
        return x.contains(px) && y.contains(py) && z.contains(pz);
    }
    bool contains(const Bounds& other) const noexcept
    {
        return x.contains(other.x) && y.contains(other.y) && z.contains(other.z);
    }
    bool meets(const Bounds& other) const noexcept
    {
        return x.meets(other.x) && y.meets(other.y) && z.meets(other.z);
    }
    void grow(const Bounds& other) noexcept
    {
        x.grow(other.x);
        y.grow(other.y);
        z.grow(other.z);
    }

    // From -infinity to +infinity on each axis: no crop.
    static const Bounds& Huge();
    // The fraction of box `a` that is inside `b`. A flat or unbounded axis counts as 1, so that only disjoint
    // boxes give 0.
    static double overlapFraction(const Bounds& a, const Bounds& b) noexcept;
};

} // namespace Quillmoran
