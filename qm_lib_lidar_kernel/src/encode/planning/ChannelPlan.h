// The plan for coding a point channel: its kernel channels, which are one, or the three parts of a split
// floating-point channel.
#pragma once

#include "common/bands/KernelConversion.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

struct KernelPlan
{
    std::string name; // with the prefix of its part
    DataType dataType = INVALID;
    TransformType transform = 0;
    std::uint32_t subblockSize = 0; // samples
    int bits = 0;                   // significant bits of integer kernel samples
    double offset = 0;
    double scale = 0; // 0 unless quantized
    // The samples are also encoded in these codings, and the smallest is written.
    struct Coding
    {
        TransformType transform;
        std::uint32_t subblockSize;
    };
    std::vector<Coding> others = {};
};

using ChannelPlan = std::vector<KernelPlan>;

} // namespace Quillmoran
