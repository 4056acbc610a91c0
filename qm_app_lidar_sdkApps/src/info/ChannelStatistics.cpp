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

ChannelStatistics::ChannelStatistics(const ChannelInfo& channel) : m_name(channel.getName())
{
    if (holdsCodes(channel))
        m_histogram.resize(numCodes);
    visitDataType(channel.getDataType(), [this](auto zero) {
        using Limits = std::numeric_limits<Wide<decltype(zero)>>;
        m_minimum = Limits::max();
        m_maximum = Limits::lowest();
    });
}

void ChannelStatistics::add(const ChannelData& samples, std::size_t count)
{
    visitDataType(samples.getDataType(), [&](auto zero) {
        addSamples(static_cast<const decltype(zero)*>(samples.getData()), count);
    });
    if (!m_histogram.empty()) {
        const auto* codes = static_cast<const std::uint8_t*>(samples.getData());
        for (std::size_t i = 0; i < count; ++i)
            ++m_histogram[codes[i]];
    }
}

template <class T>
void ChannelStatistics::addSamples(const T* samples, std::size_t count)
{
    auto low = std::get<Wide<T>>(m_minimum);
    auto high = std::get<Wide<T>>(m_maximum);
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
        low = std::min<Wide<T>>(low, sample);
        high = std::max<Wide<T>>(high, sample);
        sum += static_cast<double>(sample);
    }
    m_minimum = low;
    m_maximum = high;
    m_sum += sum;
    m_count += finite;
    m_numNotFinite += count - finite;
}

} // namespace Quillmoran
