// A grid of equal steps that holds all samples of a floating-point channel: each is, bit for bit, an integer
// times the scale plus the offset. Surveys have stored most coordinates and many times so, and such a channel
// is coded as those integers, without loss.
//
// The scale becomes the channel's step for whoever reads the file: queries widen a box of coordinates by half
// of it, and text is written with as many decimals as it has. A grid that the source does not declare must
// therefore not be coarser than coordinates are asked for, nor have decimals that do not show its samples
// whole.
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
    std::int64_t low = INT64_MAX; // of the integers seen
    std::int64_t high = INT64_MIN;

    // Whether the grid holds these samples too, of a FLOAT32 or FLOAT64 channel. Widens the range of the
    // integers.
    bool hold(const ChannelData& channel, std::size_t count) noexcept;

    // The grids that hold the samples with which a channel begins, best first: the first of `declared` that
    // does, where an offset of NaN stands for zero and for a whole number near the data; or else the coarsest
    // one and two finer ones, in case that later samples need them.
    static std::vector<FloatGrid> find(const ChannelData& channel, std::size_t count,
                                       const std::vector<FloatGrid>& declared, bool isCoordinate);

    // 10^d when the scale shows as d decimals, so that all samples must be decimals of that many places; else
    // 0.
    double decimals = 0;
};

} // namespace Quillmoran
