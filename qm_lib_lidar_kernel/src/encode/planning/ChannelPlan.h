// How a channel is going to be coded: the kernel channels that it becomes, one, or the three parts of a split
// floating-point channel.
#pragma once

#include "common/container/WaveletChannelInfo.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

struct KernelPlan
{
    std::string name; // with its prefix
    DataType dataType = INVALID;
    ConversionAction action = CONVERT_PLAIN;
    TransformType transform = 0;
    std::uint32_t subblockSize = 0; // samples
    int bits = 0;                   // of integer kernel samples
    double offset = 0;
    double scale = 0; // 0 unless quantized
};

using ChannelPlan = std::vector<KernelPlan>;

} // namespace Quillmoran
