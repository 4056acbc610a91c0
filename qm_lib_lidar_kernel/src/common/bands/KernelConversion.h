// Converts between the samples of points and the kernel samples of one record.
#pragma once

#include "common/bands/KernelSamples.h"
#include "common/container/WaveletChannelInfo.h"

#include <cstddef>

namespace Quillmoran {

// How the samples of a record are converted.
enum ConversionAction : int
{
    CONVERT_NONE = 0,
    CONVERT_PLAIN = 1,
    CONVERT_EXTRACT_FRACTION = 2, // encoding: parts of a split channel
    CONVERT_EXTRACT_EXPONENT = 3,
    CONVERT_EXTRACT_SIGN = 4,
    CONVERT_MERGE = 5 // decoding: a part of a split channel, merged once all three parts are decoded
};

class KernelConversion
{
public:
    // `channelIndex` is the index of the channel in the points. The record must outlive the conversion.
    void setupConvert(const WaveletChannelInfo& record, ConversionAction action,
                      std::size_t channelIndex) noexcept;
    ConversionAction getAction() const noexcept { return m_action; }

    // Point samples [0, count) to kernel samples.
    void convertToKernel(const PointData& points, KernelSamples& kernel, std::size_t count) const;
    // Kernel samples to point samples; nothing unless the action is CONVERT_PLAIN.
    void convertFromKernel(const KernelSamples& kernel, PointData& points, std::size_t count) const;
    // Called for the fraction: rebuilds floating-point samples from three decoded parts. Each part is
    // truncated to its width, since coarse levels of a part can have larger values.
    void mergeFromKernel(const KernelSamples& fraction, const KernelSamples& exponent,
                         const KernelSamples& sign, PointData& points, std::size_t count) const;

private:
    const WaveletChannelInfo* m_record = nullptr;
    ConversionAction m_action = CONVERT_NONE;
    std::size_t m_channelIndex = 0;
};

} // namespace Quillmoran
