// Queries of the public interface as the classes of the library take them.
#pragma once

#include <vxunpack/Bounds.h>
#include <vxunpack/Cloud.h>
#include <vxunpack/PointInfo.h>

#include <string>
#include <vector>

namespace vx {

// Throws InvalidArgument for an inverted box or a NaN.
Quillmoran::Bounds toBounds(const Box& box);
// Throws InvalidArgument unless it is above 0 and at most 1.
void checkFraction(double fraction);
// X, Y and Z, then the named channels; all channels if none is named. Throws InvalidArgument for an unknown
// name.
Quillmoran::PointInfo chooseChannels(const Quillmoran::PointInfo& all, const std::vector<std::string>& names);

} // namespace vx
