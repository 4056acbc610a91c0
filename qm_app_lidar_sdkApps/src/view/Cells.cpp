#include "view/Cells.h"

#include <algorithm>
#include <cmath>

namespace Quillmoran::CellLoops {

namespace {

// The last edge belongs to the last cell, and what is just outside to the cell next to it.
std::uint32_t clampToCell(double position, std::uint32_t count)
{
    return position > 0 ? std::min(static_cast<std::uint32_t>(position), count - 1) : 0;
}

// A point in the coordinates of a picture. The depth grows towards the viewer.
struct Place
{
    double across, up, depth;
    bool isWanted;
};

template <class Locate>
std::size_t findCells(const Projection& projection, std::size_t count, std::uint32_t* cells, float* depths,
                      const Locate& locate)
{
    const Bounds::Range across = projection.across, up = projection.up;
    const double width = projection.cellWidth, height = projection.cellHeight;
    const double beyond = projection.tolerance(), beyondUp = beyond / projection.exaggeration();
    const auto columns = static_cast<std::uint32_t>(projection.columns);
    const auto rows = static_cast<std::uint32_t>(projection.rows);
    std::size_t numFound = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Place place = locate(i);
        depths[i] = static_cast<float>(place.depth);
        const bool isInside = place.isWanted && place.across >= across.min - beyond &&
                              place.across <= across.max + beyond && place.up >= up.min - beyondUp &&
                              place.up <= up.max + beyondUp &&
                              std::abs(depths[i]) < std::numeric_limits<float>::infinity();
        if (!isInside) {
            cells[i] = outside;
            continue;
        }
        const std::uint32_t column = clampToCell((place.across - across.min) / width, columns);
        const std::uint32_t row = clampToCell((up.max - place.up) / height, rows);
        cells[i] = row * columns + column;
        ++numFound;
    }
    return numFound;
}

} // namespace

std::size_t findFromAbove(const Projection& projection, double origin, const double* x, const double* y,
                          const double* z, std::size_t count, std::uint32_t* cells, float* depths)
{
    return findCells(projection, count, cells, depths, [=](std::size_t i) {
        return Place{x[i], y[i], z[i] - origin, true};
    });
}

std::size_t findInSection(const Projection& projection, const Bounds::Range& part, const double* x,
                          const double* y, const double* z, std::size_t count, std::uint32_t* cells,
                          float* depths)
{
    const Corridor& line = projection.corridor;
    const double length = line.length(), halfWidth = line.width / 2, x0 = line.x0, y0 = line.y0;
    const double east = (line.x1 - x0) / length, north = (line.y1 - y0) / length;
    return findCells(projection, count, cells, depths, [=](std::size_t i) {
        const double dx = x[i] - x0, dy = y[i] - y0;
        const double along = dx * east + dy * north, left = dy * east - dx * north;
        return Place{along, z[i], -left,
                     along >= part.min && along < part.max && std::abs(left) <= halfWidth};
    });
}

std::size_t keepFront(const std::uint32_t* found, const float* depths, const double* values,
                      std::size_t count, Cells& cells)
{
    float* const front = cells.depths.data();
    double* const kept = cells.values.data();
    std::size_t numNaN = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t cell = found[i];
        if (cell == outside || !(depths[i] > front[cell]))
            continue;
        if (std::isnan(values[i])) {
            ++numNaN;
            continue;
        }
        front[cell] = depths[i];
        kept[cell] = values[i];
    }
    return numNaN;
}

void countPoints(const std::uint32_t* found, std::size_t count, Cells& cells)
{
    for (std::size_t i = 0; i < count; ++i)
        if (found[i] != outside)
            ++cells.counts[found[i]];
}

} // namespace Quillmoran::CellLoops
