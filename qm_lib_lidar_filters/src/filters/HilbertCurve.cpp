#include "filters/HilbertCurve.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Quillmoran {

namespace {

constexpr double cellsPerSide = 4294967296.0;
// In metres or feet, more than any projected coordinate; cells are 1/64 wide.
constexpr double maxCoordinate = 0x1p25;

// The orientation of a part of the curve, in the bits where the table below has it.
constexpr unsigned swapped = 1 << 8;
constexpr unsigned complemented = 1 << 9;

// Four levels of the curve in one step. Input, the index of the table: orientation | four bits of x | four
// bits of y. Output: orientation of the part | eight bits of the key.
constexpr unsigned descend(unsigned from)
{
    unsigned orientation = from & (swapped | complemented);
    unsigned key = 0;
    for (unsigned level = 4; level-- > 0;) {
        const unsigned flip = orientation & complemented ? 1 : 0;
        const unsigned first = (from >> (level + 4) & 1) ^ flip;
        const unsigned second = (from >> level & 1) ^ flip;
        const unsigned x = orientation & swapped ? second : first;
        const unsigned y = orientation & swapped ? first : second;
        key = key << 2 | ((3 * x) ^ y);
        if (y == 0)
            orientation ^= x ? swapped | complemented : swapped;
    }
    return orientation | key;
}

constexpr auto makeSteps()
{
    std::array<std::uint16_t, 1024> steps{};
    for (unsigned from = 0; from < steps.size(); ++from)
        steps[from] = static_cast<std::uint16_t>(descend(from));
    return steps;
}

constexpr auto steps = makeSteps();

// The box's range if the other is not known.
Bounds::Range intersection(const Bounds::Range& known, const Bounds::Range& box) noexcept
{
    if (!(known.min <= known.max))
        return box;
    return {std::max(known.min, box.min), std::min(known.max, box.max)};
}

bool isFinite(const Bounds::Range& range) noexcept
{
    return range.min <= range.max && std::isfinite(range.max - range.min);
}

std::uint32_t cellOf(double distance, double density) noexcept
{
    const double cell = distance * density;
    if (!(cell > 0))
        return 0;
    return cell < cellsPerSide ? static_cast<std::uint32_t>(cell) : UINT32_MAX;
}

} // namespace

std::uint64_t getHilbertKey(std::uint32_t x, std::uint32_t y) noexcept
{
    std::uint64_t key = 0;
    unsigned orientation = 0;
    for (int shift = 28; shift >= 0; shift -= 4) {
        const unsigned step = steps[orientation | (x >> shift & 15) << 4 | (y >> shift & 15)];
        key = key << 8 | (step & 255);
        orientation = step & (swapped | complemented);
    }
    return key;
}

HilbertGrid::HilbertGrid(const Bounds& known, const Bounds& box) noexcept
{
    Bounds::Range x = intersection(known.x, box.x);
    Bounds::Range y = intersection(known.y, box.y);
    if (!isFinite(x) || !isFinite(y))
        x = y = {-maxCoordinate, maxCoordinate};
    m_x = x.min;
    m_y = y.min;
    // Infinite for a single point, which is then in the first cell.
    m_density = cellsPerSide / std::max(x.max - x.min, y.max - y.min);
}

void HilbertGrid::getKeys(std::uint64_t* keys, const double* x, const double* y,
                          std::size_t count) const noexcept
{
    for (std::size_t i = 0; i < count; ++i)
        keys[i] = getHilbertKey(cellOf(x[i] - m_x, m_density), cellOf(y[i] - m_y, m_density));
}

} // namespace Quillmoran
