// Big-endian and little-endian numbers in memory. The system's own formats are big-endian, LAS is
// little-endian.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Quillmoran {

// The unsigned type of the same size.
template <class T>
using UnsignedOf =
    std::conditional_t<sizeof(T) == 1, std::uint8_t,
                       std::conditional_t<sizeof(T) == 2, std::uint16_t,
                                          std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;

// Each function compiles to one load or store, and a byte swap if the machine has the other order.
template <class T>
T loadLittleEndian(const void* from) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    const auto* bytes = static_cast<const unsigned char*>(from);
    std::uint64_t bits = 0;
    for (std::size_t i = sizeof(T); i-- > 0;)
        bits = bits << 8 | bytes[i];
    const auto sized = static_cast<UnsignedOf<T>>(bits);
    T value;
    std::memcpy(&value, &sized, sizeof value);
    return value;
}

template <class T>
T loadBigEndian(const void* from) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    const auto* bytes = static_cast<const unsigned char*>(from);
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bits = bits << 8 | bytes[i];
    const auto sized = static_cast<UnsignedOf<T>>(bits);
    T value;
    std::memcpy(&value, &sized, sizeof value);
    return value;
}

template <class T>
void storeLittleEndian(void* to, T value) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    UnsignedOf<T> bits;
    std::memcpy(&bits, &value, sizeof bits);
    auto* bytes = static_cast<unsigned char*>(to);
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes[i] = static_cast<unsigned char>(bits >> (8 * i));
}

template <class T>
void storeBigEndian(void* to, T value) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    UnsignedOf<T> bits;
    std::memcpy(&bits, &value, sizeof bits);
    auto* bytes = static_cast<unsigned char*>(to);
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes[i] = static_cast<unsigned char>(bits >> (8 * (sizeof(T) - 1 - i)));
}

} // namespace Quillmoran
