#include "view/GapFilling.h"

#include "platform/ParallelLoop.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <functional>
#include <numbers>
#include <span>

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
    return static_cast<std::size_t>(std::clamp(std::ceil(reach), 1.0, static_cast<double>(largestRadius)));
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

// Calls visit(column) for the cells of a row of the area that have no point.
template <class Visit>
void forGaps(const CellMask& points, const CellMask& area, std::size_t row, Visit visit)
{
    const std::span<const std::uint64_t> filled = points.row(row), wanted = area.row(row);
    for (std::size_t word = 0; word < wanted.size(); ++word)
        for (std::uint64_t left = wanted[word] & ~filled[word]; left != 0; left &= left - 1)
            visit(word * wordBits + static_cast<std::size_t>(std::countr_zero(left)));
}

void fillWithNearest(Cells& cells, const CellMask& points, const CellMask& area, std::size_t radius)
{
    const std::vector<Offset> neighbours = listNeighbours(radius);
    forRows(cells.rows, [&](std::size_t begin, std::size_t end) {
        for (std::size_t row = begin; row < end; ++row)
            forGaps(points, area, row, [&](std::size_t column) {
                for (const Offset& offset : neighbours) {
                    const std::size_t x = column + static_cast<std::size_t>(offset.column),
                                      y = row + static_cast<std::size_t>(offset.row);
                    if (x >= cells.columns || y >= cells.rows || !points.contains(x, y))
                        continue; // negative numbers have wrapped
                    const std::size_t from = y * cells.columns + x, to = row * cells.columns + column;
                    cells.depths[to] = cells.depths[from];
                    cells.values[to] = cells.values[from];
                    break;
                }
            });
    });
}

// Weighted sums around points. Adding a row of weights to the cells around each point takes a fraction of the time that
// looking for points around each cell takes.
class WeightedSums
{
public:
    static constexpr std::size_t width = 16; // of a row of weights; more than twice the largest radius

    WeightedSums(const Cells& cells, const CellMask& points, std::size_t radius)
        : m_cells(cells), m_points(points), m_radius(radius), m_stride(cells.columns + width)
    {
        for (std::size_t row = 0; row <= 2 * radius; ++row) {
            auto& weights = m_weights.emplace_back();
            for (std::size_t column = 0; column <= 2 * radius; ++column) {
                const double x = static_cast<double>(column) - static_cast<double>(radius),
                             y = static_cast<double>(row) - static_cast<double>(radius);
                const double distance = std::max(x * x + y * y, 1.0); // squared
                weights[column] = static_cast<float>(1 / (distance * distance));
            }
        }
        for (std::size_t cell = 0; cell < cells.size() && m_origin == 0; ++cell)
            if (!cells.isEmpty(cell) && std::isfinite(cells.values[cell]))
                m_origin = cells.values[cell];
    }

    // The mean around the cells of the rows that are gaps.
    void fill(Cells& cells, const CellMask& area, std::size_t begin, std::size_t end) const
    {
        std::vector<float> sums((end - begin) * m_stride), weights(sums.size());
        for (std::size_t row = begin - std::min(begin, m_radius); row < std::min(end + m_radius, cells.rows);
             ++row)
            forPoints(row, [&](std::size_t column, float value) {
                for (std::size_t i = 0; i <= 2 * m_radius; ++i) {
                    const std::size_t to = row + i - m_radius; // below 0 it wraps
                    if (to < begin || to >= end)
                        continue;
                    const std::size_t at = (to - begin) * m_stride + column;
                    add(m_weights[i].data(), value, sums.data() + at, weights.data() + at);
                }
            });
        for (std::size_t row = begin; row < end; ++row)
            forGaps(m_points, area, row, [&](std::size_t column) {
                const std::size_t at = (row - begin) * m_stride + column + m_radius;
                if (!(weights[at] > 0))
                    return;
                cells.values[row * cells.columns + column] =
                    m_origin + static_cast<double>(sums[at] / weights[at]);
                cells.depths[row * cells.columns + column] = 0;
            });
    }

private:
    // The cells of a row with a point. A column of the sums is that of the first weight.
    template <class Visit>
    void forPoints(std::size_t row, Visit visit) const
    {
        const std::span<const std::uint64_t> words = m_points.row(row);
        for (std::size_t word = 0; word < words.size(); ++word)
            for (std::uint64_t left = words[word]; left != 0; left &= left - 1) {
                const std::size_t column = word * wordBits + static_cast<std::size_t>(std::countr_zero(left));
                visit(column, static_cast<float>(m_cells.values[row * m_cells.columns + column] - m_origin));
            }
    }
    static void add(const float* weights, float value, float* sums, float* sumsOfWeights)
    {
        for (std::size_t i = 0; i < width; ++i) {
            sums[i] += weights[i] * value;
            sumsOfWeights[i] += weights[i];
        }
    }

    const Cells& m_cells;
    const CellMask& m_points;
    const std::size_t m_radius;
    const std::size_t m_stride;
    double m_origin = 0; // of values, so that single precision is enough
    std::vector<std::array<float, width>> m_weights;
};

} // namespace

CellMask CellMask::ofPoints(const Cells& cells)
{
    CellMask mask(cells.columns, cells.rows);
    forRows(cells.rows, [&](std::size_t begin, std::size_t end) {
        for (std::size_t row = begin; row < end; ++row) {
            const float* const depths = cells.depths.data() + row * cells.columns;
            for (std::size_t word = 0; word < mask.m_words; ++word) {
                const std::size_t first = word * wordBits, count = std::min(wordBits, cells.columns - first);
                std::uint64_t bits = 0;
                for (std::size_t i = 0; i < count; ++i)
                    bits |= std::uint64_t{depths[first + i] != Cells::empty} << i;
                mask.m_bits[row * mask.m_words + word] = bits;
            }
        }
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
    if (radius == 0)
        return;
    const CellMask area = points.closed(radius);
    if (filling == Filling::Nearest)
        return fillWithNearest(cells, points, area, radius);
    const WeightedSums sums(cells, points, radius);
    forRows(cells.rows, [&](std::size_t begin, std::size_t end) { sums.fill(cells, area, begin, end); });
}

void growPoints(Cells& cells, std::size_t radius)
{
    const CellMask points = CellMask::ofPoints(cells);
    fillWithNearest(cells, points, points.dilated(radius), radius);
}

} // namespace Quillmoran
