// The leaf of a channel's chain: the samples of one band, decoded subblock by subblock as they are asked for.
#pragma once

#include "decode/bands/SubbandSource.h"
#include "decode/coders/SubblockReader.h"
#include "platform/Stream.h"

#include <vector>

namespace Quillmoran {

// Places in a band from which reading can resume, so that a seek backwards need not walk all headers from the
// band's start. Holds a bounded number of them, evenly spread over the headers that have been read: when it
// is full, every second one goes. And the latest ones: a range of points begins up to a few samples before
// what was read for the range in front of it, and there can be a range for every other subblock.
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

    // `latest` is how many of the latest places are kept.
    void reset(const Checkpoint& start, std::size_t latest);
    // Offers a place; it is kept among the spread ones if it lies a stride behind the last of them.
    void offer(const Checkpoint& place);
    // The last place at or before a subblock.
    const Checkpoint& before(std::uint64_t subblock) const;

private:
    static constexpr std::size_t capacity = 256;
    static constexpr std::int64_t smallestStride = 64; // so that places take less than what they skip

    std::int64_t m_stride = smallestStride; // bytes of headers
    std::vector<Checkpoint> m_places;
    std::vector<Checkpoint> m_latest; // a ring
    std::size_t m_oldest = 0;
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
    void prepare(std::size_t count, std::vector<CodedSubblock>& work) override;
    void end() override;

private:
    static constexpr std::size_t noSamples = SIZE_MAX;

    // A subblock, or a run of those that are zero and take no room.
    struct Piece
    {
        std::uint64_t firstSubblock = 0;
        std::uint64_t endSubblock = 0;
        std::size_t samples = noSamples; // where they are in the window
        std::size_t payload = 0;         // where it is among the payloads
        std::size_t count = 0;           // of samples
        SubblockHeader header;
    };

    // Opens the streams, on first use: a query may never come to this band.
    void open();
    void walkTo(std::uint64_t subblock);
    // Forgets the pieces in front of a subblock, all of them when it does not follow.
    void dropBefore(std::uint64_t subblock);
    // Reads the next subblock, or as many as are zero, but none from `end` on.
    void addPiece(std::uint64_t end);
    void reserveSamples(std::size_t count);
    void prepareAndDecode(std::size_t count);
    StreamReader& dataStream() noexcept { return m_stretches.interleaved ? m_headers : m_data; }
    std::uint64_t subblockOf(std::int64_t position) const noexcept
    {
        return static_cast<std::uint64_t>(position) / getBlockSize();
    }
    // Where a piece's samples begin and end in the band.
    std::int64_t startOf(const Piece& piece) const noexcept;
    std::int64_t endOf(const Piece& piece) const noexcept;

    SubblockReader& m_reader;
    BandStretches m_stretches;
    Scoped<IO> m_headerStretch; // the stretches as stores that end where they end
    Scoped<IO> m_dataStretch;
    StreamReader m_headers;
    StreamReader m_data;
    SubblockCheckpoints m_checkpoints;
    std::uint64_t m_next = 0;       // the subblock that the streams stand before
    std::size_t m_pendingZeros = 0; // of the subblocks from m_next on

    std::int64_t m_position = 0;          // of the next sample
    std::vector<Piece> m_pieces;          // in order, without gaps
    std::size_t m_current = 0;            // the piece that was read last
    Buffer<T> m_samples;                  // the window: the samples of the pieces, in order
    std::size_t m_numSamples = 0;         // used of it
    std::size_t m_capacity = 0;           // of it
    std::vector<std::uint8_t> m_payloads; // of the pieces that were prepared last
};

} // namespace Quillmoran
