// How channels appear in PDAL: standard channels as PDAL's standard dimensions, all others under their own
// names. The BPF reader and writer and the stage share it.
#pragma once

#include <vxunpack/PointInfo.h>

#include <string>
#include <vector>

namespace Quillmoran {

struct PDALDimension
{
    std::string name;
    DataType type;
    double factor; // a sample times this is the dimension's value; it is 1 but for scan angles of 16 bits
};

namespace PDALDimensions {

// One per channel of the layout, in its order. Names are such as PDAL takes, and no two are the same: what
// PDAL does not take in a name becomes an underscore, and a name that is taken gets one more at its end.
std::vector<PDALDimension> ofLayout(const PointInfo& layout);

} // namespace PDALDimensions

} // namespace Quillmoran
