// The leaf of a channel's chain: decodes the samples of one band, subblock by subblock, when they are
// requested. The counterpart is encode/bands/SubbandWriter.h.
#pragma once

#include "decode/bands/SubbandSource.h"
#include "decode/bands/SubblockCheckpoints.h"
#include "decode/coders/SubblockReader.h"
#include "platform/Stream.h"

#include <vector>

namespace Quillmoran {

template <class T>
class SubbandReaderImp final : public SubbandSource
{
public:
    SubbandReaderImp(SubblockReader& reader, const BandRanges& ranges, std::int64_t numSamples);

    void begin(std::int64_t position) override;
    void seek(std::int64_t position) override;
    std::size_t get(void* out, std::size_t count) override;
    void prepare(std::size_t count, std::vector<CodedSubblock>& work) override;
    void end() override;

private:
    static constexpr std::size_t noSamples = SIZE_MAX;

    // A subblock, or consecutive zero subblocks, which need no samples.
    struct Piece
    {
        std::uint64_t firstSubblock = 0;
        std::uint64_t endSubblock = 0;
        std::size_t samples = noSamples; // index in m_samples
        std::size_t payload = 0;         // index in m_payloads
        std::size_t count = 0;           // of samples
        SubblockHeader header;
    };

    // Opens the streams. Called on first use: a query may not need this band.
    void open();
    void walkTo(std::uint64_t subblock);
    // Drops the pieces before a subblock, or all of them if none contains it.
    void dropBefore(std::uint64_t subblock);
    // Reads the next subblock, or the next zero subblocks before `end`.
    void addPiece(std::uint64_t end);
    void reserveSamples(std::size_t count);
    void prepareAndDecode(std::size_t count);
    StreamReader& dataStream() noexcept { return m_ranges.interleaved ? m_headers : m_data; }
    std::uint64_t subblockOf(std::int64_t position) const noexcept
    {
        return static_cast<std::uint64_t>(position) / getBlockSize();
    }
    // The samples of a piece, as positions in the band.
    std::int64_t startOf(const Piece& piece) const noexcept;
    std::int64_t endOf(const Piece& piece) const noexcept;

    SubblockReader& m_reader;
    BandRanges m_ranges;
    Scoped<IO> m_headerRange; // files that end at the end of the ranges
    Scoped<IO> m_dataRange;
    StreamReader m_headers;
    StreamReader m_data;
    SubblockCheckpoints m_checkpoints;
    std::uint64_t m_next = 0;       // the subblock at the position of the streams
    std::size_t m_pendingZeros = 0; // subblocks from m_next on that are known to be zero

    std::int64_t m_position = 0;          // of the next sample
    std::vector<Piece> m_pieces;          // in order, without gaps
    std::size_t m_current = 0;            // index of the piece that was read last
    Buffer<T> m_samples;                  // of the pieces, in order
    std::size_t m_numSamples = 0;         // used
    std::size_t m_capacity = 0;           // allocated
    std::vector<std::uint8_t> m_payloads; // of the pieces that were prepared last
};

} // namespace Quillmoran
