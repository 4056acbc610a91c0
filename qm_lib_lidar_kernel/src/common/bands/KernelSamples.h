// The samples of a channel in its kernel type, for one block of points.
#pragma once

#include <vxunpack/PointData.h>

#include <cstddef>

namespace Quillmoran {

class KernelSamples : public ChannelData
{
public:
    // Provides at least `count` samples of a type with unspecified values.
    void reserve(DataType type, std::size_t count)
    {
        if (getDataType() == type && getNumSamples() >= count)
            return;
        ChannelInfo info;
        info.init(nullptr, type, 0, 0);
        init(info, count);
    }
};

} // namespace Quillmoran
