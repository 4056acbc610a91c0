#include "encode/planning/FloatGrid.h"

#include "platform/ByteOrder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Quillmoran {

namespace {

// Up to this magnitude a rounded quotient is the original integer.
constexpr double largestInteger = 2251799813685248.0; // 2^51
constexpr int maxParts = 255;                         // of a tenth
constexpr std::size_t maxGrids = 3;
// Queries widen a box of coordinates by half of their scale. Without a declared scale users expect at most
// this one.
constexpr double coarsestCoordinate = 0.01;

template <class Float>
UnsignedOf<Float> bitsOf(Float value)
{
    UnsignedOf<Float> bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Compares the bits, so that NaNs and the sign of zero are preserved.
template <class Float>
bool isSame(Float a, Float b)
{
    return bitsOf(a) == bitsOf(b);
}

// Whether the sample is the number that its decimal with log10(power) places is parsed as.
template <class Float>
bool isDecimal(Float sample, double power)
{
    return isSame(static_cast<Float>(std::nearbyint(static_cast<double>(sample) * power) / power), sample);
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
        // As in quantizing and dequantizing; truncating and correcting is a fast floor.
        const double steps = (static_cast<double>(samples[i]) - offset) / scale + 0.5;
        const bool isInteger = std::fabs(steps) < largestInteger;
        const double bounded = isInteger ? steps : 0;
        auto step = static_cast<std::int64_t>(bounded);
        step -= static_cast<double>(step) > bounded ? 1 : 0;
        const auto back = static_cast<Float>(static_cast<double>(step) * scale + offset);
        fits &= isSame(back, samples[i]) & isInteger;
        low = std::min(low, step);
        high = std::max(high, step);
    }
    grid.low = low;
    grid.high = high;
    for (std::size_t i = 0; grid.decimals != 0 && fits && i < count; ++i)
        fits = isDecimal(samples[i], grid.decimals);
    return fits;
}

struct Step
{
    double scale;
    double decimals; // as in FloatGrid
};

// Powers of two, powers of ten and halves of these, the coarsest first. Not every decimal is the rounded
// product of an integer and a power of ten, since 0.1 itself is rounded. Parts of a power of ten with a
// smaller rounding error represent more decimals.
std::vector<Step> makeSteps()
{
    std::vector<Step> steps = {{10, 0}, {100, 0}, {1000, 0}, {1e4, 0}, {1e5, 0}};
    for (int exponent = -52; exponent <= 20; ++exponent)
        if (exponent != 0)
            steps.push_back({std::ldexp(1.0, exponent), 0});
    for (const double power : {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9}) {
        steps.push_back({1 / power, power});
        if (power == 1e0)
            continue;
        steps.push_back({0.5 / power, 0});
        double least = std::fabs(std::fma(1 / power, power, -1));
        for (int part = 3; part <= maxParts; part += 2) {
            const double scale = 1 / (power * part);
            const double error = std::fabs(std::fma(scale, power * part, -1));
            if (error < least) {
                steps.push_back({scale, 0});
                least = error;
            }
        }
    }
    std::sort(steps.begin(), steps.end(), [](const Step& a, const Step& b) { return a.scale > b.scale; });
    return steps;
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

void FloatGrid::include(double value) noexcept
{
    const double steps = std::floor((value - offset) / scale + 0.5);
    if (!(std::fabs(steps) < largestInteger))
        return;
    low = std::min(low, static_cast<std::int64_t>(steps));
    high = std::max(high, static_cast<std::int64_t>(steps));
}

std::vector<FloatGrid> FloatGrid::find(const ChannelData& channel, std::size_t count,
                                       const std::vector<FloatGrid>& declared, bool isCoordinate)
{
    std::vector<FloatGrid> found;
    const auto tryGrid = [&](const FloatGrid& candidate) {
        FloatGrid grid = candidate;
        // Most candidates fail with the first samples.
        if (!grid.hold(channel, std::min<std::size_t>(count, 16)) || !grid.hold(channel, count))
            return false;
        found.push_back(candidate);
        return true;
    };
    // Decimals far from zero need an offset nearby: the sum then rounds like the decimal. Times are relative
    // to the first one.
    const double first = firstFinite(channel, count);
    const double offsets[] = {0, std::floor(first), first};
    for (const FloatGrid& grid : declared) {
        if (grid.scale == 0 || !found.empty())
            continue;
        if (!std::isnan(grid.offset)) {
            tryGrid(grid);
            continue;
        }
        tryGrid({grid.scale, offsets[0]});
        if (offsets[1] != offsets[0])
            tryGrid({grid.scale, offsets[1]});
    }
    if (!found.empty())
        return found;

    static const std::vector<Step> steps = makeSteps();
    for (const Step& step : steps) {
        if (found.size() == maxGrids)
            break;
        if ((isCoordinate && step.scale > coarsestCoordinate) ||
            (!found.empty() && step.scale > found.back().scale / 8))
            continue;
        // Decimals and coordinates stay whole multiples of the scale.
        const std::size_t usable = isCoordinate || step.decimals != 0 ? 2 : 3;
        for (std::size_t i = 0; i < usable; ++i)
            if (tryGrid({step.scale, offsets[i], step.decimals}))
                break;
    }
    return found;
}

} // namespace Quillmoran
