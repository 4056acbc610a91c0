#include "raster/RasterKernels.h"

#include "raster/CellIndex.h"

#include <cmath>

namespace Quillmoran::RasterKernels {

namespace {

// Copies the hits for whose points keeps() is true, without branches that depend on the points.
template <class Keeps>
std::size_t keep(Hits hits, std::size_t count, Hits kept, Keeps keeps) noexcept
{
    std::size_t numKept = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t point = hits.points[i], cell = hits.cells[i];
        kept.points[numKept] = point;
        kept.cells[numKept] = cell;
        numKept += keeps(point) ? 1 : 0;
    }
    return numKept;
}

} // namespace

std::size_t findCells(const RasterGrid& grid, const double* x, const double* y, std::size_t count,
                      Hits hits) noexcept
{
    const double resolution = grid.resolution;
    const std::int64_t west = grid.west, north = grid.north;
    const auto columns = static_cast<std::int64_t>(grid.columns);
    const auto left = static_cast<double>(west), right = static_cast<double>(west + columns);
    const auto top = static_cast<double>(north + 1);
    const auto bottom = static_cast<double>(north + 1 - static_cast<std::int64_t>(grid.rows));
    std::size_t numHits = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double cellX = toCellUnits(x[i], resolution), cellY = toCellUnits(y[i], resolution);
        // False for NaN. Other coordinates are not converted to integers, which would be undefined.
        const bool isInside = cellX >= left && cellX < right && cellY >= bottom && cellY < top;
        const std::int64_t column = toIndex(isInside ? cellX : left) - west;
        const std::int64_t row = north - toIndex(isInside ? cellY : bottom);
        hits.points[numHits] = static_cast<std::uint32_t>(i);
        hits.cells[numHits] = static_cast<std::uint32_t>(row * columns + column);
        numHits += isInside ? 1 : 0;
    }
    return numHits;
}

std::size_t keepClasses(const ClassTable& classes, const std::int16_t* codes, Hits hits, std::size_t count,
                        Hits kept) noexcept
{
    return keep(hits, count, kept, [&](std::uint32_t point) {
        const std::int16_t code = codes[point];
        return code >= 0 && classes[static_cast<std::size_t>(code)];
    });
}

std::size_t keepFirst(const std::int16_t* numbers, Hits hits, std::size_t count, Hits kept) noexcept
{
    return keep(hits, count, kept, [&](std::uint32_t point) { return numbers[point] <= 1; });
}

std::size_t keepLast(const std::int16_t* numbers, const std::int16_t* totals, Hits hits, std::size_t count,
                     Hits kept) noexcept
{
    return keep(hits, count, kept, [&](std::uint32_t point) { return numbers[point] >= totals[point]; });
}

void toDoubles(const void* samples, DataType type, std::size_t count, double* values) noexcept
{
    visitDataType(type, [&](auto zero) {
        const auto* const typed = static_cast<const decltype(zero)*>(samples);
        for (std::size_t i = 0; i < count; ++i)
            values[i] = static_cast<double>(typed[i]);
    });
}

void toCodes(const void* samples, DataType type, std::size_t count, std::int16_t* codes) noexcept
{
    visitDataType(type, [&](auto zero) {
        const auto* const typed = static_cast<const decltype(zero)*>(samples);
        for (std::size_t i = 0; i < count; ++i) {
            const auto value = static_cast<double>(typed[i]);
            codes[i] = value >= 0 && value <= UINT8_MAX ? static_cast<std::int16_t>(value) : std::int16_t{-1};
        }
    });
}

void count(Hits hits, std::size_t numHits, std::uint64_t* cells) noexcept
{
    for (std::size_t i = 0; i < numHits; ++i)
        ++cells[hits.cells[i]];
}

void minimize(Hits hits, std::size_t numHits, const double* values, double* cells) noexcept
{
    for (std::size_t i = 0; i < numHits; ++i) {
        const double value = values[hits.points[i]];
        double& cell = cells[hits.cells[i]];
        if (value < cell && std::isfinite(value))
            cell = value;
    }
}

void maximize(Hits hits, std::size_t numHits, const double* values, double* cells) noexcept
{
    for (std::size_t i = 0; i < numHits; ++i) {
        const double value = values[hits.points[i]];
        double& cell = cells[hits.cells[i]];
        if (value > cell && std::isfinite(value))
            cell = value;
    }
}

void sum(Hits hits, std::size_t numHits, const double* values, CellSum* cells) noexcept
{
    for (std::size_t i = 0; i < numHits; ++i) {
        const double value = values[hits.points[i]];
        if (!std::isfinite(value))
            continue;
        CellSum& cell = cells[hits.cells[i]];
        cell.add(value);
        ++cell.count;
    }
}

} // namespace Quillmoran::RasterKernels
