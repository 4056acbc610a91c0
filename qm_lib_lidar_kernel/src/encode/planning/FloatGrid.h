// A grid with a scale and an offset that represents all samples of a floating-point channel exactly: each
// sample is, bit for bit, an integer times the scale plus the offset. Most surveys store their coordinates
// this way, and many their GPS times. The channel is then coded losslessly as those integers.
//
// The scale becomes the scale of the channel in the file: queries widen a box of coordinates by half of it,
// and text is written with its number of decimals. A grid that the source does not declare must therefore not
// be coarser than the expected precision of coordinates, and its decimals must show the samples exactly.
#pragma once

#include <vxunpack/PointData.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

struct FloatGrid
{
    double scale = 0;
    double offset = 0;
    // 10^d if the scale is shown with d decimals, so that all samples must be decimals with d places; else 0.
    double decimals = 0;
    std::int64_t low = INT64_MAX; // range of the integers so far
    std::int64_t high = INT64_MIN;

    // Whether the grid also represents these samples of a FLOAT32 or FLOAT64 channel. Extends the range of
    // the integers.
    bool hold(const ChannelData& channel, std::size_t count) noexcept;

    bool isSame(const FloatGrid& other) const noexcept
    {
        return scale == other.scale && offset == other.offset && decimals == other.decimals;
    }
    FloatGrid withoutRange() const noexcept { return {scale, offset, decimals}; }
    // Extends the range by the integer nearest to a value. Ignores values that have none.
    void include(double value) noexcept;

    // The grids that represent the first samples of a channel, best first: the first suitable one of
    // `declared`, where an offset of NaN means zero or a whole number near the data; or else the coarsest one
    // and two finer ones, in case later samples need them.
    static std::vector<FloatGrid> find(const ChannelData& channel, std::size_t count,
                                       const std::vector<FloatGrid>& declared, bool isCoordinate);
};

} // namespace Quillmoran
