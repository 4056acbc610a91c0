// Reads points as the programs do, up to a limit: a small input can claim billions of points.
#pragma once

#include <vxunpack/PointSource.h>

#include <algorithm>
#include <cstdint>

namespace Quillmoran::Fuzz {

// Reads about `limit` points of a query at most, and returns their number.
inline std::uint64_t readPoints(const PointSource& source, const Bounds& bounds, double fraction,
                                const PointInfo& layout, std::uint64_t limit = 4096)
{
    constexpr std::size_t blockPoints = 512;
    const Scoped<PointIterator> iterator(source.createIterator(bounds, fraction, layout, nullptr));
    PointData block;
    block.init(layout, blockPoints);
    std::uint64_t count = 0;
    while (count < limit) {
        const std::size_t got = iterator->getNextPoints(block);
        if (got == 0)
            break;
        count += got;
    }
    return count;
}

// A part of a box: the lower half of x, the upper two thirds of y.
inline Bounds partOf(const Bounds& bounds)
{
    Bounds part = bounds;
    part.x.max = bounds.x.min + (bounds.x.max - bounds.x.min) / 2;
    part.y.min = bounds.y.min + (bounds.y.max - bounds.y.min) / 3;
    return part;
}

} // namespace Quillmoran::Fuzz
