// The survey of one channel: the range of an integer channel; the grids that represent a floating-point
// channel, and the range of its exponents. The points are all points of a source, or samples of them.
#pragma once

#include "encode/planning/DecimalSurvey.h"
#include "encode/planning/FloatGrid.h"
#include <vxunpack/Bounds.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace Quillmoran {

class ChannelSurvey
{
public:
    struct Range
    {
        std::int64_t low = INT64_MAX; // a new range is empty
        std::int64_t high = INT64_MIN;

        void grow(std::int64_t value) noexcept
        {
            low = value < low ? value : low;
            high = value > high ? value : high;
        }
    };

    // A grid that the source declares for the channel. Declared grids are tried before others.
    void declare(const FloatGrid& grid) { m_declared.push_back(grid); }
    // Whether the channel is X, Y or Z, which queries compare with a box.
    void setCoordinate(bool isCoordinate) { m_isCoordinate = isCoordinate; }
    bool isCoordinate() const noexcept { return m_isCoordinate; }
    // A grid to follow in addition to those that the survey finds, which stay the same.
    void expect(const FloatGrid& grid) { m_expected = grid; }
    // The expected grid with the range of its integers; null as soon as it does not represent all samples.
    const FloatGrid* getExpected() const noexcept { return m_expected ? &*m_expected : nullptr; }

    void add(const ChannelData& channel, std::size_t count);
    // Of samples: extends the ranges, so that all samples of the source are probably in them. `extent` is the
    // known extent of the channel, empty if it is unknown.
    void addMargin(DataType type, const Bounds::Range& extent);

    // The range of an integer channel, converted to signed 64-bit integers.
    const Range& getRange() const noexcept { return m_range; }
    // The grids that represent all samples so far, best first. Before the first sample: the declared grids.
    const std::vector<FloatGrid>& getGrids() const noexcept { return m_begun ? m_grids : m_declared; }
    // The number of decimals of a floating-point channel, for TextDecimals, if text output cannot derive it
    // from `scale` (0: no grid). 0 if nothing needs to be added.
    int getHiddenDecimals(double scale) const noexcept;
    // The ranges of the exponent fields and sign bits of a floating-point channel.
    const Range& getExponents() const noexcept { return m_exponents; }
    const Range& getSigns() const noexcept { return m_signs; }

private:
    void addIntegers(const ChannelData& channel, std::size_t count);
    void addReals(const ChannelData& channel, std::size_t count);
    void followExpected(const ChannelData& channel, std::size_t count);

    bool m_begun = false;
    bool m_isCoordinate = false;
    std::vector<FloatGrid> m_declared;
    std::vector<FloatGrid> m_grids;
    std::optional<FloatGrid> m_expected;
    DecimalSurvey m_decimals;
    Range m_range;
    Range m_exponents;
    Range m_signs;
};

} // namespace Quillmoran
