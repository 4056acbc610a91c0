// Counts of samples in bins of equal width. Bins are joined in pairs, to twice the width, when samples lie
// outside of them, so that no range is needed in advance, memory is constant, and counts are exact. The bins
// depend on the range of the samples only, not on their order or on the blocks in which they arrive.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

namespace Quillmoran {

// Edges are one more than there are bins, and none without a range.
struct HistogramBins
{
    std::vector<double> edges;
    std::vector<std::uint64_t> counts;
};

// A bin is 2^n positions wide and begins at a multiple of its width. Integers are positions themselves. Those
// of real numbers are multiples of a step from an origin, so that bins of quantized samples have equal
// numbers of steps.
template <class Position>
class Histogram
{
    static constexpr bool isReal = std::is_floating_point_v<Position>;

public:
    using PositionType = Position;
    static constexpr std::size_t maxBins = 64;

    Histogram() = default;
    // Of real numbers; a step of 0 is that of all numbers. Bins are at least as wide as the step, and its
    // multiples from `offset` are in their middles.
    Histogram(double step, double offset);

    // Makes the bins include a range of finite samples.
    template <class T>
    void cover(T low, T high)
    {
        coverPositions(positionOf(low), positionOf(high));
    }

    // Counts the finite ones of some samples, whose range is covered.
    template <class T>
    void add(const T* samples, std::size_t count)
    {
        // Equal samples in a row would wait for each other's increments.
        constexpr std::size_t lanes = 4;
        std::uint64_t counts[lanes][maxBins] = {};
        const Scale scale = m_scale;
        const Index first = m_first;
        for (std::size_t i = 0; i < count; ++i) {
            if constexpr (isReal) {
                if (!std::isfinite(samples[i]))
                    continue;
            }
            ++counts[i % lanes][static_cast<std::size_t>(scale.indexOf(positionOf(samples[i])) - first)];
        }
        for (const auto& lane : counts)
            for (std::size_t bin = 0; bin < m_numBins; ++bin)
                m_counts[bin] += lane[bin];
    }

    // The bins of the covered range, joined until there are at most `limit`, which is at least 2.
    HistogramBins getBins(std::size_t limit = maxBins) const;

private:
    using Index = std::conditional_t<std::is_unsigned_v<Position>, std::uint64_t, std::int64_t>;

    // The width of bins.
    struct Scale
    {
        int exponent = 0;
        double factor = 1; // of real positions

        Index indexOf(Position position) const noexcept
        {
            if constexpr (isReal) {
                // Truncating and correcting is a fast floor.
                const double scaled = position * factor;
                const auto truncated = static_cast<Index>(scaled);
                return truncated - (scaled < static_cast<double>(truncated));
            } else {
                return position >> exponent;
            }
        }
    };

    template <class T>
    Position positionOf(T sample) const noexcept
    {
        if constexpr (isReal) {
            using Limits = std::numeric_limits<double>;
            return std::clamp((sample - m_origin) / m_step, Limits::lowest(), Limits::max());
        } else {
            return sample;
        }
    }
    static Scale scaleOf(int exponent) noexcept;
    Scale finestScale([[maybe_unused]] Position low, [[maybe_unused]] Position high) const noexcept;
    std::uint64_t numBins(Scale scale, Position low, Position high) const noexcept;
    void coverPositions(Position low, Position high);
    // Moves the counts to bins of at least the width.
    void widen(Scale scale);
    double edge(std::size_t index) const noexcept;

    double m_origin = 0;
    double m_step = 1;
    int m_finest = isReal ? -1022 : 0; // exponent
    Scale m_scale;
    Position m_low = 0, m_high = 0; // covered
    Index m_first = 0;
    std::size_t m_numBins = 0; // 0: nothing is covered
    std::array<std::uint64_t, maxBins> m_counts = {};
};

} // namespace Quillmoran
