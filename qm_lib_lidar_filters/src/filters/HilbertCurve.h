// The Hilbert curve through the cells of a square: it visits each cell once and goes from a cell only to one
// that shares a side with it, so that points near each other on the curve are near each other on the ground.
// Its orientation in a quarter follows from that of the whole by a swap and a complement of the coordinates:
// "A class of fast algorithms for the Peano-Hilbert space-filling curve", 1994.
#pragma once

#include <vxunpack/Bounds.h>

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

// The place of a cell of a square of 2^32 by 2^32 on the curve, which begins at (0, 0) and ends at the other
// end of the x axis.
std::uint64_t getHilbertKey(std::uint32_t x, std::uint32_t y) noexcept;

// Lays the square over coordinates. What lies outside belongs to the nearest cell of its edge, what is not a
// number to the first cell of its axis: every point has a key.
class HilbertGrid
{
public:
    // Covers the part of `known` inside the box. Where that is nothing or has no end, the square is one that
    // holds the coordinates of every projection.
    HilbertGrid(const Bounds& known, const Bounds& box) noexcept;

    void getKeys(std::uint64_t* keys, const double* x, const double* y, std::size_t count) const noexcept;

private:
    double m_x, m_y;  // the lower corner
    double m_density; // cells per unit
};

} // namespace Quillmoran
