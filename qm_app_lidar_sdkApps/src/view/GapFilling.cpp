#include "view/GapFilling.h"

#include "platform/ParallelLoop.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <numbers>

namespace Quillmoran {

namespace {

constexpr std::size_t wordBits = 64;
constexpr std::size_t largestRadius = 6; // cells
constexpr std::size_t rowsPerTask = 64;

// Adds what is `shift` bits, less than a word, to the left and to the right of each bit of a row.
void spread(const std::uint64_t* from, std::uint64_t* to, std::size_t words, std::size_t shift)
{
    for (std::size_t i = 0; i < words; ++i) {
        to[i] |= from[i] << shift | from[i] >> shift;
        if (shift != 0 && i != 0)
            to[i] |= from[i - 1] >> (wordBits - shift);
        if (shift != 0 && i + 1 != words)
            to[i] |= from[i + 1] << (wordBits - shift);
    }
}

// Columns on each side of the centre that are in a circle, by the distance of the row.
std::vector<std::size_t> widthsOf(std::size_t radius)
{
    const double reach = static_cast<double>(radius) + 0.5; // rounder than circles of whole numbers
    std::vector<std::size_t> widths;
    for (std::size_t row = 0; row <= radius; ++row)
        widths.push_back(static_cast<std::size_t>(std::sqrt(reach * reach - static_cast<double>(row * row))));
    return widths;
}

void forRows(std::size_t rows, const std::function<void(std::size_t begin, std::size_t end)>& work)
{
    parallelLoop((rows + rowsPerTask - 1) / rowsPerTask, [&](std::size_t task) {
        work(task * rowsPerTask, std::min(rows, (task + 1) * rowsPerTask));
    });
}

// Points per cell where there are points, from the area that remains when wide gaps are closed.
std::size_t chooseRadius(const CellMask& points)
{
    // A circle of this many points on average is empty in 1 of 400 places.
    constexpr double enough = 6;
    const auto numPoints = static_cast<double>(points.count());
    const auto area = static_cast<double>(points.closed(largestRadius).count());
    if (numPoints == 0)
        return 0;
    const double reach = std::sqrt(enough * area / numPoints / std::numbers::pi);
    return static_cast<std::size_t>(
        std::clamp(std::ceil(reach), 1.0, static_cast<double>(largestRadius)));
}

struct Offset
{
    int column, row;
};

// The surroundings of a cell, the nearest first.
std::vector<Offset> listNeighbours(std::size_t radius)
{
    const int most = static_cast<int>(radius);
    std::vector<Offset> offsets;
    for (int row = -most; row <= most; ++row)
        for (int column = -most; column <= most; ++column)
            if (row != 0 || column != 0)
                offsets.push_back({column, row});
    const auto distance = [](const Offset& each) { return each.column * each.column + each.row * each.row; };
    std::stable_sort(offsets.begin(), offsets.end(),
                     [&](const Offset& a, const Offset& b) { return distance(a) < distance(b); });
    return offsets;
}

// The cells with points, while others are filled.
class Surroundings
{
public:
    Surroundings(const Cells& cells, const CellMask& points, std::size_t radius)
        : m_cells(cells), m_points(points), m_neighbours(listNeighbours(radius))
    {}

    // The first `wanted` neighbours of a cell that have points.
    template <class Visit>
    void visit(std::size_t column, std::size_t row, std::size_t wanted, Visit visit) const
    {
        for (const Offset& offset : m_neighbours) {
            const std::size_t x = column + static_cast<std::size_t>(offset.column),
                              y = row + static_cast<std::size_t>(offset.row);
            if (x >= m_cells.columns || y >= m_cells.rows || !m_points.contains(x, y))
                continue; // negative numbers have wrapped
            visit(y * m_cells.columns + x, offset);
            if (--wanted == 0)
                return;
        }
    }

private:
    const Cells& m_cells;
    const CellMask& m_points;
    const std::vector<Offset> m_neighbours;
};

void fillRow(Cells& cells, const CellMask& points, const CellMask& area, const Surroundings& around,
             std::size_t row, Filling filling)
{
    constexpr std::size_t meanOf = 4; // points
    for (std::size_t column = 0; column < cells.columns; ++column) {
        if (points.contains(column, row) || !area.contains(column, row))
            continue;
        const std::size_t cell = row * cells.columns + column;
        double sum = 0, weights = 0;
        const auto add = [&](std::size_t from, const Offset& offset) {
            if (weights == 0)
                cells.depths[cell] = cells.depths[from];
            const double weight = 1.0 / (offset.column * offset.column + offset.row * offset.row);
            sum += weight * cells.values[from];
            weights += weight;
        };
        const auto copy = [&](std::size_t from, const Offset&) {
            cells.depths[cell] = cells.depths[from];
            cells.values[cell] = cells.values[from];
        };
        if (filling == Filling::Nearest) {
            around.visit(column, row, 1, copy);
            continue;
        }
        around.visit(column, row, meanOf, add);
        if (weights != 0)
            cells.values[cell] = sum / weights;
    }
}

void fillArea(Cells& cells, const CellMask& points, const CellMask& area, std::size_t radius, Filling filling)
{
    const Surroundings around(cells, points, radius);
    forRows(cells.rows, [&](std::size_t begin, std::size_t end) {
        for (std::size_t row = begin; row < end; ++row)
            fillRow(cells, points, area, around, row, filling);
    });
}

} // namespace

CellMask CellMask::ofPoints(const Cells& cells)
{
    CellMask mask(cells.columns, cells.rows);
    forRows(cells.rows, [&](std::size_t begin, std::size_t end) {
        for (std::size_t row = begin; row < end; ++row)
            for (std::size_t column = 0; column < cells.columns; ++column)
                mask.m_bits[row * mask.m_words + column / wordBits] |=
                    std::uint64_t{!cells.isEmpty(row * cells.columns + column)} << column % wordBits;
    });
    return mask;
}

std::size_t CellMask::count() const
{
    std::size_t sum = 0;
    for (const std::uint64_t word : m_bits)
        sum += static_cast<std::size_t>(std::popcount(word));
    return sum;
}

CellMask CellMask::dilated(std::size_t radius) const
{
    const std::vector<std::size_t> widths = widthsOf(radius);
    CellMask result(m_columns, m_rows);
    forRows(m_rows, [&](std::size_t begin, std::size_t end) {
        std::vector<std::uint64_t> line(m_words);
        // Each row of the mask reaches the rows of its circle; only those from `begin` to `end` are changed.
        for (std::size_t from = begin - std::min(begin, radius); from < std::min(end + radius, m_rows);
             ++from) {
            const std::uint64_t* const source = m_bits.data() + from * m_words;
            if (std::all_of(source, source + m_words, [](std::uint64_t word) { return word == 0; }))
                continue;
            std::fill(line.begin(), line.end(), 0);
            std::size_t width = 0;
            spread(source, line.data(), m_words, 0);
            for (std::size_t row = radius + 1; row-- > 0;) { // the narrowest first
                for (; width < widths[row]; ++width)
                    spread(source, line.data(), m_words, width + 1);
                for (const std::size_t to : {from - row, from + row}) // below 0 it wraps
                    for (std::size_t i = 0; to >= begin && to < end && i < m_words; ++i)
                        result.m_bits[to * m_words + i] |= line[i];
            }
        }
    });
    const std::size_t used = m_columns % wordBits;
    for (std::size_t row = 0; used != 0 && row < m_rows; ++row)
        result.m_bits[(row + 1) * m_words - 1] &= (std::uint64_t{1} << used) - 1;
    return result;
}

CellMask CellMask::inverted() const
{
    CellMask result = *this;
    const std::size_t used = m_columns % wordBits;
    for (std::size_t i = 0; i < m_bits.size(); ++i) {
        result.m_bits[i] = ~m_bits[i];
        if (used != 0 && (i + 1) % m_words == 0)
            result.m_bits[i] &= (std::uint64_t{1} << used) - 1;
    }
    return result;
}

CellMask CellMask::eroded(std::size_t radius) const
{
    return inverted().dilated(radius).inverted();
}

void fillGaps(Cells& cells, Filling filling)
{
    const CellMask points = CellMask::ofPoints(cells);
    const std::size_t radius = chooseRadius(points);
    if (radius != 0)
        fillArea(cells, points, points.closed(radius), radius, filling);
}

void growPoints(Cells& cells, std::size_t radius)
{
    const CellMask points = CellMask::ofPoints(cells);
    fillArea(cells, points, points.dilated(radius), radius, Filling::Nearest);
}

} // namespace Quillmoran
