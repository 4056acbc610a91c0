// The sizes of the bands of a compressed file, summed per channel record and per level. They come from the
// directory of bands; nothing is decoded.
#pragma once

#include "decode/container/WaveletDecoderInfo.h"

#include <cstdint>
#include <vector>

namespace Quillmoran {

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

} // namespace Quillmoran
