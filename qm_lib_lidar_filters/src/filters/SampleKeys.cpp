#include "filters/SampleKeys.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace Quillmoran {

namespace {

constexpr std::uint64_t signBit = std::uint64_t{1} << 63;

// The bits of IEEE 754 numbers above zero are ordered as integers are; those of numbers below zero are
// ordered the other way round.
std::uint64_t keyOf(double sample) noexcept
{
    if (std::isnan(sample))
        return UINT64_MAX;
    sample += 0.0; // -0.0 becomes 0.0
    std::uint64_t bits;
    std::memcpy(&bits, &sample, sizeof bits);
    return bits & signBit ? ~bits : bits | signBit;
}

std::uint64_t keyOf(std::int64_t sample) noexcept
{
    return static_cast<std::uint64_t>(sample) ^ signBit;
}

std::uint64_t keyOf(std::uint64_t sample) noexcept
{
    return sample;
}

// The 64-bit type that holds all values of a type.
template <class T>
using Wide = std::conditional_t<std::is_floating_point_v<T>, double,
                                std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>;

} // namespace

void getSampleKeys(std::uint64_t* keys, const void* samples, DataType type, std::size_t count) noexcept
{
    const bool isKnown = visitDataType(type, [&](auto zero) {
        using Sample = decltype(zero);
        const auto* const typed = static_cast<const Sample*>(samples);
        for (std::size_t i = 0; i < count; ++i)
            keys[i] = keyOf(static_cast<Wide<Sample>>(typed[i]));
    });
    if (!isKnown)
        std::fill_n(keys, count, 0);
}

} // namespace Quillmoran
