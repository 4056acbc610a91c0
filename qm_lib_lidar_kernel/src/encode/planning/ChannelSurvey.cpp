#include "encode/planning/ChannelSurvey.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <type_traits>

namespace Quillmoran {

namespace {

using Range = ChannelSurvey::Range;

template <class T>
void growByIntegers(Range& range, const T* samples, std::size_t count)
{
    // Unsigned 64-bit samples wrap, as in a kernel.
    using Wrapped = std::conditional_t<sizeof(T) == 8, std::int64_t, T>;
    auto low = static_cast<Wrapped>(samples[0]);
    auto high = low;
    for (std::size_t i = 1; i < count; ++i) {
        const auto sample = static_cast<Wrapped>(samples[i]);
        low = sample < low ? sample : low;
        high = sample > high ? sample : high;
    }
    range.grow(static_cast<std::int64_t>(low));
    range.grow(static_cast<std::int64_t>(high));
}

// Extends the ranges by the exponent fields and signs of IEEE 754 numbers as wide as `Bits`.
template <class Bits>
void growByParts(Range& exponents, Range& signs, const void* samples, std::size_t count)
{
    constexpr int width = 8 * sizeof(Bits);
    constexpr int fractionBits = width == 32 ? 23 : 52;
    const auto* bytes = static_cast<const unsigned char*>(samples);
    Bits low = ~Bits{0};
    Bits high = 0;
    Bits anySign = 0;
    Bits allSigns = ~Bits{0};
    for (std::size_t i = 0; i < count; ++i) {
        Bits bits;
        std::memcpy(&bits, bytes + i * sizeof bits, sizeof bits);
        anySign |= bits;
        allSigns &= bits;
        const auto exponent = static_cast<Bits>(static_cast<Bits>(bits << 1) >> (fractionBits + 1));
        low = std::min(low, exponent);
        high = std::max(high, exponent);
    }
    exponents.grow(static_cast<std::int64_t>(low));
    exponents.grow(static_cast<std::int64_t>(high));
    signs.grow(static_cast<std::int64_t>(allSigns >> (width - 1)));
    signs.grow(static_cast<std::int64_t>(anySign >> (width - 1)));
}

// Extends a range on both sides by its own length, within limits.
void widen(std::int64_t& low, std::int64_t& high, std::int64_t lowest, std::int64_t highest)
{
    const auto length = static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low);
    const auto below = static_cast<std::uint64_t>(low) - static_cast<std::uint64_t>(lowest);
    const auto above = static_cast<std::uint64_t>(highest) - static_cast<std::uint64_t>(high);
    low = length < below ? static_cast<std::int64_t>(static_cast<std::uint64_t>(low) - length) : lowest;
    high = length < above ? static_cast<std::int64_t>(static_cast<std::uint64_t>(high) + length) : highest;
}

// Whether text with the decimals of this scale shows its multiples exactly.
bool isPowerOfTenth(double scale)
{
    constexpr double powers[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12};
    return std::any_of(std::begin(powers), std::end(powers),
                       [scale](double power) { return scale == 1 / power; });
}

} // namespace

int ChannelSurvey::getHiddenDecimals(double scale) const noexcept
{
    return isPowerOfTenth(scale) ? 0 : m_decimals.get();
}

void ChannelSurvey::add(const ChannelData& channel, std::size_t count)
{
    if (count == 0)
        return;
    if (DataTypeUtils::isFloat(channel.getDataType()))
        addReals(channel, count);
    else
        addIntegers(channel, count);
}

void ChannelSurvey::addIntegers(const ChannelData& channel, std::size_t count)
{
    visitDataType(channel.getDataType(), [&](auto zero) {
        using T = decltype(zero);
        if constexpr (std::is_integral_v<T>)
            growByIntegers(m_range, static_cast<const T*>(channel.getData()), count);
    });
}

void ChannelSurvey::addReals(const ChannelData& channel, std::size_t count)
{
    if (!m_begun)
        m_grids = FloatGrid::find(channel, count, m_declared, m_isCoordinate);
    m_begun = true;
    m_grids.erase(std::remove_if(m_grids.begin(), m_grids.end(),
                                 [&](FloatGrid& grid) { return !grid.hold(channel, count); }),
                  m_grids.end());
    followExpected(channel, count);
    // If the source declares a decimal scale, text output derives the decimals from it.
    if (std::none_of(m_declared.begin(), m_declared.end(),
                     [](const FloatGrid& grid) { return isPowerOfTenth(grid.scale); }))
        m_decimals.add(channel, count);
    if (channel.getDataType() == FLOAT32)
        growByParts<std::uint32_t>(m_exponents, m_signs, channel.getData(), count);
    else
        growByParts<std::uint64_t>(m_exponents, m_signs, channel.getData(), count);
}

void ChannelSurvey::followExpected(const ChannelData& channel, std::size_t count)
{
    if (!m_expected)
        return;
    const auto found = std::find_if(m_grids.begin(), m_grids.end(),
                                    [this](const FloatGrid& grid) { return grid.isSame(*m_expected); });
    if (found != m_grids.end())
        *m_expected = *found;
    else if (!m_expected->hold(channel, count))
        m_expected.reset();
}

void ChannelSurvey::addMargin(DataType type, const Bounds::Range& extent)
{
    if (!DataTypeUtils::isFloat(type)) {
        visitDataType(type, [this](auto zero) {
            using T = decltype(zero);
            using Limits = std::numeric_limits<T>;
            if constexpr (std::is_integral_v<T> && sizeof(T) < 8)
                widen(m_range.low, m_range.high, std::int64_t{Limits::min()}, std::int64_t{Limits::max()});
            else if constexpr (std::is_integral_v<T>)
                widen(m_range.low, m_range.high, INT64_MIN, INT64_MAX);
        });
        return;
    }
    for (FloatGrid& grid : m_grids) {
        FloatGrid whole = {grid.scale, grid.offset};
        whole.include(extent.min);
        whole.include(extent.max);
        const bool isInside = whole.low <= grid.low && whole.high >= grid.high;
        grid.low = std::min(grid.low, whole.low);
        grid.high = std::max(grid.high, whole.high);
        if (!isInside)
            widen(grid.low, grid.high, INT64_MIN, INT64_MAX);
    }
}

} // namespace Quillmoran
