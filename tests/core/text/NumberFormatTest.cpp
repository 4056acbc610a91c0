#include "text/NumberFormat.h"

#include "support/Test.h"

#include <cstdio>
#include <random>

namespace Quillmoran::Testing { namespace {

using Limits = std::numeric_limits<double>;

double fromBits(std::uint64_t bits)
{
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

template <class Format>
std::string written(Format format)
{
    char out[maxFieldLength + 1];
    std::memset(out, '!', sizeof out);
    const char* const end = format(out);
    EXPECT_EQ(out[maxFieldLength], '!') << "wrote past the longest field";
    return std::string(out, static_cast<std::size_t>(end - out));
}

// The reference is printf with a buffer that truncates like a field.
void expectAsPrintf(double value)
{
    char expected[maxFieldLength + 1];
    for (const int decimals : {3, 6, 9, 12, 15}) {
        std::snprintf(expected, sizeof expected, "%.*f", decimals, value);
        ASSERT_EQ(written([&](char* out) { return formatFixed(out, value, decimals); }), expected)
            << "decimals=" << decimals;
    }
    for (const int precision : {9, 18}) {
        std::snprintf(expected, sizeof expected, "%.*g", precision, value);
        ASSERT_EQ(written([&](char* out) { return formatGeneral(out, value, precision); }), expected)
            << "precision=" << precision;
    }
}

TEST(NumberFormat, MatchesPrintf)
{
    std::mt19937_64 random(20240611);
    const auto below = [&random](std::uint64_t limit) { return random() % limit; };
    const std::function<double()> families[] = {
        [&] { return fromBits(random()); },
        // Exponents from 2^-20 to 2^69: all branches and their limits.
        [&] {
            const double mantissa = 1 + fromBits(random() >> 12 | 0x3FF0000000000000) / 2;
            return std::ldexp(mantissa, static_cast<int>(below(90)) - 20);
        },
        // Decimals and their neighbours.
        [&] {
            const double power = std::pow(10, static_cast<double>(below(10)));
            const double value =
                (static_cast<double>(below(1u << 30)) + 0.5 * static_cast<double>(below(2))) / power;
            return std::nextafter(value, value + (static_cast<double>(below(3)) - 1));
        },
        // An odd multiple of 2^-k has a 5 as its k-th and last decimal, a tie for every count of decimals
        // below k.
        [&] {
            const int k = 1 + static_cast<int>(below(20));
            const std::uint64_t odd = 2 * below(std::uint64_t{1} << (1 + below(50))) + 1;
            return std::ldexp(static_cast<double>(odd), -k);
        },
        // Just below a power of ten, rounding carries through all digits to the integer part.
        [&] {
            const double power = std::pow(10, static_cast<double>(below(44)) - 22);
            return power - power * std::ldexp(1, -static_cast<int>(below(56)));
        },
        [&] { return static_cast<double>(static_cast<float>(fromBits(random()))); },
        [&] { return static_cast<double>(random() >> below(64)); },
        [&] { return fromBits(random() >> (12 + below(52))); }, // subnormal
    };
    for (const auto& make : families)
        for (int i = 0; i < 8000 && !testing::Test::HasFatalFailure(); ++i) {
            const double value = make();
            expectAsPrintf(value);
            expectAsPrintf(-value);
        }
}

TEST(NumberFormat, MatchesPrintfAtItsLimits)
{
    std::vector<double> values = {
        0.0,           Limits::infinity(), Limits::quiet_NaN(), Limits::signaling_NaN(),
        Limits::max(), Limits::min(),      Limits::denorm_min()};
    for (int exponent = -24; exponent <= 24; ++exponent) // also 0.0001, below which an exponent is written
        for (const double factor : {1.0, 0.5, 0.95, 0.99999999995, 0.9999999999999995, 5.0, 7.0})
            values.push_back(factor * std::pow(10, exponent));
    for (const double value : values)
        for (const double near : {value, std::nextafter(value, 0), std::nextafter(value, 1e300)}) {
            expectAsPrintf(near);
            expectAsPrintf(-near);
        }
}

TEST(NumberFormat, WritesIntegersOfEveryLength)
{
    std::vector<std::uint64_t> values;
    for (std::uint64_t power = 1, digits = 1; digits <= 20; ++digits, power *= 10)
        values.insert(values.end(), {power - 1, power, power + 1, power / 7 * 9});
    for (int bit = 0; bit < 64; ++bit)
        values.insert(values.end(), {std::uint64_t{1} << bit, UINT64_MAX << bit});
    for (const std::uint64_t value : values) {
        EXPECT_EQ(written([&](char* out) { return formatUnsigned(out, value); }), std::to_string(value));
        const auto negative = static_cast<std::int64_t>(0 - value);
        EXPECT_EQ(written([&](char* out) { return formatSigned(out, negative); }), std::to_string(negative));
    }
}

}} // namespace Quillmoran::Testing
