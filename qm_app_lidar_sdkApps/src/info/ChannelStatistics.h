// Count, range and mean of the samples of a channel, computed block by block.
#pragma once

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

    explicit ChannelStatistics(const ChannelInfo& channel);

    // Samples [0, count) of the channel's data.
    void add(const ChannelData& samples, std::size_t count);

    const std::string& getName() const noexcept { return m_name; }
    // Infinities and NaNs are counted separately and otherwise ignored.
    std::uint64_t getCount() const noexcept { return m_count; }
    std::uint64_t getNumNotFinite() const noexcept { return m_numNotFinite; }
    // Defined only for a count above 0.
    Sample getMinimum() const noexcept { return m_minimum; }
    Sample getMaximum() const noexcept { return m_maximum; }
    double getMean() const noexcept { return m_sum / static_cast<double>(m_count); }
    // The number of samples with each value, for classes and returns; empty for other channels.
    const std::vector<std::uint64_t>& getHistogram() const noexcept { return m_histogram; }

private:
    template <class T>
    void addSamples(const T* samples, std::size_t count);

    std::string m_name;
    std::uint64_t m_count = 0;
    std::uint64_t m_numNotFinite = 0;
    Sample m_minimum, m_maximum;
    double m_sum = 0;
    std::vector<std::uint64_t> m_histogram;
};

} // namespace Quillmoran
