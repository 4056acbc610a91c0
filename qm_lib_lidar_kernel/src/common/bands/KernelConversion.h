// Converts between the samples of points and the kernel samples of one record.
#pragma once

#include "common/bands/KernelSamples.h"
#include "common/container/WaveletChannelInfo.h"

#include <cstddef>

namespace Quillmoran {

class KernelConversion
{
public:
    // `channelIndex` is the index of the channel in the points. The record must outlive the conversion.
    void setupConvert(const WaveletChannelInfo& record, std::size_t channelIndex) noexcept
    {
        m_record = &record;
        m_channelIndex = channelIndex;
    }

    // Point samples [0, count) to kernel samples. Of a split channel the part that the record holds.
    void convertToKernel(const PointData& points, KernelSamples& kernel, std::size_t count) const;
    // Kernel samples to point samples; nothing for a part of a split channel.
    void convertFromKernel(const KernelSamples& kernel, PointData& points, std::size_t count) const;
    // The same for a channel of any type of its kind, integer or floating point.
    void convertFromKernel(const KernelSamples& kernel, ChannelData& channel, std::size_t count) const;
    // Called for the fraction: rebuilds floating-point samples from three decoded parts. Each part is
    // truncated to its width, since coarse levels of a part can have larger values.
    void mergeFromKernel(const KernelSamples& fraction, const KernelSamples& exponent,
                         const KernelSamples& sign, PointData& points, std::size_t count) const;

private:
    const WaveletChannelInfo* m_record = nullptr;
    std::size_t m_channelIndex = 0;
};

} // namespace Quillmoran
