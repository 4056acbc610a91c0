// The number of decimals of a floating-point channel: the least number of places with which a decimal number
// is read as each of the samples.
//
// Text output takes the number of decimals from the scale of a channel, which must then be a power of ten. No
// such scale restores all decimals: 40603 times the double 0.01 is not the double 406.03, and the text rules
// accept no other scale of which it is a multiple. Scales that do restore decimals (FloatGrid), or none at
// all, make text output print all digits, 411.189999999999998. The number found here goes into the metadata
// and makes it print 411.190 (TextDecimals.h). That is some 45 bytes per channel, where samples coded without
// a scale would take several bytes each.
#pragma once

#include <vxunpack/PointData.h>

#include <cstddef>

namespace Quillmoran {

class DecimalSurvey
{
public:
    // Samples of a FLOAT32 or FLOAT64 channel.
    void add(const ChannelData& channel, std::size_t count);

    // The least number of decimals; 0 when there is none up to TextDecimals::most, when text with that number
    // of decimals would not show every sample as its decimal, or when all samples are exactly their
    // decimals (245380.125), which text with all digits shows as well.
    int get() const noexcept;

private:
    bool m_isNarrow = false; // FLOAT32
    int m_decimals = 0;      // beyond the most: none
    bool m_isExact = true;
    double m_largest = 0; // magnitude of the finite samples
};

} // namespace Quillmoran
