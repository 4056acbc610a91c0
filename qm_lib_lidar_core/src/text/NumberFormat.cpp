#include "text/NumberFormat.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>

// A double is m * 2^-s with an integer m below 2^53, so that its decimal digits follow from integer
// arithmetic. Split m at bit s into an integer part and a fraction f / 2^s. Then f * 10^d / 2^s, a product
// below 2^128 and a shift, gives d decimals. The bits that are shifted out are compared with half of 2^s for
// rounding; a tie is rounded to even. Two decimals of 5.3125 = 85 * 2^-4: the integer part is 5, f = 5, 5 *
// 100 = 500 = 31 * 16 + 4, and 4 is below 8: "5.31". Two decimals of 5.375 = 86 * 2^-4: f = 6, 600 = 37 * 16
// + 8, a tie, and 37 is odd: "5.38".

namespace Quillmoran {

namespace {

__extension__ typedef unsigned __int128 Uint128;

constexpr int mantissaBits = 52;
constexpr int maxDecimals = 21; // 18 digits after "0.000"

template <class T, std::size_t count>
constexpr std::array<T, count> makePowersOfTen()
{
    std::array<T, count> powers{1};
    for (std::size_t i = 1; i < count; ++i)
        powers[i] = powers[i - 1] * 10;
    return powers;
}
constexpr auto powersOfTen = makePowersOfTen<std::uint64_t, 20>();
constexpr auto widePowersOfTen = makePowersOfTen<Uint128, maxDecimals + 1>();

int countDigits(std::uint64_t value) noexcept
{
    value |= 1;
    // 1233 / 4096 approximates the decimal logarithm of 2: the result is the number of digits or one less.
    const int bits = 64 - __builtin_clzll(value);
    const int estimate = bits * 1233 >> 12;
    return estimate + (value >= powersOfTen[static_cast<std::size_t>(estimate)]);
}

// "000", "001" and so on to "999", each followed by the number of its leading zeros (2 for "000", which is
// written as "0"). Spare bytes at the end allow copying four bytes from any digit.
constexpr auto digitTriples = [] {
    std::array<char, 4000 + 3> triples{};
    for (std::size_t i = 0; i < 1000; ++i) {
        triples[4 * i] = static_cast<char>('0' + i / 100);
        triples[4 * i + 1] = static_cast<char>('0' + i / 10 % 10);
        triples[4 * i + 2] = static_cast<char>('0' + i % 10);
        triples[4 * i + 3] = i < 10 ? 2 : i < 100 ? 1 : 0;
    }
    return triples;
}();

inline const char* tripleOf(std::uint64_t value) noexcept
{
    return &digitTriples[4 * value];
}

// A value below 10^count with leading zeros.
inline char* writeDigits(char* out, std::uint64_t value, int count) noexcept
{
    char* const end = out + count;
    char* at = end;
    for (; count >= 3; count -= 3) {
        at -= 3;
        std::memcpy(at, tripleOf(value % 1000), 3);
        value /= 1000;
    }
    const char* const rest = tripleOf(value);
    if (count == 1)
        at[-1] = rest[2];
    else if (count == 2)
        std::memcpy(at - 2, rest + 1, 2);
    return end;
}

// A value below 1000 without leading zeros. Branches on the number of digits would often be mispredicted, so
// always copies four bytes; the next characters overwrite the extra ones.
inline char* writeShort(char* out, std::uint64_t value) noexcept
{
    const char* const triple = tripleOf(value);
    const auto zeros = static_cast<std::size_t>(triple[3]);
    std::memcpy(out, triple + zeros, 4);
    return out + 3 - zeros;
}

// Always inline: a call would cost a third of the time of a short number.
[[gnu::always_inline]] inline char* writeUnsigned(char* out, std::uint64_t value) noexcept
{
    if (value < 1000)
        return writeShort(out, value);
    if (value < 1000000)
        return writeDigits(writeShort(out, value / 1000), value % 1000, 3);
    if (value < 1000000000)
        return writeDigits(writeShort(out, value / 1000000), value % 1000000, 6);
    return writeDigits(out, value, countDigits(value));
}

// The magnitude of a double below 2^64 is whole + fraction / 2^shift, the fraction below 2^53 and below
// 2^shift.
struct Parts
{
    std::uint64_t whole;
    std::uint64_t fraction;
    int shift; // [0, 1074]
};

struct DoubleBits
{
    explicit DoubleBits(double value) noexcept { std::memcpy(&bits, &value, sizeof bits); }

    bool isNegative() const noexcept { return bits >> 63 != 0; }
    // False for infinities and NaNs, which have the largest exponent.
    bool isBelow2To64() const noexcept { return exponent() < 1023 + 64; }
    Parts split() const noexcept
    {
        std::uint64_t mantissa = bits & ((std::uint64_t{1} << mantissaBits) - 1);
        if (exponent() != 0)
            mantissa |= std::uint64_t{1} << mantissaBits;
        const int shift = 1023 + mantissaBits - std::max(exponent(), 1);
        if (shift <= 0)
            return {mantissa << -shift, 0, 0};
        if (shift > mantissaBits)
            return {0, mantissa, shift};
        return {mantissa >> shift, mantissa & ((std::uint64_t{1} << shift) - 1), shift};
    }

private:
    int exponent() const noexcept { return static_cast<int>(bits >> mantissaBits & 0x7FF); }

    std::uint64_t bits;
};

// fraction * 10^decimals / 2^shift, rounded, for all shifts and decimals. The result must fit into 64 bits.
// Out of line to leave registers to the usual case.
[[gnu::noinline]] std::uint64_t scaleSmallFraction(const Parts& parts, int decimals) noexcept
{
    // The product is below 2^53 * 10^21 < 2^123.
    if (parts.shift == 0 || parts.shift >= 128)
        return 0;
    const Uint128 product = parts.fraction * widePowersOfTen[static_cast<std::size_t>(decimals)];
    const Uint128 half = Uint128{1} << (parts.shift - 1);
    const auto quotient = static_cast<std::uint64_t>(product >> parts.shift);
    const Uint128 remainder = product & (2 * half - 1);
    return quotient + (remainder > half - (quotient & 1));
}

inline std::uint64_t scaleFraction(const Parts& parts, int decimals) noexcept
{
    if (parts.shift > 63 || decimals > 19)
        return scaleSmallFraction(parts, decimals);
    // With the fraction in the high bits the quotient is the high half of the product.
    constexpr std::uint64_t half = std::uint64_t{1} << 63;
    const std::uint64_t fraction = parts.fraction << 1 << (63 - parts.shift);
    const Uint128 product = Uint128{fraction} * powersOfTen[static_cast<std::size_t>(decimals)];
    const auto quotient = static_cast<std::uint64_t>(product >> 64);
    return quotient + (static_cast<std::uint64_t>(product) > half - (quotient & 1));
}

// The number of zeros between the decimal point and the first digit of a value below 1, up to maxZeros + 1.
int countLeadingZeros(const Parts& parts, int maxZeros) noexcept
{
    int zeros = 0;
    if (parts.shift > 120)
        return maxZeros + 1;
    while (zeros <= maxZeros &&
           parts.fraction * widePowersOfTen[static_cast<std::size_t>(zeros + 1)] < Uint128{1} << parts.shift)
        ++zeros;
    return zeros;
}

// For values that are too large or too small, infinite or NaN; `conversion` is 'f' or 'g'.
[[gnu::cold, gnu::noinline]] char* formatAny(char* out, double value, char conversion, int precision) noexcept
{
    char text[384]; // the largest double has 309 digits before the point
#if defined(__cpp_lib_to_chars) && __cpp_lib_to_chars >= 201611L
    const auto format = conversion == 'f' ? std::chars_format::fixed : std::chars_format::general;
    const char* const end = std::to_chars(text, text + sizeof text, value, format, precision).ptr;
#else
    const int length =
        std::snprintf(text, sizeof text, conversion == 'f' ? "%.*f" : "%.*g", precision, value);
    // The decimal point of the program's locale is not a letter, digit or sign.
    const auto isPoint = [](char c) { return std::strchr("+-0123456789aefin", c) == nullptr; };
    char* const point = std::find_if(text, text + length, isPoint);
    char* end = text + length;
    if (point != end) {
        *point = '.';
        end = std::remove_if(point + 1, end, isPoint);
    }
#endif
    const std::size_t kept = std::min(static_cast<std::size_t>(end - text), maxFieldLength);
    std::memcpy(out, text, kept);
    return out + kept;
}

} // namespace

char* formatUnsigned(char* out, std::uint64_t value) noexcept
{
    return writeUnsigned(out, value);
}

char* formatSigned(char* out, std::int64_t value) noexcept
{
    auto magnitude = static_cast<std::uint64_t>(value);
    if (value < 0) {
        *out++ = '-';
        magnitude = 0 - magnitude;
    }
    return writeUnsigned(out, magnitude);
}

char* formatFixed(char* out, double value, int decimals) noexcept
{
    const DoubleBits bits(value);
    if (!bits.isBelow2To64())
        return formatAny(out, value, 'f', decimals);
    Parts parts = bits.split();
    std::uint64_t digits = scaleFraction(parts, decimals);
    if (digits == powersOfTen[static_cast<std::size_t>(decimals)]) {
        ++parts.whole;
        digits = 0;
    }
    *out = '-';
    out += bits.isNegative();
    out = writeUnsigned(out, parts.whole);
    *out++ = '.';
    return writeDigits(out, digits, decimals);
}

char* formatGeneral(char* out, double value, int precision) noexcept
{
    constexpr int maxZeros = 3; // a value below 0.0001 is written with an exponent
    const DoubleBits bits(value);
    if (!bits.isBelow2To64())
        return formatAny(out, value, 'g', precision);
    Parts parts = bits.split();
    if (parts.whole >= powersOfTen[static_cast<std::size_t>(precision)])
        return formatAny(out, value, 'g', precision);
    std::uint64_t digits = 0;
    int decimals = 0;
    if (parts.fraction != 0) {
        const int zeros = parts.whole == 0 ? countLeadingZeros(parts, maxZeros) : 0;
        decimals = precision + zeros - (parts.whole == 0 ? 0 : countDigits(parts.whole));
        // Without decimals the parity of the integer part would decide a tie.
        if (zeros > maxZeros || decimals == 0)
            return formatAny(out, value, 'g', precision);
        digits = scaleFraction(parts, decimals);
        if (zeros == 0 && digits == powersOfTen[static_cast<std::size_t>(decimals)]) {
            ++parts.whole;
            digits = 0;
        }
    }
    *out = '-';
    out += bits.isNegative();
    out = writeUnsigned(out, parts.whole);
    if (digits == 0)
        return out;
    *out++ = '.';
    out = writeDigits(out, digits, decimals);
    while (out[-1] == '0')
        --out;
    return out;
}

} // namespace Quillmoran
