// Fills the small gaps between points, so that an area with points is drawn as an area.
#pragma once

#include "view/Cells.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Quillmoran {

// One bit for each cell of a picture, a number of words for each row.
class CellMask
{
public:
    CellMask(std::size_t columns, std::size_t rows)
        : m_columns(columns), m_rows(rows), m_words((columns + 63) / 64), m_bits(m_words * rows)
    {}

    // The cells that have a point.
    static CellMask ofPoints(const Cells& cells);

    bool contains(std::size_t column, std::size_t row) const
    {
        return (m_bits[row * m_words + column / 64] >> column % 64 & 1) != 0;
    }
    // 64 cells in each number, the first one in its lowest bit.
    std::span<const std::uint64_t> row(std::size_t row) const
    {
        return std::span(m_bits).subspan(row * m_words, m_words);
    }
    std::size_t count() const;
    // All cells in circles of this radius, less than 64, around those of the mask.
    CellMask dilated(std::size_t radius) const;
    // The cells whose circles are in the mask, as is everything outside the picture.
    CellMask eroded(std::size_t radius) const;
    // Without gaps in which no circle has room. The border of a large empty area stays where it is.
    CellMask closed(std::size_t radius) const { return dilated(radius).eroded(radius); }

private:
    CellMask inverted() const;

    std::size_t m_columns, m_rows;
    std::size_t m_words;               // in a row
    std::vector<std::uint64_t> m_bits; // unused bits of a row are 0
};

enum class Filling
{
    Nearest, // the value of the nearest point, for colours and classes
    Mean     // the mean of the points around, mostly of the nearest, for quantities
};

// Gives the cells in gaps a value and a depth. The width of a gap follows from the density of the points where
// there are any. Uses all threads; the result does not depend on their number.
void fillGaps(Cells& cells, Filling filling);

// Draws each point as a dot: gives the empty cells of a circle around it its value. Of several points, a cell takes the
// nearest. Uses threads in the same way.
void growPoints(Cells& cells, std::size_t radius);

} // namespace Quillmoran
