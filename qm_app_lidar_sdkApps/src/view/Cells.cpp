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

} // namespace

std::size_t findFromAbove(const Projection& projection, double origin, const double* x, const double* y,
                          const double* z, std::size_t count, std::uint32_t* cells, float* depths)
{
    const double xMin = projection.across.min, xMax = projection.across.max;
    const double yMin = projection.up.min, yMax = projection.up.max;
    const double width = projection.cellWidth, height = projection.cellHeight;
    const double beyond = projection.tolerance(), beyondUp = beyond / projection.exaggeration();
    const auto columns = static_cast<std::uint32_t>(projection.columns);
    const auto rows = static_cast<std::uint32_t>(projection.rows);
    std::size_t numFound = 0;
    for (std::size_t i = 0; i < count; ++i) {
        depths[i] = static_cast<float>(z[i] - origin);
        const bool isInside = x[i] >= xMin - beyond && x[i] <= xMax + beyond && y[i] >= yMin - beyondUp &&
                              y[i] <= yMax + beyondUp &&
                              std::abs(depths[i]) < std::numeric_limits<float>::infinity();
        if (!isInside) {
            cells[i] = outside;
            continue;
        }
        const std::uint32_t column = clampToCell((x[i] - xMin) / width, columns);
        const std::uint32_t row = clampToCell((yMax - y[i]) / height, rows);
        cells[i] = row * columns + column;
        ++numFound;
    }
    return numFound;
}

std::size_t findInSection(const Projection& projection, const Bounds::Range& part, const double* x,
                          const double* y, const double* z, std::size_t count, std::uint32_t* cells,
                          float* depths)
{
    const Corridor& line = projection.corridor;
    const double length = line.length(), halfWidth = line.width / 2;
    const double east = (line.x1 - line.x0) / length, north = (line.y1 - line.y0) / length;
    const double zMin = projection.up.min, zMax = projection.up.max;
    const double first = projection.across.min, last = projection.across.max;
    const double width = projection.cellWidth, height = projection.cellHeight;
    const double beyond = projection.tolerance(), beyondUp = beyond / projection.exaggeration();
    const auto columns = static_cast<std::uint32_t>(projection.columns);
    const auto rows = static_cast<std::uint32_t>(projection.rows);
    std::size_t numFound = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double dx = x[i] - line.x0, dy = y[i] - line.y0;
        const double along = dx * east + dy * north, left = dy * east - dx * north;
        depths[i] = static_cast<float>(-left);
        const bool isInside = along >= first - beyond && along <= last + beyond && along >= part.min &&
                              along < part.max && std::abs(left) <= halfWidth && z[i] >= zMin - beyondUp &&
                              z[i] <= zMax + beyondUp &&
                              std::abs(depths[i]) < std::numeric_limits<float>::infinity();
        if (!isInside) {
            cells[i] = outside;
            continue;
        }
        const std::uint32_t column = clampToCell((along - first) / width, columns);
        const std::uint32_t row = clampToCell((zMax - z[i]) / height, rows);
        cells[i] = row * columns + column;
        ++numFound;
    }
    return numFound;
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
