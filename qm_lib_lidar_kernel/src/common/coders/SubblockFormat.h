// How the subblocks of a channel are coded. SubblockReader and SubblockWriter are made from it.
#pragma once

#include "common/coders/TransformUtils.h"
#include <vxunpack/DataType.h>
#include <vxunpack/EncodeOptions.h>

#include <cstddef>
#include <optional>

namespace Quillmoran {

struct SubblockFormat
{
    DataType type = INVALID; // a kernel type
    TransformType transform = 0;
    std::size_t subblockSize = 0; // samples
    // MQ coding: one payload length per bit plane, not one per subblock. Old files have this for lifted
    // channels.
    bool perPlaneLengths = false;
    // MQ coding: the number of lowest planes that are written raw; without a value the writer chooses it for
    // each subblock.
    std::optional<int> rawPlanes = std::nullopt;
    Preference prefer = Preference::Balanced; // of the writer
};

} // namespace Quillmoran
