// The options of an encoded file. Values that are not set are chosen from the data.
#pragma once

#include <vxunpack/Export.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace Quillmoran {

// The versions of a .vxl file and of its chunks. The newest versions are the default; older versions are for
// readers that do not support the newest.
struct FileVersions
{
    static constexpr std::uint8_t withClassNames = 2; // first version of the file with class names
    static constexpr std::uint8_t withSingleLengths =
        4; // first version with one length per subblock, not per plane

    std::uint8_t file = 4;   // 1 to 4
    std::uint8_t header = 2; // of the wavelet header, 1 or 2
    std::uint8_t index = 2;  // 1 or 2
    std::uint8_t band = 3;   // of the subbands, 1 to 3
};

// How a channel is coded.
struct ChannelChoice
{
    // The code of a transform: MQ-coded integers 1, 3, 10, 11, 13; arithmetic-coded integers 81, 83, 90, 91,
    // 93; deflated floating point 61, 63, 70, 71, 73.
    std::optional<std::uint8_t> transform;
    // Whether a transform that the channel does not support is an error; otherwise the transform is ignored.
    bool isRequired = false;
    // Tries the transforms that smooth, instead of those that keep samples unchanged at coarse levels.
    bool smooth = false;
    std::optional<std::uint32_t> subblockSize; // samples, 16 to 1048576
};

// What the choice of codings prefers.
enum class Preference : std::uint8_t
{
    Balanced, // files that are small and fast to decode
    Size,     // the smallest files. Encoding takes several times as long, and reads the source twice
    Speed // files that are decoded faster, and are a few per cent larger. Encoding takes nearly twice as long
};

struct QM_API EncodeOptions
{
    FileVersions versions;
    ChannelChoice all;                              // for all channels
    std::map<std::string, ChannelChoice> byChannel; // takes precedence; its transform is always required
    std::optional<std::uint32_t> numLevels;         // 1 to 64
    std::optional<std::uint32_t> pointsPerEntry;    // of the index
    // MQ coding: the number of lowest bit planes that are stored raw, 0 to 64.
    std::optional<int> rawPlanes;
    Preference prefer = Preference::Balanced;

    // Throws InvalidArgument for a value out of its range and General "bad transform type" for an unknown
    // transform.
    void check() const;
};

} // namespace Quillmoran
