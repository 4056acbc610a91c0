// Compares what two clouds say about their points: channels, coordinate system, class names and metadata.
#pragma once

#include "diff/DiffReport.h"
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Quillmoran {

struct ComparedCloud;

// The channels to read from two clouds: both layouts have the same names in the same order, X, Y and Z among
// them.
struct ComparedChannels
{
    PointInfo a, b;
    std::vector<std::size_t> compared; // indices in the layouts
};

// Adds the differences and notes to the report. `names` are the channels to compare, as a user calls them
// (see ChannelNames::resolve); none: all. Throws InvalidArgument if neither cloud has a channel of a name, or
// one of them has no coordinates, and the errors of SpatialReference::isSame().
ComparedChannels compareDescriptions(const ComparedCloud& a, const ComparedCloud& b,
                                     const std::vector<std::string>& names, DiffReport& report);

} // namespace Quillmoran
