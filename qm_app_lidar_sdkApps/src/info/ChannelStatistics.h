// Count, range, mean and histogram of the samples of a channel, computed block by block in constant memory.
#pragma once

#include "info/Histogram.h"
#include <vxunpack/PointData.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace Quillmoran {

class ChannelStatistics
{
public:
    // Wide enough for every sample type, so that 64-bit samples stay exact.
    using Sample = std::variant<std::int64_t, std::uint64_t, double>;

    struct Range
    {
        Sample min, max;
    };

    // The samples of a quantized channel are `offset` and multiples of its quantization from there.
    explicit ChannelStatistics(const ChannelInfo& channel, double offset = 0);

    // States the range of all samples, before a part of them is added. Its type is that of the channel.
    void setKnownRange(const Range& range);
    // Samples [0, count) of the channel's data.
    void add(const ChannelData& samples, std::size_t count);

    const std::string& getName() const noexcept { return m_name; }
    // Infinities and NaNs are counted separately and otherwise ignored.
    std::uint64_t getCount() const noexcept { return m_count; }
    std::uint64_t getNumNotFinite() const noexcept { return m_numNotFinite; }
    bool hasIntegers() const noexcept { return !std::holds_alternative<Histogram<double>>(m_histogram); }
    // Defined only for a count above 0. The known range, unless there are samples outside of it.
    Sample getMinimum() const noexcept { return m_range.min; }
    Sample getMaximum() const noexcept { return m_range.max; }
    // Whether the range was known and holds for all samples that were added.
    bool isRangeKnown() const noexcept { return m_isRangeKnown; }
    double getMean() const noexcept { return m_sum / static_cast<double>(m_count); }
    // The number of samples with each value, for classes and returns; empty for other channels.
    const std::vector<std::uint64_t>& getCodeCounts() const noexcept { return m_codeCounts; }
    // The number of samples from each edge up to, but not including, the next one; empty without finite
    // samples. At most `limit` bins, which is at least 2.
    HistogramBins getBins(std::size_t limit = Histogram<double>::maxBins) const;

private:
    template <class T>
    void addSamples(const T* samples, std::size_t count);

    std::string m_name;
    std::uint64_t m_count = 0;
    std::uint64_t m_numNotFinite = 0;
    Range m_range; // its minimum is above its maximum if it is empty
    bool m_isRangeKnown = false;
    double m_sum = 0;
    std::variant<Histogram<std::int64_t>, Histogram<std::uint64_t>, Histogram<double>> m_histogram;
    std::vector<std::uint64_t> m_codeCounts;
};

} // namespace Quillmoran
