// Reads the three chunks of the wavelet decomposition: header, index and subbands.
#pragma once

#include "decode/container/BaseChunkReader.h"
#include "decode/container/WaveletDecoderInfo.h"

namespace Quillmoran {

class ChunkReader : public BaseChunkReader
{
public:
    using BaseChunkReader::BaseChunkReader;

    struct WaveletHeader
    {
        std::int64_t numPoints = 0;
        std::uint32_t numLevels = 0;
        std::vector<WaveletDecoderChannelInfo> channels;
    };

    WaveletHeader readWaveletHeader(std::int64_t length);
    // Replaces the tree; returns the points per index entry.
    std::uint32_t readIndex(std::int64_t length, Scoped<RTree>& tree);
    // Checks that the chunk is that of the channel and subband and notes its stretches. A chunk of version 1
    // holds one stretch, the second.
    void readSubband(std::int64_t length, std::uint32_t channel, std::uint32_t subband, IO::Location& first,
                     IO::Location& second);
};

} // namespace Quillmoran
