// Where the bytes of a compressed file go: the stretches of its bands, added up per channel record and per
// level. Taken from the directory that opening read; nothing is decoded.
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
        bool interleaved = false; // headers stand between the payloads and are counted as data

        std::int64_t bytes() const noexcept { return headerBytes + dataBytes; }
    };

    std::vector<Channel> channels; // one per record
    // Level 0 is the full resolution. To decode level k takes the bytes of level k and of all above it.
    std::vector<std::int64_t> levelBytes;

    static CompressedSize of(const WaveletDecoderInfo& info);
};

} // namespace Quillmoran
