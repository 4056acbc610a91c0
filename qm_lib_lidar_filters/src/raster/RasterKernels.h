// The inner loops of rasters. A list of hits is two arrays: the indices of points in a block and the indices
// of their cells in the raster.
#pragma once

#include <vxunpack/DataType.h>
#include <vxunpack/RasterGrid.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Quillmoran {

// The sum of a cell in two doubles, 106 bits: the sum of samples that are printed in decimals is exact, so
// that their order has no effect.
struct CellSum
{
    double high = 0, low = 0; // the sum, and what rounding it to `high` has lost
    std::uint64_t count = 0;

    void add(double value) noexcept
    {
        const double sum = high + value, added = sum - high;
        const double lost = (high - (sum - added)) + (value - added);
        const double rest = low + lost;
        high = sum + rest;
        low = rest - (high - sum);
    }
};

namespace RasterKernels {

struct Hits
{
    std::uint32_t* points;
    std::uint32_t* cells;
};

using ClassTable = std::array<bool, 256>; // true for classes that are kept

// Lists the points in the grid, which has fewer than 2^32 cells, and returns their number.
std::size_t findCells(const RasterGrid& grid, const double* x, const double* y, std::size_t count,
                      Hits hits) noexcept;
// Both copy the hits that are kept to `kept`, which may be `hits`, and return their number. Codes are class
// or return numbers, -1 for any that does not fit into a byte.
std::size_t keepClasses(const ClassTable& classes, const std::int16_t* codes, Hits hits, std::size_t count,
                        Hits kept) noexcept;
std::size_t keepFirst(const std::int16_t* numbers, Hits hits, std::size_t count, Hits kept) noexcept;
std::size_t keepLast(const std::int16_t* numbers, const std::int16_t* totals, Hits hits, std::size_t count,
                     Hits kept) noexcept;

// Converts samples of any type.
void toDoubles(const void* samples, DataType type, std::size_t count, double* values) noexcept;
void toCodes(const void* samples, DataType type, std::size_t count, std::int16_t* codes) noexcept;

// Add the hits to the cells. Values that are not finite are ignored.
void count(Hits hits, std::size_t numHits, std::uint64_t* cells) noexcept;
void minimize(Hits hits, std::size_t numHits, const double* values, double* cells) noexcept;
void maximize(Hits hits, std::size_t numHits, const double* values, double* cells) noexcept;
void sum(Hits hits, std::size_t numHits, const double* values, CellSum* cells) noexcept;

} // namespace RasterKernels

} // namespace Quillmoran
