// The cells of a picture, and the loops that put points into them.
#pragma once

#include "view/Projection.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace Quillmoran {

// The visible point of each cell. Of points at the same depth it is the first, so that cells depend on the order
// of the points only. Used by one thread at a time.
struct Cells
{
    static constexpr float empty = -std::numeric_limits<float>::infinity();

    Cells(std::size_t numColumns, std::size_t numRows)
        : columns(numColumns),
          rows(numRows),
          depths(numColumns * numRows, empty),
          values(numColumns * numRows)
    {}

    std::size_t size() const { return depths.size(); }
    bool isEmpty(std::size_t cell) const { return depths[cell] == empty; }

    std::size_t columns, rows;
    std::vector<float> depths;         // larger is nearer; by row, from the top
    std::vector<double> values;        // of the quantity that is drawn
    std::vector<std::uint32_t> counts; // of points; empty if they are not needed
};

// Colours are numbers below 2^48, so that cells of all quantities have the same type.
constexpr double packColor(std::uint16_t red, std::uint16_t green, std::uint16_t blue) noexcept
{
    return static_cast<double>(std::uint64_t{red} << 32 | std::uint64_t{green} << 16 | blue);
}

namespace CellLoops {

// Of a point that is not in the picture.
inline constexpr std::uint32_t outside = std::numeric_limits<std::uint32_t>::max();

// The cell and the depth of each point. Points whose coordinates are not numbers are outside. Depths are relative
// to `origin`, so that single precision resolves them. Returns the number of points in the picture.
std::size_t findFromAbove(const Projection& projection, double origin, const double* x, const double* y,
                          const double* z, std::size_t count, std::uint32_t* cells, float* depths);
// Only points whose distance along the line is in a range, without its end.
std::size_t findInSection(const Projection& projection, const Bounds::Range& along, const double* x,
                          const double* y, const double* z, std::size_t count, std::uint32_t* cells,
                          float* depths);

// Points whose value is NaN are left out. Returns the number of those that would be visible.
std::size_t keepFront(const std::uint32_t* found, const float* depths, const double* values,
                      std::size_t count, Cells& cells);
void countPoints(const std::uint32_t* found, std::size_t count, Cells& cells);

} // namespace CellLoops

} // namespace Quillmoran
