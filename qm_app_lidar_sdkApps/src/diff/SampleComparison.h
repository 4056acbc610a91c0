// Compares the samples of one channel of two clouds, block by block. Integers are compared exactly.
// Floating-point numbers are equal if they have the same value, so that -0.0 equals 0.0, or the same bits:
// NaN equals only the same NaN.
#pragma once

#include "diff/DiffReport.h"
#include <vxunpack/PointData.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

// Whether two coordinates differ by at most a tolerance, which is not negative. The binary rounding of
// decimals and a millionth of the tolerance do not count, so that 500000.02 and 500000.03 are within 0.01.
bool isWithin(double a, double b, double tolerance) noexcept;

class SampleComparison
{
public:
    // The tolerance applies to channels that are FLOAT64 in both clouds.
    SampleComparison(const ChannelInfo& a, const ChannelInfo& b, double tolerance);

    // The next `count` samples of both channels; the first one belongs to the point with this index.
    void add(const ChannelData& a, const ChannelData& b, std::size_t count, std::uint64_t firstPoint);

    const DiffReport::Samples& getResult() const noexcept { return m_result; }

private:
    template <class T>
    void addSame(const T* a, const T* b, std::size_t count, std::uint64_t firstPoint);
    void addMixed(const ChannelData& a, const ChannelData& b, std::size_t count, std::uint64_t firstPoint);
    // Finds the first pairs among these.
    template <class T, class Differ>
    void addPairs(const T* a, const T* b, std::size_t count, std::uint64_t firstPoint, Differ differs);

    DiffReport::Samples m_result;
    double m_tolerance;
    std::vector<ExactNumber> m_numbersOfA, m_numbersOfB; // of a block; only for different types
};

} // namespace Quillmoran
