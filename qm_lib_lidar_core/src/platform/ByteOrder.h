// Big-endian and little-endian numbers in memory. The system's own formats are big-endian, LAS is
// little-endian.
#pragma once

#include <bit>
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

// The number with its bytes in reverse order.
template <class U>
constexpr U swapBytes(U bits) noexcept
{
    if constexpr (sizeof(U) == 1)
        return bits;
    else if constexpr (sizeof(U) == 2)
        return __builtin_bswap16(bits);
    else if constexpr (sizeof(U) == 4)
        return __builtin_bswap32(bits);
    else
        return __builtin_bswap64(bits);
}

// Loads a number whose bytes are in `order`. The functions below compile to one load or store, and a byte swap
// if the machine has the other order. Compilers recognise loops over the bytes only in some functions.
template <class T>
T loadInOrder(std::endian order, const void* from) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    UnsignedOf<T> bits;
    std::memcpy(&bits, from, sizeof bits);
    if (order != std::endian::native)
        bits = swapBytes(bits);
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

template <class T>
void storeInOrder(std::endian order, void* to, T value) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    UnsignedOf<T> bits;
    std::memcpy(&bits, &value, sizeof bits);
    if (order != std::endian::native)
        bits = swapBytes(bits);
    std::memcpy(to, &bits, sizeof bits);
}

template <class T>
T loadLittleEndian(const void* from) noexcept
{
    return loadInOrder<T>(std::endian::little, from);
}

template <class T>
T loadBigEndian(const void* from) noexcept
{
    return loadInOrder<T>(std::endian::big, from);
}

template <class T>
void storeLittleEndian(void* to, T value) noexcept
{
    storeInOrder(std::endian::little, to, value);
}

template <class T>
void storeBigEndian(void* to, T value) noexcept
{
    storeInOrder(std::endian::big, to, value);
}

} // namespace Quillmoran
