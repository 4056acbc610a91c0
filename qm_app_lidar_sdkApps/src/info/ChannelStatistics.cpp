#include "info/ChannelStatistics.h"

#include "model/ChannelNames.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

namespace Quillmoran {

namespace {

// The alternative of Sample that can represent every T.
template <class T>
using Wide = std::conditional_t<std::is_floating_point_v<T>, double,
                                std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>;

constexpr std::size_t numCodes = 256; // of eight bits

bool holdsCodes(const ChannelInfo& channel)
{
    return channel.getDataType() == UINT8 &&
           (channel.isNamed(ChannelNames::classId) || channel.isNamed(ChannelNames::returnNum) ||
            channel.isNamed(ChannelNames::numReturns));
}

} // namespace

ChannelStatistics::ChannelStatistics(const ChannelInfo& channel, double offset) : m_name(channel.getName())
{
    if (holdsCodes(channel))
        m_codeCounts.resize(numCodes);
    visitDataType(channel.getDataType(), [&](auto zero) {
        using Sum = Wide<decltype(zero)>;
        m_range = {std::numeric_limits<Sum>::max(), std::numeric_limits<Sum>::lowest()};
        if constexpr (std::is_floating_point_v<Sum>)
            m_histogram = Histogram<double>(channel.getQuantization(), offset);
        else
            m_histogram = Histogram<Sum>();
    });
}

void ChannelStatistics::setKnownRange(const Range& range)
{
    std::visit(
        [&](auto& histogram) {
            using Sum = typename std::decay_t<decltype(histogram)>::PositionType;
            histogram.cover(std::get<Sum>(range.min), std::get<Sum>(range.max));
        },
        m_histogram);
    m_range = range;
    m_isRangeKnown = true;
}

void ChannelStatistics::add(const ChannelData& samples, std::size_t count)
{
    visitDataType(samples.getDataType(), [&](auto zero) {
        addSamples(static_cast<const decltype(zero)*>(samples.getData()), count);
    });
    if (!m_codeCounts.empty()) {
        const auto* codes = static_cast<const std::uint8_t*>(samples.getData());
        for (std::size_t i = 0; i < count; ++i)
            ++m_codeCounts[codes[i]];
    }
}

template <class T>
void ChannelStatistics::addSamples(const T* samples, std::size_t count)
{
    using Sum = Wide<T>;
    T low = std::numeric_limits<T>::max();
    T high = std::numeric_limits<T>::lowest();
    double sum = 0; // of the block: short sums are more precise
    std::size_t finite = count;
    for (std::size_t i = 0; i < count; ++i) {
        const T sample = samples[i];
        if constexpr (std::is_floating_point_v<T>) {
            if (!std::isfinite(sample)) {
                --finite;
                continue;
            }
        }
        low = std::min(low, sample);
        high = std::max(high, sample);
        sum += static_cast<double>(sample);
    }
    m_sum += sum;
    m_count += finite;
    m_numNotFinite += count - finite;
    if (finite == 0)
        return;
    const Sum min = std::min<Sum>(low, std::get<Sum>(m_range.min));
    const Sum max = std::max<Sum>(high, std::get<Sum>(m_range.max));
    m_isRangeKnown = m_isRangeKnown && m_range.min == Sample(min) && m_range.max == Sample(max);
    m_range = {min, max};
    auto& histogram = std::get<Histogram<Sum>>(m_histogram);
    histogram.cover(low, high);
    histogram.add(samples, count);
}

HistogramBins ChannelStatistics::getBins(std::size_t limit) const
{
    if (m_count == 0)
        return {};
    return std::visit([limit](const auto& histogram) { return histogram.getBins(limit); }, m_histogram);
}

} // namespace Quillmoran
