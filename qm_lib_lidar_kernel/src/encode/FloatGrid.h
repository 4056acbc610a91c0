// A grid of equal steps that holds all samples of a floating-point channel: each is, bit for bit, an integer
// times the scale plus the offset. Surveys have stored most coordinates and many times so, and such a channel
// is coded as those integers, without loss.
#pragma once

#include "model/PointData.h"
#include "platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

struct QM_API FloatGrid
{
    double scale = 0;
    double offset = 0;
    std::int64_t low = INT64_MAX; // of the integers seen
    std::int64_t high = INT64_MIN;

    // Whether the grid holds these samples too, of a FLOAT32 or FLOAT64 channel. Widens the range of the
    // integers.
    bool hold(const ChannelData& channel, std::size_t count) noexcept;

    // The grids that hold the samples with which a channel begins, best first: of `declared` or, when none of
    // those does, the coarsest one and two finer ones, in case that later samples need them.
    static std::vector<FloatGrid> find(const ChannelData& channel, std::size_t count,
                                       const std::vector<FloatGrid>& declared);
};

} // namespace Quillmoran
