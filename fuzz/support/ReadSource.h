// Queries of sources as the programs make them. Points are read up to a limit: a small input can claim billions.
#pragma once

#include <vxunpack/Base.h>
#include <vxunpack/PointSource.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

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
    try {
        for (std::size_t got = 1; got != 0 && count < limit; count += got)
            got = iterator->getNextPoints(block);
    } catch (const Error&) {
        // A caller may call it again after an error.
        try {
            iterator->getNextPoints(block);
        } catch (const Error&) {
        }
        throw;
    }
    return count;
}

// Asks for everything but points. The metadata may be damaged while the points are not.
inline void describe(const PointSource& source)
{
    source.getWKT();
    source.getScale();
    std::size_t length = 0;
    for (std::size_t i = 0; i < source.getNumClassIdNames(); ++i)
        length += source.getClassIdNames()[i] ? std::strlen(source.getClassIdNames()[i]) : 0;
    static_cast<void>(length);
    try {
        Metadata metadata;
        source.loadMetadata(metadata, false);
        source.loadMetadata(metadata, true);
    } catch (const Error&) {
    }
}

// X, Y and Z, as far as the source has them.
inline PointInfo coordinatesOf(const PointSource& source)
{
    PointInfo layout;
    for (const char* name : {"X", "Y", "Z"})
        if (const ChannelInfo* info = source.getChannel(name))
            layout.append(*info);
    return layout;
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
