// The leaf of a channel's chain: the samples of one band, decoded subblock by subblock as they are asked for.
#pragma once

#include "decode/SubbandSource.h"
#include "decode/SubblockReader.h"
#include "platform/Stream.h"

#include <vector>

namespace Quillmoran {

// Places in a band from which reading can resume, so that a seek backwards need not walk all headers from the
// band's start. Holds a bounded number of them, evenly spread over what has been read: when it is full, every
// second one goes.
class SubblockCheckpoints
{
public:
    struct Checkpoint
    {
        std::uint64_t subblock = 0; // the next one to be read
        std::int64_t headers = 0;   // positions of the streams
        std::int64_t data = 0;
        std::size_t pendingZeros = 0;
    };

    void reset(const Checkpoint& start);
    // Offers a place; it is kept if it lies a stride behind the last one.
    void offer(const Checkpoint& place);
    // The last place at or before a subblock.
    const Checkpoint& before(std::uint64_t subblock) const;

private:
    static constexpr std::size_t capacity = 256;

    std::uint64_t m_stride = 1; // subblocks
    std::vector<Checkpoint> m_places;
};

template <class T>
class SubbandReaderImp final : public SubbandSource
{
public:
    SubbandReaderImp(SubblockReader& reader, unsigned level, bool isHigh, const BandStretches& stretches,
                     std::int64_t numSamples);

    void begin(std::int64_t position) override;
    void seek(std::int64_t position) override;
    std::size_t get(void* out, std::size_t count) override;
    void end() override;

private:
    static constexpr std::uint64_t noSubblock = UINT64_MAX;

    // Decodes the subblock into the buffer unless it is there, and returns its number of samples.
    std::size_t load(std::uint64_t subblock);
    void walkTo(std::uint64_t subblock);
    StreamReader& dataStream() noexcept { return m_stretches.interleaved ? m_headers : m_data; }

    SubblockReader& m_reader;
    BandStretches m_stretches;
    Scoped<IO> m_headerStretch; // the stretches as stores that end where they end
    Scoped<IO> m_dataStretch;
    StreamReader m_headers;
    StreamReader m_data;
    SubblockCheckpoints m_checkpoints;

    std::int64_t m_position = 0;         // of the next sample
    std::uint64_t m_next = 0;            // the subblock that the streams stand before
    std::size_t m_pendingZeros = 0;      // of the subblocks from m_next on
    std::uint64_t m_loaded = noSubblock; // the subblock in the buffer
    Buffer<T> m_samples;
};

} // namespace Quillmoran
