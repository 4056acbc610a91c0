// The Hilbert curve through the cells of a square. It visits each cell once and moves only between cells with
// a common side, so points near each other on the curve are near each other on the ground. Its orientation in
// a quarter results from that of the whole by a swap and a complement of the coordinates: "A class of fast
// algorithms for the Peano-Hilbert space-filling curve", 1994.
#pragma once

#include <vxunpack/Bounds.h>

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

// The position on the curve of a cell in a square of 2^32 by 2^32 cells. The curve begins at (0, 0) and ends
// at the other end of the x axis.
std::uint64_t getHilbertKey(std::uint32_t x, std::uint32_t y) noexcept;

// Maps coordinates to cells of the square. Coordinates outside map to the nearest cell of its edge, NaN to
// the first cell of its axis: every point has a key.
class HilbertGrid
{
public:
    // Covers the intersection of `known` and the box. If that is empty or unbounded, the square covers the
    // coordinates of every projection.
    HilbertGrid(const Bounds& known, const Bounds& box) noexcept;

    void getKeys(std::uint64_t* keys, const double* x, const double* y, std::size_t count) const noexcept;

private:
    double m_x, m_y;  // the lower corner
    double m_density; // cells per unit
};

} // namespace Quillmoran
