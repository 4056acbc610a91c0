// Writes one band of a channel. It divides samples into subblocks, which the caller encodes on any threads,
// and appends the encoded subblocks, in order, to the streams of the band. The counterpart is
// decode/bands/SubbandReader.cpp.
#pragma once

#include "encode/bands/SpillStream.h"
#include "encode/coders/SubblockWriter.h"

#include <cstddef>
#include <vector>

namespace Quillmoran {

class SubbandWriter
{
public:
    using Bytes = SubblockWriter::Bytes;

    struct Subblock
    {
        Bytes samples;
        std::size_t count = 0;
        bool isZero = false;
        Bytes headers; // encoded
        Bytes data;

        void encode(SubblockWriter& writer);
    };

    // In interleaved bands each payload follows its header, and data() is empty.
    SubbandWriter(const SubblockFormat& format, bool interleaved, SpillFile& file);

    void put(const void* samples, std::size_t count);
    // Ends the band: the remaining samples become a shorter subblock.
    void finish();

    // The subblocks that are complete and not committed. commit() stores them when all are encoded.
    std::size_t numPending() const noexcept { return m_pending; }
    Subblock& getPending(std::size_t index) noexcept { return m_subblocks[index]; }
    void commit();

    const SpillStream& headers() const noexcept { return m_headers; }
    const SpillStream& data() const noexcept { return m_data; }
    bool isInterleaved() const noexcept { return m_interleaved; }
    std::size_t getLargestPayload() const noexcept { return m_largestPayload; } // bytes

private:
    void storeZeros();

    SubblockFormat m_format;
    bool m_interleaved;
    bool m_finished = false;
    std::vector<Subblock> m_subblocks; // the pending ones, then the incomplete one
    std::size_t m_pending = 0;
    std::size_t m_zeros = 0; // zero subblocks that are not yet stored
    std::size_t m_largestPayload = 0;
    SpillStream m_headers;
    SpillStream m_data;
};

} // namespace Quillmoran
