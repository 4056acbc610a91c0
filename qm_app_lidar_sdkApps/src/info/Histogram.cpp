#include "info/Histogram.h"

namespace Quillmoran {

template <class Position>
Histogram<Position>::Histogram(double step, double offset)
{
    if (!std::isnormal(step) || !std::isfinite(offset))
        return; // files can have any
    m_step = std::abs(step);
    m_origin = offset - m_step / 2;
    m_finest = 0;
}

template <class Position>
typename Histogram<Position>::Scale Histogram<Position>::scaleOf(int exponent) noexcept
{
    return {exponent, isReal ? std::ldexp(1.0, -exponent) : 1};
}

// Real numbers have indices that are exact: at most 53 bits.
template <class Position>
typename Histogram<Position>::Scale
Histogram<Position>::finestScale([[maybe_unused]] Position low, [[maybe_unused]] Position high) const noexcept
{
    int exponent = m_finest;
    if constexpr (isReal) {
        const double farthest = std::max(std::abs(low), std::abs(high));
        if (farthest > 0)
            exponent = std::max(exponent, std::ilogb(farthest) - 52);
    }
    return scaleOf(exponent);
}

template <class Position>
std::uint64_t Histogram<Position>::numBins(Scale scale, Position low, Position high) const noexcept
{
    return static_cast<std::uint64_t>(scale.indexOf(high)) - static_cast<std::uint64_t>(scale.indexOf(low)) +
           1;
}

template <class Position>
void Histogram<Position>::coverPositions(Position low, Position high)
{
    if (m_numBins != 0) {
        if (low >= m_low && high <= m_high)
            return;
        low = std::min(low, m_low);
        high = std::max(high, m_high);
    }
    Scale scale = finestScale(low, high);
    if (m_numBins != 0 && scale.exponent < m_scale.exponent)
        scale = m_scale;
    // Their number is 0 if there are 2^64.
    while (numBins(scale, low, high) - 1 >= maxBins)
        scale = scaleOf(scale.exponent + 1);
    if (m_numBins == 0)
        m_scale = scale;
    m_low = low;
    m_high = high;
    widen(scale);
}

template <class Position>
void Histogram<Position>::widen(Scale scale)
{
    std::array<std::uint64_t, maxBins> counts = {};
    const Index first = scale.indexOf(m_low);
    const int joined = scale.exponent - m_scale.exponent; // levels
    for (std::size_t bin = 0; bin < m_numBins; ++bin) {
        const Index old = m_first + static_cast<Index>(bin);
        // Shifting by more bits than a number has is not defined.
        const Index index = joined < 64 ? old >> joined : old < Index{0} ? static_cast<Index>(-1) : Index{0};
        counts[static_cast<std::size_t>(index - first)] += m_counts[bin];
    }
    m_counts = counts;
    m_first = first;
    m_scale = scale;
    m_numBins = static_cast<std::size_t>(numBins(scale, m_low, m_high));
}

template <class Position>
double Histogram<Position>::edge(std::size_t index) const noexcept
{
    using Limits = std::numeric_limits<double>;
    const double position =
        std::ldexp(static_cast<double>(m_first) + static_cast<double>(index), m_scale.exponent);
    return std::clamp(m_origin + position * m_step, Limits::lowest(), Limits::max());
}

template <class Position>
HistogramBins Histogram<Position>::getBins(std::size_t limit) const
{
    Histogram joined = *this;
    while (joined.m_numBins > limit)
        joined.widen(scaleOf(joined.m_scale.exponent + 1));
    HistogramBins bins;
    for (std::size_t bin = 0; bin < joined.m_numBins; ++bin) {
        bins.edges.push_back(joined.edge(bin));
        bins.counts.push_back(joined.m_counts[bin]);
    }
    if (joined.m_numBins != 0)
        bins.edges.push_back(joined.edge(joined.m_numBins));
    return bins;
}

template class Histogram<std::int64_t>;
template class Histogram<std::uint64_t>;
template class Histogram<double>;

} // namespace Quillmoran
