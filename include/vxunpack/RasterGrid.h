// The cells of a raster. Cells are squares whose edges are multiples of the resolution, so that rasters of
// one resolution fit together without gaps and overlaps, wherever they were cut.
//
// A cell is half-open: cell i of an axis is [i * resolution, (i + 1) * resolution). A coordinate less than a
// billionth of a cell below an edge is on the edge, since coordinates and resolutions have rounding errors:
// 0.3 is in cell 3 of the resolution 0.1.
#pragma once

#include <vxunpack/Bounds.h>
#include <vxunpack/Export.h>

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

struct QM_API RasterGrid
{
    double resolution = 1;  // the edge of a cell, in the units of the coordinates
    std::int64_t west = 0;  // index of the cells of the first column
    std::int64_t north = 0; // index of the cells of the first row, which is the northern one
    std::size_t columns = 0;
    std::size_t rows = 0;

    // The cells that share an area with the box, or, on the sides where it is unbounded, the cells of all
    // points in the bounds. Throws InvalidArgument for a resolution that is not above 0 or too fine, for an
    // empty range, and for more than 2^31 - 1 columns or rows.
    static RasterGrid make(const Bounds& box, const Bounds& points, double resolution);
    // The index of the cell on one axis, for a coordinate of up to 2^40 times the resolution.
    static std::int64_t cellOf(double coordinate, double resolution) noexcept;

    double xMin() const noexcept { return static_cast<double>(west) * resolution; }
    double yMax() const noexcept { return static_cast<double>(north + 1) * resolution; }
    double xMax() const noexcept
    {
        return static_cast<double>(west + static_cast<std::int64_t>(columns)) * resolution;
    }
    double yMin() const noexcept
    {
        return static_cast<double>(north + 1 - static_cast<std::int64_t>(rows)) * resolution;
    }
    std::uint64_t numCells() const noexcept { return std::uint64_t{columns} * rows; }

    // A part of the same cells, from a column and a row on.
    RasterGrid part(std::size_t column, std::size_t row, std::size_t numColumns,
                    std::size_t numRows) const noexcept;
    // A box, unbounded in Z, which holds all points of the cells and a margin for rounding errors.
    Bounds queryBox() const noexcept;

    bool operator==(const RasterGrid&) const = default;
};

} // namespace Quillmoran
