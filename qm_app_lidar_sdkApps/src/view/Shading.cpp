#include "view/Shading.h"

#include "platform/ParallelLoop.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>

namespace Quillmoran {

namespace {

constexpr unsigned maxNumber = 255; // of nominal quantities; larger ones share a colour

std::uint64_t toInteger(double packed)
{
    return static_cast<std::uint64_t>(packed);
}

unsigned toNumber(double value)
{
    return static_cast<unsigned>(std::clamp(value, 0.0, static_cast<double>(maxNumber)));
}

// Of all cells, or of about 2^17 if there are more.
std::vector<double> sampleValues(const Cells& cells)
{
    constexpr std::size_t most = 131072;
    std::size_t step = cells.size() / most + 1;
    while (step != 1 && cells.columns % step == 0)
        ++step; // not always the same columns
    std::vector<double> values;
    for (std::size_t i = 0; i < cells.size(); i += step)
        if (!cells.isEmpty(i))
            values.push_back(cells.values[i]);
    return values;
}

// The values below and above which there are 2 % of all.
Bounds::Range findRange(std::vector<double> values)
{
    constexpr double tail = 0.02;
    if (values.empty())
        return {0, 1};
    const double last = static_cast<double>(values.size() - 1);
    const auto at = [&](double share) {
        const auto position = values.begin() + static_cast<std::ptrdiff_t>(std::lround(share * last));
        std::nth_element(values.begin(), position, values.end());
        return *position;
    };
    const Bounds::Range range = {at(tail), at(1 - tail)};
    if (range.min < range.max)
        return range;
    const auto [least, largest] = std::minmax_element(values.begin(), values.end());
    return {*least, *largest};
}

// Many files have 8 of 16 bits, some 10 or 12.
unsigned countBits(std::uint16_t allColors)
{
    for (const unsigned bits : {8u, 10u, 12u})
        if (allColors < 1u << bits)
            return bits;
    return 16;
}

// How bright each cell is in light from the north-west, at half of a right angle: 0 to 1. Slopes are those of Horn,
// "Hill shading and the reflectance map", 1981, in single precision.
class Hillshade
{
public:
    Hillshade(const Cells& cells, const Projection& projection, double origin)
        : m_cells(cells),
          m_origin(origin),
          m_perColumn(static_cast<float>(1 / (8 * projection.cellWidth))),
          m_perRow(static_cast<float>(1 / (8 * projection.cellHeight)))
    {
        // Plains and mountains get the same contrast.
        constexpr double usualSlope = 0.35, least = 1e-9, strongest = 50;
        const auto factor =
            static_cast<float>(std::min(strongest, usualSlope / std::max(findMeanSlope(), least)));
        m_perColumn *= factor;
        m_perRow *= factor;
    }

    // A row of the picture.
    std::vector<float> at(std::size_t row) const
    {
        std::vector<float> brightness(m_cells.columns);
        const Rows rows(*this, row);
        for (std::size_t i = 0; i < m_cells.columns; ++i) {
            const auto [east, north] = rows.slopeAt(i);
            const float light = (east - north) * 0.5f + 0.70710678f;
            const float shade = light / std::sqrt(1 + east * east + north * north);
            brightness[i] = shade > 0 ? shade : 0;
        }
        return brightness;
    }

private:
    struct Slope
    {
        float east, north;
    };

    // Elevations of a row and of its neighbours, with a cell more on both sides. Those of cells without a point, or
    // outside, are those of the cell in the middle.
    class Rows
    {
    public:
        Rows(const Hillshade& shade, std::size_t row) : m_shade(shade)
        {
            const std::size_t columns = shade.m_cells.columns, numRows = shade.m_cells.rows;
            for (std::size_t i = 0; i < 3; ++i) {
                m_rows[i].resize(columns + 2, std::numeric_limits<float>::quiet_NaN());
                const std::size_t y = row + i - 1; // below 0 it wraps
                if (y >= numRows)
                    continue;
                const double* const values = shade.m_cells.values.data() + y * columns;
                const float* const depths = shade.m_cells.depths.data() + y * columns;
                for (std::size_t x = 0; x < columns; ++x)
                    m_rows[i][x + 1] = depths[x] == Cells::empty
                                           ? std::numeric_limits<float>::quiet_NaN()
                                           : static_cast<float>(values[x] - shade.m_origin);
            }
        }

        Slope slopeAt(std::size_t column) const
        {
            const float* const above = m_rows[0].data() + column;
            const float* const level = m_rows[1].data() + column;
            const float* const below = m_rows[2].data() + column;
            const float center = level[1];
            const auto z = [center](float value) { return std::isnan(value) ? center : value; };
            const float northWest = z(above[0]), northEast = z(above[2]), southWest = z(below[0]),
                        southEast = z(below[2]);
            const float east = northEast + 2 * z(level[2]) + southEast,
                        west = northWest + 2 * z(level[0]) + southWest;
            const float north = northWest + 2 * z(above[1]) + northEast,
                        south = southWest + 2 * z(below[1]) + southEast;
            return {(east - west) * m_shade.m_perColumn, (north - south) * m_shade.m_perRow};
        }

    private:
        const Hillshade& m_shade;
        std::vector<float> m_rows[3];
    };

    // Of some of the rows.
    double findMeanSlope() const
    {
        constexpr std::size_t step = 17;
        double sum = 0, count = 0;
        for (std::size_t row = std::min(step / 2, m_cells.rows / 2); row < m_cells.rows; row += step) {
            const Rows rows(*this, row);
            for (std::size_t column = 0; column < m_cells.columns; ++column)
                if (!m_cells.isEmpty(row * m_cells.columns + column)) {
                    const auto [east, north] = rows.slopeAt(column);
                    sum += std::sqrt(static_cast<double>(east * east + north * north));
                    ++count;
                }
        }
        return count == 0 ? 0 : sum / count;
    }

    const Cells& m_cells;
    const double m_origin;       // of elevations
    float m_perColumn, m_perRow; // from sums of differences to slopes
};

Color shaded(Color color, float brightness)
{
    constexpr float ambient = 0.35f, direct = 0.92f; // flat ground keeps its colour
    const float factor = ambient + direct * brightness;
    const auto scale = [factor](std::uint8_t part) {
        return static_cast<std::uint8_t>(std::min(static_cast<float>(part) * factor + 0.5f, 255.0f));
    };
    return {scale(color.red), scale(color.green), scale(color.blue), color.alpha};
}

Color toColor(double packed, unsigned bits)
{
    const std::uint64_t all = toInteger(packed);
    const auto part = [&](unsigned shift) {
        const auto sample = static_cast<std::uint32_t>(all >> shift & 0xFFFF);
        return static_cast<std::uint8_t>(bits == 8 ? sample : sample >> (bits - 8));
    };
    return {part(32), part(16), part(0)};
}

} // namespace

Shading chooseShading(const Quantity& quantity, const CellPoints& points)
{
    const Cells& cells = points.cells;
    Shading shading;
    shading.kind = quantity.kind;
    switch (quantity.kind) {
    case Quantity::Colors:
        shading.bits = countBits(points.allColors);
        break;
    case Quantity::Class:
    case Quantity::Return: {
        bool occurs[maxNumber + 1] = {};
        for (std::size_t i = 0; i < cells.size(); ++i)
            if (!cells.isEmpty(i))
                occurs[toNumber(cells.values[i])] = true;
        for (unsigned number = 0; number <= maxNumber; ++number)
            if (occurs[number])
                shading.numbers.push_back(number);
        break;
    }
    case Quantity::Intensity:
        shading.ramp = ColorRamp::gray();
        shading.range = findRange(sampleValues(cells));
        break;
    case Quantity::Elevation:
    case Quantity::Hillshade:
        shading.range = findRange(sampleValues(cells));
        break;
    default:
        shading.ramp = ColorRamp::spectral();
        shading.range = findRange(sampleValues(cells));
    }
    return shading;
}

void computeDensity(Cells& cells, const Projection& projection, double fraction)
{
    constexpr double enough = 24; // points around a cell
    double numPoints = 0, numFilled = 0;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        numPoints += cells.counts[i];
        numFilled += !cells.isEmpty(i);
    }
    if (numPoints == 0)
        return;
    const auto radius = static_cast<std::size_t>(std::ceil(std::sqrt(enough * numFilled / numPoints) / 2));
    const double cellArea = projection.cellWidth * projection.cellHeight;
    // Sums of columns over a window of rows, which moves down.
    struct Sum
    {
        double points = 0, filled = 0;
    };
    std::vector<Sum> columns(cells.columns);
    const auto add = [&](std::size_t row, double sign) {
        for (std::size_t column = 0; column < cells.columns; ++column) {
            const std::size_t cell = row * cells.columns + column;
            columns[column].points += sign * cells.counts[cell];
            columns[column].filled += sign * !cells.isEmpty(cell);
        }
    };
    for (std::size_t row = 0; row < std::min(radius, cells.rows); ++row)
        add(row, 1);
    for (std::size_t row = 0; row < cells.rows; ++row) {
        if (row + radius < cells.rows)
            add(row + radius, 1);
        if (row > radius)
            add(row - radius - 1, -1);
        Sum window;
        const auto slide = [&](std::size_t column, double sign) {
            window.points += sign * columns[column].points;
            window.filled += sign * columns[column].filled;
        };
        for (std::size_t column = 0; column < std::min(radius, cells.columns); ++column)
            slide(column, 1);
        for (std::size_t column = 0; column < cells.columns; ++column) {
            if (column + radius < cells.columns)
                slide(column + radius, 1);
            if (column > radius)
                slide(column - radius - 1, -1);
            if (window.filled > 0)
                cells.values[row * cells.columns + column] =
                    window.points / (window.filled * cellArea * fraction);
        }
    }
}

void drawCells(const Cells& cells, const Projection& projection, const Shading& shading, Image& image,
               std::size_t left, std::size_t top)
{
    const std::size_t scale = projection.pixelsPerCell;
    std::vector<Color> numbered;
    for (unsigned number = 0; number <= maxNumber; ++number)
        numbered.push_back(shading.kind == Quantity::Class ? colorOfClass(number) : colorOfNumber(number));
    const bool isShaded = projection.view == View::Top &&
                          (shading.kind == Quantity::Elevation || shading.kind == Quantity::Hillshade);
    std::optional<Hillshade> hillshade;
    if (isShaded)
        hillshade.emplace(cells, projection, shading.range.min);
    const double low = shading.range.min, width = shading.range.max - shading.range.min;
    const double perUnit = width > 0 ? 1 / width : 0;

    const auto colorAt = [&](std::size_t column, std::size_t row) -> Color {
        const double value = cells.values[row * cells.columns + column];
        if (shading.kind == Quantity::Colors)
            return toColor(value, shading.bits);
        if (shading.kind == Quantity::Class || shading.kind == Quantity::Return)
            return numbered[toNumber(value)];
        constexpr Color paper = {205, 205, 205};
        if (shading.kind == Quantity::Hillshade)
            return paper;
        return shading.ramp.at(perUnit > 0 ? (value - low) * perUnit : 0.5);
    };
    constexpr std::size_t rowsPerTask = 32;
    parallelLoop((cells.rows + rowsPerTask - 1) / rowsPerTask, [&](std::size_t task) {
        const std::size_t end = std::min(cells.rows, (task + 1) * rowsPerTask);
        for (std::size_t row = task * rowsPerTask; row < end; ++row) {
            const auto pixelsOf = [&](std::size_t line) {
                return image.row(top + row * scale + line).subspan(left, cells.columns * scale);
            };
            const std::span<Color> first = pixelsOf(0);
            const std::vector<float> brightness = hillshade ? hillshade->at(row) : std::vector<float>();
            for (std::size_t column = 0; column < cells.columns; ++column) {
                if (cells.isEmpty(row * cells.columns + column))
                    continue;
                const Color color = colorAt(column, row);
                std::fill_n(first.begin() + static_cast<std::ptrdiff_t>(column * scale), scale,
                            hillshade ? shaded(color, brightness[column]) : color);
            }
            for (std::size_t line = 1; line < scale; ++line)
                std::copy(first.begin(), first.end(), pixelsOf(line).begin());
        }
    });
}

} // namespace Quillmoran
