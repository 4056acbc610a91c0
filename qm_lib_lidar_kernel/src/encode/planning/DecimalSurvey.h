// The number of decimals of a floating-point channel: the smallest number of decimal places with which text
// is parsed as exactly each of the samples.
//
// Text output derives the number of decimals from the scale of a channel if the scale is a power of ten. Such
// a scale does not restore all decimals: 40603 times the double 0.01 is not the double 406.03. With a scale
// that does restore decimals (FloatGrid), or without any, text output would print all digits,
// 411.189999999999998. The number of decimals is therefore stored in the metadata, and text output prints
// 411.190 (TextDecimals.h). This costs about 45 bytes per channel; samples coded without a scale would cost
// several bytes each.
#pragma once

#include <vxunpack/PointData.h>

#include <cstddef>

namespace Quillmoran {

class DecimalSurvey
{
public:
    // Samples of a FLOAT32 or FLOAT64 channel.
    void add(const ChannelData& channel, std::size_t count);

    // The smallest number of decimals. 0 if it exceeds TextDecimals::most, if text with that number of
    // decimals would not show every sample as its decimal, or if all samples equal their decimals exactly
    // (245380.125), which text with all digits also shows.
    int get() const noexcept;

private:
    bool m_isNarrow = false; // FLOAT32
    int m_decimals = 0;      // above TextDecimals::most: none
    bool m_isExact = true;
    double m_largest = 0; // magnitude of finite samples
};

} // namespace Quillmoran
