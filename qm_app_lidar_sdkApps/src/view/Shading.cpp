#include "view/Shading.h"

#include "platform/ParallelLoop.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

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

// At most about 2^16 values of cells that have one, evenly taken.
std::vector<double> sampleValues(const Cells& cells)
{
    constexpr std::size_t most = 65536;
    std::size_t numFilled = 0;
    for (std::size_t i = 0; i < cells.size(); ++i)
        numFilled += !cells.isEmpty(i);
    const std::size_t step = numFilled / most + 1;
    std::vector<double> values;
    std::size_t index = 0;
    for (std::size_t i = 0; i < cells.size(); ++i)
        if (!cells.isEmpty(i) && index++ % step == 0)
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

// The elevation of a cell and of its neighbours; the slopes are those of Horn, "Hill shading and the reflectance
// map", 1981.
class Slopes
{
public:
    Slopes(const Cells& cells, const Projection& projection)
        : m_cells(cells), m_width(projection.cellWidth), m_height(projection.cellHeight)
    {}

    struct Slope
    {
        double east, north;
    };
    Slope at(std::size_t column, std::size_t row) const
    {
        const double center = m_cells.values[row * m_cells.columns + column];
        double z[3][3];
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j) {
                const std::size_t x = column + j - 1, y = row + i - 1;
                z[i][j] = x < m_cells.columns && y < m_cells.rows && !m_cells.isEmpty(y * m_cells.columns + x)
                              ? m_cells.values[y * m_cells.columns + x]
                              : center;
            }
        constexpr double weights = 8;
        const double right = z[0][2] + 2 * z[1][2] + z[2][2], left = z[0][0] + 2 * z[1][0] + z[2][0];
        const double above = z[0][0] + 2 * z[0][1] + z[0][2], below = z[2][0] + 2 * z[2][1] + z[2][2];
        return {(right - left) / (weights * m_width), (above - below) / (weights * m_height)};
    }
    // Of a sample of the cells.
    double mean() const
    {
        constexpr std::size_t step = 7;
        double sum = 0;
        std::size_t count = 0;
        for (std::size_t row = step / 2; row < m_cells.rows; row += step)
            for (std::size_t column = step / 2; column < m_cells.columns; column += step)
                if (!m_cells.isEmpty(row * m_cells.columns + column)) {
                    const Slope slope = at(column, row);
                    sum += std::hypot(slope.east, slope.north);
                    ++count;
                }
        return count == 0 ? 0 : sum / static_cast<double>(count);
    }

private:
    const Cells& m_cells;
    const double m_width, m_height;
};

// 0 to 1 for light from the north-west, at half of a right angle. Slopes are multiplied by `factor`, so that plains
// and mountains have the same contrast.
double brightnessOf(const Slopes::Slope& slope, double factor)
{
    const double east = slope.east * factor, north = slope.north * factor;
    const double light = (east * 0.5 - north * 0.5 + 0.70710678) / std::sqrt(1 + east * east + north * north);
    return light > 0 ? light : 0;
}

Color shaded(Color color, double brightness)
{
    constexpr double ambient = 0.35, direct = 0.92; // flat ground keeps its colour
    const double factor = ambient + direct * brightness;
    const auto scale = [factor](std::uint8_t part) {
        return static_cast<std::uint8_t>(std::min(part * factor + 0.5, 255.0));
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
    const Slopes slopes(cells, projection);
    constexpr double usualSlope = 0.35, strongest = 50;
    const double slopeFactor = isShaded ? std::min(strongest, usualSlope / std::max(slopes.mean(), 1e-9)) : 0;
    const double low = shading.range.min, width = shading.range.max - shading.range.min;
    const double perUnit = width > 0 ? 1 / width : 0;

    const auto colorAt = [&](std::size_t column, std::size_t row) -> Color {
        const double value = cells.values[row * cells.columns + column];
        if (shading.kind == Quantity::Colors)
            return toColor(value, shading.bits);
        if (shading.kind == Quantity::Class || shading.kind == Quantity::Return)
            return numbered[toNumber(value)];
        constexpr Color paper = {205, 205, 205};
        const Color color = shading.kind == Quantity::Hillshade ? paper
                            : perUnit > 0                       ? shading.ramp.at((value - low) * perUnit)
                                                                : shading.ramp.at(0.5);
        return isShaded ? shaded(color, brightnessOf(slopes.at(column, row), slopeFactor)) : color;
    };
    constexpr std::size_t rowsPerTask = 32;
    parallelLoop((cells.rows + rowsPerTask - 1) / rowsPerTask, [&](std::size_t task) {
        const std::size_t end = std::min(cells.rows, (task + 1) * rowsPerTask);
        for (std::size_t row = task * rowsPerTask; row < end; ++row) {
            const auto pixelsOf = [&](std::size_t line) {
                return image.row(top + row * scale + line).subspan(left, cells.columns * scale);
            };
            const std::span<Color> first = pixelsOf(0);
            for (std::size_t column = 0; column < cells.columns; ++column)
                if (!cells.isEmpty(row * cells.columns + column))
                    std::fill_n(first.begin() + static_cast<std::ptrdiff_t>(column * scale), scale,
                                colorAt(column, row));
            for (std::size_t line = 1; line < scale; ++line)
                std::copy(first.begin(), first.end(), pixelsOf(line).begin());
        }
    });
}

} // namespace Quillmoran
