// Big-endian and little-endian numbers in memory. The system's own formats are big-endian, LAS is
// little-endian.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Quillmoran {

namespace Detail {

template <std::size_t Size>
struct UnsignedOf;
template <>
struct UnsignedOf<1>
{
    using Type = std::uint8_t;
};
template <>
struct UnsignedOf<2>
{
    using Type = std::uint16_t;
};
template <>
struct UnsignedOf<4>
{
    using Type = std::uint32_t;
};
template <>
struct UnsignedOf<8>
{
    using Type = std::uint64_t;
};

} // namespace Detail

template <class T>
using UnsignedOf = typename Detail::UnsignedOf<sizeof(T)>::Type;

namespace Detail {

template <class T>
T fromBits(std::uint64_t bits) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    const auto sized = static_cast<Quillmoran::UnsignedOf<T>>(bits);
    T value;
    std::memcpy(&value, &sized, sizeof value);
    return value;
}

template <class T>
std::uint64_t toBits(T value) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    Quillmoran::UnsignedOf<T> bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

} // namespace Detail

// Each of the four compiles to one load or store, with a byte swap where the machine's order differs.
template <class T>
T loadBigEndian(const void* from) noexcept
{
    const auto* bytes = static_cast<const unsigned char*>(from);
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bits = bits << 8 | bytes[i];
    return Detail::fromBits<T>(bits);
}

template <class T>
void storeBigEndian(void* to, T value) noexcept
{
    const UnsignedOf<T> bits = static_cast<UnsignedOf<T>>(Detail::toBits(value));
    auto* bytes = static_cast<unsigned char*>(to);
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes[i] = static_cast<unsigned char>(bits >> (8 * (sizeof(T) - 1 - i)));
}

template <class T>
T loadLittleEndian(const void* from) noexcept
{
    const auto* bytes = static_cast<const unsigned char*>(from);
    std::uint64_t bits = 0;
    for (std::size_t i = sizeof(T); i-- > 0;)
        bits = bits << 8 | bytes[i];
    return Detail::fromBits<T>(bits);
}

template <class T>
void storeLittleEndian(void* to, T value) noexcept
{
    const UnsignedOf<T> bits = static_cast<UnsignedOf<T>>(Detail::toBits(value));
    auto* bytes = static_cast<unsigned char*>(to);
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes[i] = static_cast<unsigned char>(bits >> (8 * i));
}

} // namespace Quillmoran
