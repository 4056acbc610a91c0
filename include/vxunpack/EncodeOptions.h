// What a user may choose of a file being written; whatever is not given is chosen from the data.
#pragma once

#include "encode/planning/PlanChooser.h"
#include <vxunpack/Export.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace Quillmoran {

// The versions of the container and of its chunks. The newest are the default; older ones are for readers
// that know no others.
struct FileVersions
{
    static constexpr std::uint8_t withClassNames = 2;    // of the file: from here on
    static constexpr std::uint8_t withSingleLengths = 4; // one length a subblock, not one a bit plane

    std::uint8_t file = 4;   // 1 to 4
    std::uint8_t header = 2; // wavelet header, 1 or 2
    std::uint8_t index = 2;  // 1 or 2
    std::uint8_t band = 3;   // subband chunks, 1 to 3
};

struct QM_API EncodeOptions
{
    FileVersions versions;
    ChannelChoice all;                              // for every channel that it suits
    std::map<std::string, ChannelChoice> byChannel; // what it gives comes first, and must suit
    std::optional<std::uint32_t> numLevels;         // 1 to 64
    std::optional<std::uint32_t> pointsPerEntry;    // of the index
    int rawPlanes = SubblockFormat::chooseRawPlanes;

    // InvalidArgument for a value out of its range.
    void check() const;
};

} // namespace Quillmoran
