// Reads the three wavelet chunks: header, index and subband. The counterpart is
// encode/container/ChunkWriter.h.
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
    // Replaces the tree and returns the points per index entry.
    std::uint32_t readIndex(std::int64_t length, Scoped<RTree>& tree);
    // Checks that the chunk belongs to the channel and subband and notes its byte ranges. A chunk of version
    // 1 has only the second range.
    void readSubband(std::int64_t length, std::uint32_t channel, std::uint32_t subband, IO::Location& first,
                     IO::Location& second);
};

} // namespace Quillmoran
