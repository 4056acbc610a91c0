// One band of a channel on its way into the file: cuts samples into subblocks, which others encode on any
// thread, and appends what became of them, in their order, to the band's stretches.
#pragma once

#include "encode/bands/SpillStream.h"
#include "encode/coders/SubblockWriter.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

class SubbandWriter
{
public:
    using Bytes = SubblockWriter::Bytes;

    struct Subblock
    {
        Bytes samples; // room for a full subblock
        std::size_t count = 0;
        bool isZero = false;
        Bytes headers; // what it is coded as
        Bytes data;

        void encode(SubblockWriter& writer);
    };

    // Interleaved bands hold each payload behind its header, all in headers().
    SubbandWriter(const SubblockFormat& format, bool interleaved, SpillFile& file);

    void put(const void* samples, std::size_t count);
    // Ends the band: what is left becomes a shorter subblock.
    void finish();

    // The subblocks that are complete and not committed. Once all are encoded, commit() stores them.
    std::size_t numPending() const noexcept { return m_pending; }
    Subblock& getPending(std::size_t index) noexcept { return m_subblocks[index]; }
    void commit();

    const SpillStream& headers() const noexcept { return m_headers; }
    const SpillStream& data() const noexcept { return m_data; }
    bool isInterleaved() const noexcept { return m_interleaved; }

private:
    void storeZeros();

    SubblockFormat m_format;
    bool m_interleaved;
    bool m_finished = false;
    std::vector<Subblock> m_subblocks; // the pending ones, then the one that is being filled
    std::size_t m_pending = 0;
    std::size_t m_zeros = 0; // zero subblocks that are not stored yet
    SpillStream m_headers;
    SpillStream m_data;
};

} // namespace Quillmoran
