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

// The weighted sum of samples i - 1 to i + 2 as it is subtracted by the prediction (or, with smaller weights,
// added by the update). Integers are summed in 128 bits and cut to T before rounding, like wrapping sums.
template <class T>
T lifted(const std::vector<T>& band, std::ptrdiff_t i, int order, bool isUpdate)
{
    const T a = repeated(band, i - 1), b = repeated(band, i), c = repeated(band, i + 1),
            d = repeated(band, i + 2);
    const int shift = (order == 1 ? 1 : 4) + (isUpdate ? 1 : 0);
    if constexpr (std::is_floating_point_v<T>) {
        return (order == 1 ? b + c : T(9) * (b + c) - (a + d)) / T(1 << shift);
    } else {
        const int offset = order == 1 ? (isUpdate ? 2 : 0) : (isUpdate ? 30 : 14);
        const Int128 inner = Int128{b} + c, outer = Int128{a} + d;
        const T cut = static_cast<T>(order == 1 ? inner : 9 * inner - outer);
        if constexpr (sizeof(T) == 2)
            return static_cast<T>((std::int32_t{cut} + offset) >> shift);
        else
            return static_cast<T>(Int128{cut} + offset) >> shift;
    }
}

// a + sign * b, wrapping.
template <class T>
T addSigned(T a, int sign, T b)
{
    if constexpr (std::is_floating_point_v<T>)
        return a + T(sign) * b;
    else
        return static_cast<T>(Int128{a} + sign * Int128{b});
}

// The prediction of the high samples from the low ones, and the update of the low samples from the high ones.
template <class T>
void predict(const std::vector<T>& low, std::vector<T>& high, Lifting lifting, int sign)
{
    for (std::size_t i = 0; lifting.order != 0 && i < high.size(); ++i)
        high[i] = addSigned(high[i], sign, lifted(low, static_cast<std::ptrdiff_t>(i), lifting.order, false));
}

template <class T>
void update(std::vector<T>& low, const std::vector<T>& high, Lifting lifting, int sign)
{
    for (std::size_t i = 0; lifting.hasUpdate && lifting.order != 0 && i < low.size(); ++i)
        low[i] =
            addSigned(low[i], sign, lifted(high, static_cast<std::ptrdiff_t>(i) - 1, lifting.order, true));
}

template <class T>
void forwardLevel(const std::vector<T>& samples, Lifting lifting, std::vector<T>& low, std::vector<T>& high)
{
    low.clear();
    high.clear();
    for (std::size_t i = 0; i < samples.size(); ++i)
        (i % 2 == 0 ? low : high).push_back(samples[i]);
    predict(low, high, lifting, -1);
    update(low, high, lifting, 1);
}

template <class T>
std::vector<T> inverseLevel(std::vector<T> low, std::vector<T> high, Lifting lifting)
{
    update(low, high, lifting, -1);
    predict(low, high, lifting, 1);
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

// Reconstructs the samples of all bands.
template <class T>
std::vector<T> compose(const std::vector<std::vector<T>>& bands, Lifting lifting)
{
    std::vector<T> samples = bands[0];
    for (std::size_t i = 1; i < bands.size(); ++i)
        samples = inverseLevel(std::move(samples), bands[i], lifting);
    return samples;
}

} // namespace Quillmoran::Testing
