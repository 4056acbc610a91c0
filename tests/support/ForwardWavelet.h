// The forward transform as in a textbook, and a plain inverse of whole bands. Both index samples one by one and
// repeat the ends of a band. They share no code with the decoder: tests compare it with them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace Quillmoran::Testing {

// The lifting order (0, 1 or 3), and whether there is an update step.
struct Lifting
{
    int order;
    bool hasUpdate;

    static Lifting of(int transform) { return {transform % 10, transform % 20 < 10}; }
};

template <class T>
T repeated(const std::vector<T>& band, std::ptrdiff_t i)
{
    if (band.empty())
        return T(0);
    return band[static_cast<std::size_t>(
        std::clamp<std::ptrdiff_t>(i, 0, static_cast<std::ptrdiff_t>(band.size()) - 1))];
}

__extension__ using Int128 = __int128;

// Sums in 128 bits, cut to T before rounding: equal to wrapping arithmetic in T.
template <class T>
T weightedShift(Int128 sum, int offset, int shift)
{
    using Wide = std::conditional_t<sizeof(T) == 2, std::int32_t, T>;
    const T cut = static_cast<T>(sum);
    if constexpr (sizeof(T) == 2)
        return static_cast<T>((Wide{cut} + offset) >> shift);
    else
        return static_cast<T>(
            static_cast<T>(static_cast<std::make_unsigned_t<T>>(cut) + static_cast<unsigned>(offset)) >>
            shift);
}

template <class T>
T predicted(const std::vector<T>& low, std::ptrdiff_t i, int order)
{
    const T a = repeated(low, i - 1), b = repeated(low, i), c = repeated(low, i + 1),
            d = repeated(low, i + 2);
    if constexpr (std::is_floating_point_v<T>)
        return order == 1 ? (b + c) * T(0.5) : (T(9) * (b + c) - (a + d)) * T(0.0625);
    else {
        const Int128 inner = Int128{b} + c, outer = Int128{a} + d;
        return order == 1 ? weightedShift<T>(inner, 0, 1) : weightedShift<T>(9 * inner - outer, 14, 4);
    }
}

template <class T>
T updated(const std::vector<T>& high, std::ptrdiff_t i, int order)
{
    const T a = repeated(high, i - 2), b = repeated(high, i - 1), c = repeated(high, i),
            d = repeated(high, i + 1);
    if constexpr (std::is_floating_point_v<T>)
        return order == 1 ? (b + c) * T(0.25) : (T(9) * (b + c) - (a + d)) * T(0.03125);
    else {
        const Int128 inner = Int128{b} + c, outer = Int128{a} + d;
        return order == 1 ? weightedShift<T>(inner, 2, 2) : weightedShift<T>(9 * inner - outer, 30, 5);
    }
}

template <class T>
T wrappingAdd(T a, T b)
{
    if constexpr (std::is_floating_point_v<T>)
        return a + b;
    else
        return static_cast<T>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

template <class T>
T wrappingSubtract(T a, T b)
{
    if constexpr (std::is_floating_point_v<T>)
        return a - b;
    else
        return static_cast<T>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

template <class T>
void forwardLevel(const std::vector<T>& samples, Lifting lifting, std::vector<T>& low, std::vector<T>& high)
{
    low.clear();
    high.clear();
    for (std::size_t i = 0; i < samples.size(); ++i)
        (i % 2 == 0 ? low : high).push_back(samples[i]);
    if (lifting.order == 0)
        return;
    for (std::size_t i = 0; i < high.size(); ++i)
        high[i] = wrappingSubtract(high[i], predicted(low, static_cast<std::ptrdiff_t>(i), lifting.order));
    if (lifting.hasUpdate)
        for (std::size_t i = 0; i < low.size(); ++i)
            low[i] = wrappingAdd(low[i], updated(high, static_cast<std::ptrdiff_t>(i), lifting.order));
}

template <class T>
std::vector<T> inverseLevel(std::vector<T> low, std::vector<T> high, Lifting lifting)
{
    if (lifting.order != 0) {
        if (lifting.hasUpdate)
            for (std::size_t i = 0; i < low.size(); ++i)
                low[i] =
                    wrappingSubtract(low[i], updated(high, static_cast<std::ptrdiff_t>(i), lifting.order));
        for (std::size_t i = 0; i < high.size(); ++i)
            high[i] = wrappingAdd(high[i], predicted(low, static_cast<std::ptrdiff_t>(i), lifting.order));
    }
    std::vector<T> samples;
    for (std::size_t i = 0; i < low.size(); ++i) {
        samples.push_back(low[i]);
        if (i < high.size())
            samples.push_back(high[i]);
    }
    return samples;
}

// All bands of a decomposition into `levels` levels: the low one, then the high ones from coarse to fine.
template <class T>
std::vector<std::vector<T>> decompose(std::vector<T> samples, Lifting lifting, std::size_t levels)
{
    std::vector<std::vector<T>> bands;
    for (std::size_t level = 1; level < levels; ++level) {
        std::vector<T> low, high;
        forwardLevel(samples, lifting, low, high);
        bands.push_back(std::move(high));
        samples = std::move(low);
    }
    bands.push_back(std::move(samples));
    std::reverse(bands.begin(), bands.end());
    return bands;
}

// Reconstructs the samples of the first `count` bands.
template <class T>
std::vector<T> compose(const std::vector<std::vector<T>>& bands, Lifting lifting, std::size_t count)
{
    std::vector<T> samples = bands[0];
    for (std::size_t i = 1; i < count; ++i)
        samples = inverseLevel(std::move(samples), bands[i], lifting);
    return samples;
}

} // namespace Quillmoran::Testing
