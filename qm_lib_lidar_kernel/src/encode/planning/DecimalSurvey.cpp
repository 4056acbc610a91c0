#include "encode/planning/DecimalSurvey.h"

#include "text/TextDecimals.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

namespace Quillmoran {

namespace {

constexpr double rounder = 6755399441055744.0; // 1.5 * 2^52: adding it rounds to an integer

double powerOfTen(int exponent) noexcept
{
    double power = 1;
    for (; exponent > 0; --exponent)
        power *= 10; // exact up to 10^22
    return power;
}

// Whether each sample is the number nearest to its decimal with log10(power) places. Valid for magnitudes up
// to 2^51; get() excludes larger ones. A NaN has any number of decimals.
template <class Float>
bool haveDecimals(const Float* samples, std::size_t count, double power) noexcept
{
    bool fits = true;
    for (std::size_t i = 0; i < count; ++i) {
        const double whole = static_cast<double>(samples[i]) * power + rounder - rounder;
        fits &= (static_cast<Float>(whole / power) == samples[i]) | std::isnan(samples[i]);
    }
    return fits;
}

// Whether the samples are multiples of 2^-places. Only such numbers equal a decimal with that number of
// places.
template <class Float>
bool areBinary(const Float* samples, std::size_t count, int places) noexcept
{
    const double power = std::ldexp(1.0, places);
    bool fits = true;
    for (std::size_t i = 0; i < count; ++i) {
        const double scaled = static_cast<double>(samples[i]) * power;
        fits &= (scaled + rounder - rounder == scaled) | std::isnan(samples[i]);
    }
    return fits;
}

template <class Float>
double largestOf(const Float* samples, std::size_t count) noexcept
{
    double largest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double magnitude = std::fabs(static_cast<double>(samples[i]));
        if (magnitude <= std::numeric_limits<double>::max() && magnitude > largest)
            largest = magnitude;
    }
    return largest;
}

} // namespace

void DecimalSurvey::add(const ChannelData& channel, std::size_t count)
{
    m_isNarrow = channel.getDataType() == FLOAT32;
    visitDataType(channel.getDataType(), [&](auto zero) {
        using Float = decltype(zero);
        if constexpr (std::is_floating_point_v<Float>) {
            const auto* samples = static_cast<const Float*>(channel.getData());
            while (m_decimals <= TextDecimals::most && !haveDecimals(samples, count, powerOfTen(m_decimals)))
                ++m_decimals;
            if (m_decimals > TextDecimals::most)
                return;
            m_isExact = m_isExact && areBinary(samples, count, m_decimals);
            m_largest = std::max(m_largest, largestOf(samples, count));
        }
    });
}

int DecimalSurvey::get() const noexcept
{
    // Text shows decimals in groups of three. Up to these magnitudes a sample differs from its decimal by
    // less than half of the last shown place.
    constexpr double largestWide = 1125899906842624.0; // 2^50
    constexpr double largestNarrow = 4194304.0;        // 2^22
    constexpr int maxNarrow = 6;
    if (m_isExact || m_decimals > (m_isNarrow ? maxNarrow : TextDecimals::most))
        return 0;
    const double shown = m_largest * powerOfTen((m_decimals + 2) / 3 * 3);
    return shown < (m_isNarrow ? largestNarrow : largestWide) ? m_decimals : 0;
}

} // namespace Quillmoran
