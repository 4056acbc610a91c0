#include <vxunpack/RasterGrid.h>

#include "raster/CellIndex.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

// The tolerance of indices is far below the size of a cell up to here.
constexpr double maxIndex = 0x1p40;
constexpr std::int64_t maxLength = INT32_MAX; // of an image in GDAL

// A range of cells, up to the end.
struct Cells
{
    std::int64_t begin, end;
    std::size_t size() const { return static_cast<std::size_t>(end - begin); }
};

Cells findCells(const Bounds::Range& box, const Bounds::Range& points, double resolution)
{
    const double min = std::isfinite(box.min) ? box.min : points.min;
    const double max = std::isfinite(box.max) ? box.max : points.max;
    if (!(std::isfinite(min) && std::isfinite(max) && min <= max))
        QM_THROW(ErrorCode::InvalidArgument, "the raster has no extent: %g to %g", min, max);
    if (std::max(std::fabs(min), std::fabs(max)) / resolution > maxIndex)
        QM_THROW(ErrorCode::InvalidArgument, "the resolution %g is too fine for coordinates of %g to %g",
                 resolution, min, max);
    // A point on an edge is in the cell after it, while a box ends there: its end is rounded up, as the
    // beginning on a mirrored axis.
    const std::int64_t begin = RasterGrid::cellOf(min, resolution);
    const std::int64_t end = std::isfinite(box.max) ? -RasterGrid::cellOf(-max, resolution)
                                                    : RasterGrid::cellOf(max, resolution) + 1;
    const Cells cells{begin, std::max(end, begin + 1)};
    if (cells.end - cells.begin > maxLength)
        QM_THROW(ErrorCode::InvalidArgument,
                 "the resolution %g is too fine: a row or column of the raster would have %lld cells",
                 resolution, static_cast<long long>(cells.end - cells.begin));
    return cells;
}

} // namespace

std::int64_t RasterGrid::cellOf(double coordinate, double resolution) noexcept
{
    return toIndex(toCellUnits(coordinate, resolution));
}

RasterGrid RasterGrid::make(const Bounds& box, const Bounds& points, double resolution)
{
    if (!(std::isfinite(resolution) && resolution > 0))
        QM_THROW(ErrorCode::InvalidArgument, "the resolution is %g, it must be above 0", resolution);
    const Cells x = findCells(box.x, points.x, resolution), y = findCells(box.y, points.y, resolution);
    return {resolution, x.begin, y.end - 1, x.size(), y.size()};
}

RasterGrid RasterGrid::part(std::size_t column, std::size_t row, std::size_t numColumns,
                            std::size_t numRows) const noexcept
{
    return {resolution, west + static_cast<std::int64_t>(column), north - static_cast<std::int64_t>(row),
            numColumns, numRows};
}

Bounds RasterGrid::queryBox() const noexcept
{
    const auto widened = [this](double min, double max) {
        const double margin =
            std::ldexp(std::max(std::fabs(min), std::fabs(max)), -48) + std::ldexp(resolution, -20);
        return Bounds::Range{min - margin, max + margin};
    };
    return {widened(xMin(), xMax()), widened(yMin(), yMax()), Bounds::Huge().z};
}

} // namespace Quillmoran
