// The results of vxinfo for one file, to be written as text or JSON.
#pragma once

#include "decode/container/WaveletDecoderInfo.h"
#include "info/ChannelStatistics.h"
#include "utils/sets/Inputs.h"
#include <vxunpack/Metadata.h>
#include <vxunpack/PointSource.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

// The sizes of the bands of a compressed file, summed per channel record and per level. They come from the
// directory of bands; nothing is decoded.
struct CompressedSize
{
    struct Channel
    {
        std::int64_t headerBytes = 0;
        std::int64_t dataBytes = 0;
        bool interleaved = false; // headers are between the payloads and counted as data

        std::int64_t bytes() const noexcept { return headerBytes + dataBytes; }
    };

    std::vector<Channel> channels; // one per record
    // Level 0 is the full resolution. Decoding level k reads the bytes of levels k and above.
    std::vector<std::int64_t> levelBytes;

    static CompressedSize of(const WaveletDecoderInfo& info);
};

// The description of a file, known before any point is decoded.
struct SourceDescription
{
    Scoped<PointSource> source; // has count, bounds, channels, class names, WKT
    const char* typeName = "";
    const char* format = nullptr; // of a single file; null for an index
    std::optional<std::uint64_t> fileBytes;
    bool hasWaveforms = false; // whose packets are not decoded
    Metadata metadata;

    // Only for compressed files. Owned by the source.
    const WaveletDecoderInfo* compression = nullptr;
    CompressedSize compressedSize;

    // Throws the errors of metadata that cannot be read.
    SourceDescription(const Scoped<PointSource>& opened, const Utils::Input& input);

    // Statistics of all channels, without samples. With `isSampled`, only a part of the points will be added,
    // and the range is taken from the file if it is there.
    std::vector<ChannelStatistics> startStatistics(bool isSampled) const;
};

struct FileReport
{
    struct Check
    {
        long long numPoints;      // decoded
        std::size_t numQueries;   // compared boxes
        std::uint64_t numDigests; // compared; 0 if the file has none
    };

    std::string fileName;
    std::optional<SourceDescription> description; // none if the file cannot be opened
    std::optional<Check> check;                   // only if -check completed
    std::vector<ChannelStatistics> statistics;    // only if -stats completed
    bool isFast = false;                          // statistics could be estimates
    std::uint64_t samplingInterval = 1;           // points, of which one was read for them
    std::vector<std::string> problems;            // empty for a sound file
};

} // namespace Quillmoran
