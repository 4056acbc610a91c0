#include "encode/FloatGrid.h"

#include "model/SampleConversion.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Quillmoran {

namespace {

// Up to here a rounded quotient is the integer that it came from.
constexpr double largestInteger = 2251799813685248.0; // 2^51
constexpr std::size_t mostTried = 2048;               // samples that choose the grids
constexpr std::size_t mostGrids = 3;

// Two samples are the same when their bits are: neither a NaN nor a zero's sign may be lost.
template <class Float>
bool isSame(Float a, Float b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

template <class Float>
bool holdSamples(FloatGrid& grid, const Float* samples, std::size_t count) noexcept
{
    const double scale = grid.scale;
    const double offset = grid.offset;
    std::int64_t low = grid.low;
    std::int64_t high = grid.high;
    bool fits = true;
    for (std::size_t i = 0; i < count; ++i) {
        // As samples are quantized and dequantized; the truncation is a floor that the processor has.
        const double steps = (static_cast<double>(samples[i]) - offset) / scale + 0.5;
        auto step = SampleConversion::truncate<std::int64_t>(steps);
        step = static_cast<std::int64_t>(static_cast<std::uint64_t>(step) -
                                         (static_cast<double>(step) > steps ? 1u : 0u));
        const auto back = static_cast<Float>(static_cast<double>(step) * scale + offset);
        fits &= isSame(back, samples[i]) & (std::fabs(steps) < largestInteger);
        low = std::min(low, step);
        high = std::max(high, step);
    }
    grid.low = low;
    grid.high = high;
    return fits;
}

// Tenths and halves, the coarsest first.
std::vector<double> makeScales()
{
    std::vector<double> scales;
    for (int exponent = -52; exponent <= 20; ++exponent)
        scales.push_back(std::ldexp(1.0, exponent));
    for (const double scale : {1e-1, 1e-2, 1e-3, 1e-4, 1e-5, 1e-6, 1e-7, 1e-8, 1e-9, 1e1, 1e2, 1e3, 1e4, 1e5})
        scales.push_back(scale);
    std::sort(scales.begin(), scales.end(), std::greater<>());
    return scales;
}

double firstFinite(const ChannelData& channel, std::size_t count)
{
    double value = 0;
    visitDataType(channel.getDataType(), [&](auto zero) {
        const auto* samples = static_cast<const decltype(zero)*>(channel.getData());
        const auto* end = samples + count;
        const auto* found = std::find_if(
            samples, end, [](auto sample) { return std::isfinite(static_cast<double>(sample)); });
        value = found != end ? static_cast<double>(*found) : 0;
    });
    return value;
}

} // namespace

bool FloatGrid::hold(const ChannelData& channel, std::size_t count) noexcept
{
    if (channel.getDataType() == FLOAT32)
        return holdSamples(*this, static_cast<const float*>(channel.getData()), count);
    return holdSamples(*this, static_cast<const double*>(channel.getData()), count);
}

std::vector<FloatGrid> FloatGrid::find(const ChannelData& channel, std::size_t count,
                                       const std::vector<FloatGrid>& declared)
{
    count = std::min(count, mostTried);
    std::vector<FloatGrid> found;
    const auto tryGrid = [&](const FloatGrid& candidate) {
        FloatGrid grid = candidate;
        // Most candidates fail at once.
        if (!grid.hold(channel, std::min<std::size_t>(count, 16)) || !grid.hold(channel, count))
            return false;
        found.push_back({grid.scale, grid.offset});
        return true;
    };
    constexpr std::size_t mostDeclared = 2;
    for (const FloatGrid& grid : declared)
        if (grid.scale > 0 && found.size() < mostDeclared)
            tryGrid(grid);
    if (!found.empty())
        return found;

    // Decimals far from zero are met by an offset nearby: the sum then rounds as the decimal did. Times count
    // from where they begin.
    const double first = firstFinite(channel, count);
    const double offsets[] = {0, std::floor(first), first};
    static const std::vector<double> scales = makeScales();
    for (const double scale : scales) {
        if (found.size() == mostGrids)
            break;
        if (!found.empty() && scale > found.back().scale / 8)
            continue;
        for (const double offset : offsets)
            if (tryGrid({scale, offset}))
                break;
    }
    return found;
}

} // namespace Quillmoran
