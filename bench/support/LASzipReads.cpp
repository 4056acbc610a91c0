#include "support/LASzipReads.h"

#include "support/LASzipHandle.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <laszip/laszip_api_version.h>
#include <vector>

namespace Quillmoran::Benchmarks {

namespace {

template <class Visit>
void visitPoints(const std::string& path, Visit visit)
{
    LASzipHandle reader;
    const std::uint64_t numPoints = reader.openReader(path);
    for (std::uint64_t i = 0; i < numPoints; ++i) {
        reader.check(laszip_read_point(reader.get()));
        double position[3];
        reader.check(laszip_get_coordinates(reader.get(), position));
        visit(position[0], position[1]);
    }
    reader.check(laszip_close_reader(reader.get()));
}

// How many points are in each square cell of a cloud.
class Histogram
{
public:
    Histogram(const Window& extent, double cell)
        : m_extent(extent),
          m_cell(cell),
          m_numColumns(toIndex(extent.maxX - extent.minX) + 1),
          m_numRows(toIndex(extent.maxY - extent.minY) + 1),
          m_counts(m_numColumns * m_numRows)
    {}

    void add(double x, double y)
    {
        const std::size_t column = std::min(toIndex(x - m_extent.minX), m_numColumns - 1);
        const std::size_t row = std::min(toIndex(y - m_extent.minY), m_numRows - 1);
        ++m_counts[row * m_numColumns + column];
        ++m_numPoints;
    }

    // The square of so many cells on a side whose share of the points is nearest to this one.
    Window findSquare(std::size_t numCells, double share) const
    {
        const double wanted = share * static_cast<double>(m_numPoints);
        double leastError = static_cast<double>(m_numPoints) + 1;
        Window best;
        for (std::size_t row = 0; row + numCells <= m_numRows; ++row)
            for (std::size_t column = 0; column + numCells <= m_numColumns; ++column) {
                const double error = std::abs(static_cast<double>(count(column, row, numCells)) - wanted);
                if (error >= leastError)
                    continue;
                leastError = error;
                best.minX = m_extent.minX + static_cast<double>(column) * m_cell;
                best.minY = m_extent.minY + static_cast<double>(row) * m_cell;
                best.maxX = best.minX + static_cast<double>(numCells) * m_cell;
                best.maxY = best.minY + static_cast<double>(numCells) * m_cell;
            }
        return best;
    }

private:
    std::size_t toIndex(double distance) const
    {
        return static_cast<std::size_t>(std::max(distance / m_cell, 0.0));
    }

    std::int64_t count(std::size_t column, std::size_t row, std::size_t numCells) const
    {
        std::int64_t sum = 0;
        for (std::size_t y = row; y < row + numCells; ++y)
            for (std::size_t x = column; x < column + numCells; ++x)
                sum += m_counts[y * m_numColumns + x];
        return sum;
    }

    Window m_extent;
    double m_cell;
    std::size_t m_numColumns;
    std::size_t m_numRows;
    std::vector<std::int64_t> m_counts;
    std::int64_t m_numPoints = 0;
};

// A quarter of a step before a step or behind one: half a step farther out there is none either.
double betweenSteps(double value, bool isMin, double scale, double offset)
{
    return (std::floor((value - offset) / scale) + (isMin ? 0.75 : 0.25)) * scale + offset;
}

} // namespace

std::string getLASzipVersion()
{
    // The library itself tells the version of its coder, which is older.
    char text[32];
    std::snprintf(text, sizeof text, "%d.%d.%d", LASZIP_API_VERSION_MAJOR, LASZIP_API_VERSION_MINOR,
                  LASZIP_API_VERSION_PATCH);
    return text;
}

std::int64_t decodeWithLASzip(const std::string& path)
{
    LASzipHandle reader;
    const std::uint64_t numPoints = reader.openReader(path);
    for (std::uint64_t i = 0; i < numPoints; ++i)
        reader.check(laszip_read_point(reader.get()));
    reader.check(laszip_close_reader(reader.get()));
    return static_cast<std::int64_t>(numPoints);
}

std::int64_t readWindowWithLASzip(const std::string& path, const Window& window)
{
    LASzipHandle reader;
    reader.check(laszip_exploit_spatial_index(reader.get(), 1));
    reader.openReader(path);
    laszip_BOOL hasIndex = 0;
    laszip_BOOL isAppended = 0;
    reader.check(laszip_has_spatial_index(reader.get(), &hasIndex, &isAppended));
    if (!hasIndex)
        QM_THROW(ErrorCode::General, "%s has no spatial index", path.c_str());
    laszip_BOOL isEmpty = 0;
    reader.check(
        laszip_inside_rectangle(reader.get(), window.minX, window.minY, window.maxX, window.maxY, &isEmpty));
    std::int64_t numPoints = 0;
    for (laszip_BOOL isDone = isEmpty;;) {
        if (!isDone)
            reader.check(laszip_read_inside_point(reader.get(), &isDone));
        if (isDone)
            break;
        ++numPoints;
    }
    reader.check(laszip_close_reader(reader.get()));
    return numPoints;
}

Window findWindow(const std::string& path, double share)
{
    constexpr std::size_t cellsPerSide = 4;

    LASzipHandle reader;
    reader.openReader(path);
    const laszip_header_struct& header = reader.header();
    const Window extent{header.min_x, header.max_x, header.min_y, header.max_y};
    const double side = std::sqrt(share * (extent.maxX - extent.minX) * (extent.maxY - extent.minY));
    Histogram histogram(extent, side / cellsPerSide);
    visitPoints(path, [&](double x, double y) { histogram.add(x, y); });

    Window window = histogram.findSquare(cellsPerSide, share);
    window.minX = betweenSteps(window.minX, true, header.x_scale_factor, header.x_offset);
    window.maxX = betweenSteps(window.maxX, false, header.x_scale_factor, header.x_offset);
    window.minY = betweenSteps(window.minY, true, header.y_scale_factor, header.y_offset);
    window.maxY = betweenSteps(window.maxY, false, header.y_scale_factor, header.y_offset);
    return window;
}

std::int64_t countInWindow(const std::string& path, const Window& window)
{
    std::int64_t numPoints = 0;
    visitPoints(path, [&](double x, double y) {
        const bool isInside = x >= window.minX && x <= window.maxX && y >= window.minY && y <= window.maxY;
        numPoints += isInside ? 1 : 0;
    });
    return numPoints;
}

} // namespace Quillmoran::Benchmarks
