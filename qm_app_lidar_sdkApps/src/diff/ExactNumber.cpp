#include "diff/ExactNumber.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace Quillmoran {

namespace {

template <class T>
std::uint64_t bitsOf(T value) noexcept
{
    static_assert(sizeof(T) == sizeof(std::uint64_t));
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

template <class T>
T fromBits(std::uint64_t bits) noexcept
{
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

template <class T>
ExactNumber toExactNumber(T value) noexcept
{
    constexpr double twoTo63 = 9223372036854775808.0;
    if constexpr (std::is_floating_point_v<T>) {
        const double real = value;
        if (real != std::trunc(real) || !(real >= -twoTo63 && real < 2 * twoTo63))
            return {ExactNumber::Real, bitsOf(real)};
        if (real < twoTo63)
            return {ExactNumber::Signed, bitsOf(static_cast<std::int64_t>(real))};
        return {ExactNumber::Unsigned, static_cast<std::uint64_t>(real)};
    } else if constexpr (std::is_same_v<T, std::uint64_t>) {
        return {value > INT64_MAX ? ExactNumber::Unsigned : ExactNumber::Signed, value};
    } else {
        return {ExactNumber::Signed, bitsOf(static_cast<std::int64_t>(value))};
    }
}

} // namespace

std::string toText(const Sample& sample)
{
    if (const auto* integer = std::get_if<std::int64_t>(&sample))
        return std::to_string(*integer);
    if (const auto* natural = std::get_if<std::uint64_t>(&sample))
        return std::to_string(*natural);
    const double real = std::get<double>(sample);
    constexpr int exactDigits = 17; // always suffice
    char text[32];
    for (int digits = exactDigits - 2; digits <= exactDigits; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, real);
        if (std::strtod(text, nullptr) == real)
            break;
    }
    return text;
}

Sample ExactNumber::toSample() const noexcept
{
    if (kind == Signed)
        return fromBits<std::int64_t>(bits);
    return kind == Unsigned ? Sample(bits) : Sample(fromBits<double>(bits));
}

void toExactNumbers(ExactNumber* numbers, const void* samples, DataType type, std::size_t count)
{
    visitDataType(type, [=](auto zero) {
        const auto* const typed = static_cast<const decltype(zero)*>(samples);
        for (std::size_t i = 0; i < count; ++i)
            numbers[i] = toExactNumber(typed[i]);
    });
}

} // namespace Quillmoran
