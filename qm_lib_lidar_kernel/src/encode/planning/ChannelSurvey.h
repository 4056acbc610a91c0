// What the first pass over the points finds out about one channel: the range of an integer channel, the grids
// that hold a floating-point one, the range of its exponents.
#pragma once

#include "encode/planning/DecimalSurvey.h"
#include "encode/planning/FloatGrid.h"

#include <cstdint>
#include <vector>

namespace Quillmoran {

class ChannelSurvey
{
public:
    struct Range
    {
        std::int64_t low = INT64_MAX; // a fresh range is empty
        std::int64_t high = INT64_MIN;

        void grow(std::int64_t value) noexcept
        {
            low = value < low ? value : low;
            high = value > high ? value : high;
        }
    };

    // Grids that the source gives for the channel; they are tried before others.
    void declare(const FloatGrid& grid) { m_declared.push_back(grid); }
    // Whether queries are going to compare the channel with a box.
    void setCoordinate(bool isCoordinate) { m_isCoordinate = isCoordinate; }
    bool isCoordinate() const noexcept { return m_isCoordinate; }

    void add(const ChannelData& channel, std::size_t count);

    // Of an integer channel's samples, as they convert to signed 64-bit integers.
    const Range& getRange() const noexcept { return m_range; }
    // Those that hold all samples seen, best first. Before the first sample: those that were declared.
    const std::vector<FloatGrid>& getGrids() const noexcept { return m_begun ? m_grids : m_declared; }
    // Decimals of a floating-point channel that text would not show if the channel was stored with that scale
    // (0: without a grid), as TextDecimals has them; 0 when there is nothing to add.
    int getHiddenDecimals(double scale) const noexcept;
    // Of the exponent fields and the sign bits of a floating-point channel.
    const Range& getExponents() const noexcept { return m_exponents; }
    const Range& getSigns() const noexcept { return m_signs; }

private:
    void addIntegers(const ChannelData& channel, std::size_t count);
    void addReals(const ChannelData& channel, std::size_t count);

    bool m_begun = false;
    bool m_isCoordinate = false;
    std::vector<FloatGrid> m_declared;
    std::vector<FloatGrid> m_grids;
    DecimalSurvey m_decimals;
    Range m_range;
    Range m_exponents;
    Range m_signs;
};

} // namespace Quillmoran
