#include "text/NumberFormat.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

namespace Quillmoran {
namespace {

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

class NumberFormatRandom : public testing::Test
{
protected:
    template <class Make>
    void expectAllAsPrintf(int count, Make make)
    {
        for (int i = 0; i < count && !HasFatalFailure(); ++i) {
            const double value = make();
            expectAsPrintf(value);
            expectAsPrintf(-value);
        }
    }
    std::uint64_t below(std::uint64_t limit) { return m_random() % limit; }

    std::mt19937_64 m_random{20240611};
};

TEST_F(NumberFormatRandom, MatchesPrintfOnAnyBits)
{
    expectAllAsPrintf(30000, [&] { return fromBits(m_random()); });
}

TEST_F(NumberFormatRandom, MatchesPrintfOnUsualMagnitudes)
{
    // Exponents from 2^-20 to 2^69: all branches and their limits.
    expectAllAsPrintf(30000, [&] {
        return std::ldexp(1 + fromBits(m_random() >> 12 | 0x3FF0000000000000) / 2,
                          static_cast<int>(below(90)) - 20);
    });
}

TEST_F(NumberFormatRandom, MatchesPrintfOnDecimalsAndTheirNeighbours)
{
    expectAllAsPrintf(30000, [&] {
        const double power = std::pow(10, static_cast<double>(below(10)));
        const double value =
            (static_cast<double>(below(1u << 30)) + 0.5 * static_cast<double>(below(2))) / power;
        return std::nextafter(value, value + (static_cast<double>(below(3)) - 1));
    });
}

TEST_F(NumberFormatRandom, MatchesPrintfOnExactTies)
{
    // An odd multiple of 2^-k has a 5 as its k-th and last decimal, a tie for every count of decimals below
    // k.
    expectAllAsPrintf(30000, [&] {
        const int k = 1 + static_cast<int>(below(20));
        return static_cast<double>(2 * below(std::uint64_t{1} << (1 + below(50))) + 1) * std::ldexp(1, -k);
    });
}

TEST_F(NumberFormatRandom, MatchesPrintfNearPowersOfTen)
{
    // Just below a power of ten, rounding carries through all digits to the integer part.
    expectAllAsPrintf(30000, [&] {
        const double power = std::pow(10, static_cast<double>(below(44)) - 22);
        return power - power * std::ldexp(1, -static_cast<int>(below(56)));
    });
}

TEST_F(NumberFormatRandom, MatchesPrintfOnSingles)
{
    expectAllAsPrintf(30000, [&] {
        const auto bits = static_cast<std::uint32_t>(m_random());
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return static_cast<double>(value);
    });
}

TEST_F(NumberFormatRandom, MatchesPrintfOnLargeIntegersAndSubnormals)
{
    expectAllAsPrintf(10000, [&] { return static_cast<double>(m_random() >> below(64)); });
    expectAllAsPrintf(5000, [&] { return fromBits(m_random() >> (12 + below(52))); });
}

TEST(NumberFormat, MatchesPrintfOnSpecialValues)
{
    for (const double value : {0.0,
                               Limits::infinity(),
                               Limits::quiet_NaN(),
                               Limits::signaling_NaN(),
                               Limits::max(),
                               Limits::min(),
                               Limits::denorm_min(),
                               18446744073709551616.0,
                               18446744073709549568.0,
                               1e17,
                               1e18,
                               0.9999995,
                               0.0005,
                               0.00009999999999,
                               0.0001,
                               0.99999999995,
                               99999999.95,
                               123456789.5,
                               999999999.5,
                               1000000000.0}) {
        expectAsPrintf(value);
        expectAsPrintf(-value);
    }
}

TEST(NumberFormat, CutsFieldsAt63Characters)
{
    EXPECT_EQ(written([](char* out) { return formatFixed(out, 1e100, 15); }).size(), 63u);
    // 59 digits, the point and three decimals.
    const std::string text = written([](char* out) { return formatFixed(out, 0x1p195, 15); });
    EXPECT_EQ(text.substr(59), ".000");
}

TEST(NumberFormat, WritesIntegersOfEveryLength)
{
    const auto expectWritten = [](std::uint64_t value) {
        char expected[32];
        std::snprintf(expected, sizeof expected, "%" PRIu64, value);
        EXPECT_EQ(written([&](char* out) { return formatUnsigned(out, value); }), expected);
        const auto negative = static_cast<std::int64_t>(0 - value);
        std::snprintf(expected, sizeof expected, "%" PRId64, negative);
        EXPECT_EQ(written([&](char* out) { return formatSigned(out, negative); }), expected);
    };
    std::uint64_t power = 1;
    for (int digits = 1; digits <= 20; ++digits, power *= 10)
        for (const std::uint64_t value : {power - 1, power, power + 1, power / 7 * 9})
            expectWritten(value);
    for (int bit = 0; bit < 64; ++bit)
        expectWritten(std::uint64_t{1} << bit);
    expectWritten(std::numeric_limits<std::uint64_t>::max());
}

TEST(NumberFormat, IgnoresTheLocale)
{
    const std::string before = std::setlocale(LC_ALL, nullptr);
    bool found = false;
    for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE", "fr_FR"})
        found = found || std::setlocale(LC_ALL, name);
    const std::string small = written([](char* out) { return formatGeneral(out, 1.5e-9, 9); });
    const std::string large = written([](char* out) { return formatFixed(out, 1e30, 3); });
    std::setlocale(LC_ALL, before.c_str());
    if (!found)
        GTEST_SKIP() << "no locale with a decimal comma";
    EXPECT_EQ(small, "1.5e-09");
    EXPECT_EQ(large, "1000000000000000019884624838656.000");
}

} // namespace
} // namespace Quillmoran
