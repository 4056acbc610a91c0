// Dimensions of PDAL for channels: PDAL's standard dimensions for standard channels, dimensions with the same
// name for all others. The BPF reader, the BPF writer and the stage use it.
#pragma once

#include <vxunpack/PointInfo.h>

#include <string>
#include <vector>

namespace Quillmoran {

struct PDALDimension
{
    std::string name;
    DataType type;
    double factor; // value of the dimension / sample; 1 except for scan angles of 16 bits
};

namespace PDALDimensions {

// One per channel of the layout, in its order. The names are valid and unique: underscores replace characters
// that PDAL does not allow, and are appended to names that are used already.
std::vector<PDALDimension> ofLayout(const PointInfo& layout);

} // namespace PDALDimensions

} // namespace Quillmoran
