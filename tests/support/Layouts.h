// Channel descriptions and layouts in one expression.
#pragma once

#include <vxunpack/PointInfo.h>

#include <initializer_list>

namespace Quillmoran::Testing {

// 0 bits: all of the type.
inline ChannelInfo channel(const char* name, DataType type, double quantization = 0, int bits = 0)
{
    ChannelInfo info;
    info.init(name, type, bits, quantization);
    return info;
}

inline PointInfo layoutOf(std::initializer_list<ChannelInfo> channels)
{
    PointInfo layout;
    for (const ChannelInfo& info : channels)
        layout.append(info);
    return layout;
}

// X, Y and Z, and the channels given.
inline PointInfo layoutXYZ(std::initializer_list<ChannelInfo> more = {})
{
    PointInfo layout = layoutOf({channel("X", FLOAT64), channel("Y", FLOAT64), channel("Z", FLOAT64)});
    for (const ChannelInfo& info : more)
        layout.append(info);
    return layout;
}

} // namespace Quillmoran::Testing
