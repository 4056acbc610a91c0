// The index of the cell of a coordinate: the only place that rounds. It depends on the coordinate and the
// resolution alone, not on the raster, so that parts of a raster agree about every point.
#pragma once

#include <cmath>
#include <cstdint>

namespace Quillmoran {

// The coordinate in cells, a little enlarged. The resolution, and a coordinate that was computed as n * scale
// + offset, have rounding errors of a few units in the last place, and near 0 those of the offset: without
// the tolerance, 0.3 / 0.1 would be in cell 2.
inline double toCellUnits(double coordinate, double resolution) noexcept
{
    const double cells = coordinate / resolution;
    return cells + (std::fabs(cells) * 0x1p-50 + 0x1p-30);
}

// The largest integer that is not above the number, which must be in the range of the type.
inline std::int64_t toIndex(double cells) noexcept
{
    const auto truncated = static_cast<std::int64_t>(cells);
    return truncated - (cells < static_cast<double>(truncated) ? 1 : 0);
}

} // namespace Quillmoran
