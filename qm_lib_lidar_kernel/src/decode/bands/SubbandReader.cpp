// The leaf of a channel's chain: decodes the samples of one band, subblock by subblock, when they are
// requested. The counterpart is encode/bands/SubbandWriter.h.
#include "common/coders/KernelTypes.h"
#include "decode/bands/SubbandSource.h"
#include "decode/bands/SubblockCheckpoints.h"
#include "decode/coders/SubblockReader.h"
#include "platform/Stream.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace Quillmoran {

namespace {

// Limits the allocation for a damaged record. Writers use far smaller subblocks.
constexpr std::uint64_t maxSubblockSamples = std::uint64_t{1} << 24;

// How far the stages of a chain look back in a band.
constexpr std::size_t maxLookBack = 32; // samples

// Opens a stream that ends at the end of a byte range. Coarse bands are small, and so are their buffers.
void openRange(SubblockReader& reader, const IO::Location& range, Scoped<IO>& bounded, StreamReader& stream)
{
    constexpr std::int64_t maxBuffer = 16384;
    bounded.reset(BoundedIO::create(range));
    const std::int64_t bytes = std::clamp<std::int64_t>(range.length(), 1, maxBuffer);
    reader.takeMemory(static_cast<std::uint64_t>(bytes));
    stream.init(bounded.get(), true, static_cast<std::size_t>(bytes));
    stream.seek(range.offset(), Stream::SEEK_FROM_START);
}

template <class T>
class SubbandReaderImp final : public SubbandSource
{
public:
    SubbandReaderImp(SubblockReader& reader, const BandRanges& ranges, std::int64_t numSamples)
        : SubbandSource(reader.getFormat().type, reader.getFormat().transform,
                        reader.getFormat().subblockSize, numSamples),
          m_reader(reader),
          m_ranges(ranges)
    {
        if (std::min<std::uint64_t>(getBlockSize(), static_cast<std::uint64_t>(numSamples)) >
            maxSubblockSamples)
            QM_THROW(ErrorCode::WaveletHeaderRead, "bad read -- channel info");
    }

    void begin(std::int64_t position) override
    {
        end();
        m_next = 0;
        m_pendingZeros = 0;
        m_position = position;
    }

    void seek(std::int64_t position) override
    {
        m_position = position; // the streams follow when samples are asked for
        m_current = 0;
    }

    std::size_t get(void* out, std::size_t count) override
    {
        const std::int64_t left = std::max<std::int64_t>(getNumSamples() - m_position, 0);
        count = static_cast<std::size_t>(std::min<std::uint64_t>(count, static_cast<std::uint64_t>(left)));
        if (m_pieces.empty() || m_position < startOf(m_pieces.front()) ||
            m_position + static_cast<std::int64_t>(count) > endOf(m_pieces.back())) {
            std::vector<CodedSubblock> work;
            prepare(count, work);
            try {
                for (const CodedSubblock& subblock : work)
                    m_reader.decode(subblock);
            } catch (...) {
                m_pieces.clear();
                throw;
            }
        }
        auto* samples = static_cast<T*>(out);
        for (std::size_t copied = 0; copied < count;) {
            const Piece& piece = m_pieces[m_current];
            if (m_position >= endOf(piece)) {
                ++m_current;
                continue;
            }
            const std::size_t taken =
                std::min(count - copied, static_cast<std::size_t>(endOf(piece) - m_position));
            if (piece.samples == noSamples) {
                std::fill_n(samples + copied, taken, T(0));
            } else {
                const auto inside = static_cast<std::size_t>(m_position - startOf(piece));
                std::memcpy(samples + copied, m_samples.get() + piece.samples + inside, taken * sizeof(T));
            }
            copied += taken;
            m_position += static_cast<std::int64_t>(taken);
        }
        return count;
    }

    void prepare(std::size_t count, std::vector<CodedSubblock>& work) override
    {
        if (count == 0 || m_position >= getNumSamples())
            return;
        const std::uint64_t left = static_cast<std::uint64_t>(getNumSamples() - m_position);
        const std::int64_t last =
            m_position + static_cast<std::int64_t>(std::min<std::uint64_t>(count, left)) - 1;
        if (!m_headerRange)
            open();
        dropBefore(subblockOf(m_position));
        const std::size_t prepared = m_pieces.size();
        const std::uint64_t endSubblock = subblockOf(last) + 1;
        std::uint64_t next = m_pieces.empty() ? subblockOf(m_position) : m_pieces.back().endSubblock;
        if (next < endSubblock && next != m_next)
            walkTo(next);
        try {
            while (m_pieces.empty() || m_pieces.back().endSubblock < endSubblock)
                addPiece(endSubblock);
        } catch (...) {
            m_pieces.clear(); // the added ones will not be decoded
            throw;
        }
        // From here on the buffers do not move.
        for (std::size_t i = prepared; i < m_pieces.size(); ++i) {
            const Piece& piece = m_pieces[i];
            if (piece.samples != noSamples)
                work.push_back({piece.header, m_payloads.data() + piece.payload,
                                m_samples.get() + piece.samples, piece.count});
        }
    }

    void end() override
    {
        m_headers.close();
        m_data.close();
        m_headerRange.reset();
        m_pieces.clear();
        m_current = 0;
        m_payloads.clear();
        m_samples.reset();
        m_numSamples = m_capacity = 0;
    }

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
    void open()
    {
        openRange(m_reader, m_ranges.headers, m_headerRange, m_headers);
        if (!m_ranges.interleaved)
            openRange(m_reader, m_ranges.data, m_dataRange, m_data);
        m_checkpoints.reset({0, m_headers.tell(), dataStream().tell(), 0}, maxLookBack / getBlockSize() + 2);
    }

    void walkTo(std::uint64_t subblock)
    {
        SubblockCheckpoints::Checkpoint checkpoint = m_checkpoints.before(subblock);
        if (m_ranges.planned)
            m_ranges.planned->improve(subblock, checkpoint);
        // A checkpoint helps to go back, and to skip headers that were read before.
        if (subblock < m_next || checkpoint.subblock > m_next) {
            m_headers.seek(checkpoint.headers, Stream::SEEK_FROM_START);
            if (!m_ranges.interleaved)
                m_data.seek(checkpoint.data, Stream::SEEK_FROM_START);
            m_pendingZeros = checkpoint.pendingZeros;
            m_next = checkpoint.subblock;
        }
        m_pendingZeros = m_reader.skipSubblocks(subblock - m_next, m_headers, dataStream(), m_pendingZeros);
        m_next = subblock;
        m_checkpoints.offer({m_next, m_headers.tell(), dataStream().tell(), m_pendingZeros});
    }

    // Drops the pieces before a subblock, or all of them if none contains it.
    void dropBefore(std::uint64_t subblock)
    {
        const auto holds = [subblock](const Piece& piece) {
            return piece.firstSubblock <= subblock && subblock < piece.endSubblock;
        };
        const auto first = std::find_if(m_pieces.begin(), m_pieces.end(), holds);
        m_pieces.erase(m_pieces.begin(), first);
        m_current = 0;
        m_payloads.clear();
        // Move the remaining pieces to the front: usually one or two subblocks.
        std::size_t kept = 0;
        for (Piece& piece : m_pieces) {
            if (piece.samples == noSamples)
                continue;
            if (piece.samples != kept)
                std::memmove(m_samples.get() + kept, m_samples.get() + piece.samples,
                             piece.count * sizeof(T));
            piece.samples = kept;
            kept += piece.count;
        }
        m_numSamples = kept;
    }

    // Reads the next subblock, or the next zero subblocks before `end`.
    void addPiece(std::uint64_t end)
    {
        if (m_pieces.size() == m_pieces.capacity()) {
            const std::size_t added = m_pieces.capacity() + 1;
            m_reader.takeMemory(added * sizeof(Piece));
            m_pieces.reserve(m_pieces.capacity() + added);
        }
        Piece piece;
        piece.firstSubblock = m_next;
        if (m_pendingZeros == 0)
            m_pendingZeros = m_reader.readHeader(m_headers, piece.header);
        if (m_pendingZeros != 0) {
            const std::uint64_t zeros = std::min<std::uint64_t>(m_pendingZeros, end - m_next);
            m_pendingZeros -= static_cast<std::size_t>(zeros);
            m_next += zeros;
        } else {
            const std::uint64_t remaining =
                static_cast<std::uint64_t>(getNumSamples()) - m_next * getBlockSize();
            piece.count = static_cast<std::size_t>(std::min<std::uint64_t>(getBlockSize(), remaining));
            piece.payload = m_payloads.size();
            m_reader.readPayload(piece.header, dataStream(), m_payloads);
            reserveSamples(m_numSamples + piece.count);
            piece.samples = m_numSamples;
            m_numSamples += piece.count;
            ++m_next;
        }
        piece.endSubblock = m_next;
        m_pieces.push_back(piece);
        m_checkpoints.offer({m_next, m_headers.tell(), dataStream().tell(), m_pendingZeros});
    }

    void reserveSamples(std::size_t count)
    {
        if (count <= m_capacity)
            return;
        constexpr std::size_t maxSpare = 4096;
        const std::size_t capacity = std::max(count, std::min(2 * m_capacity, count + maxSpare));
        m_reader.takeMemory((capacity - m_capacity) * sizeof(T));
        Buffer<T> larger = makeBuffer<T>(capacity);
        std::copy_n(m_samples.get(), m_numSamples, larger.get());
        m_samples = std::move(larger);
        m_capacity = capacity;
    }

    StreamReader& dataStream() noexcept { return m_ranges.interleaved ? m_headers : m_data; }
    std::uint64_t subblockOf(std::int64_t position) const noexcept
    {
        return static_cast<std::uint64_t>(position) / getBlockSize();
    }
    // The samples of a piece, as positions in the band.
    std::int64_t startOf(const Piece& piece) const noexcept
    {
        return static_cast<std::int64_t>(piece.firstSubblock * getBlockSize());
    }

    std::int64_t endOf(const Piece& piece) const noexcept
    {
        // The last subblock may be short, and the product of its index and size may overflow.
        const auto numSamples = static_cast<std::uint64_t>(getNumSamples());
        return static_cast<std::int64_t>(piece.endSubblock > numSamples / getBlockSize()
                                             ? numSamples
                                             : piece.endSubblock * getBlockSize());
    }

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

} // namespace

std::unique_ptr<SubbandSource>
SubbandSource::createSubbandReader(SubblockReader& reader, const BandRanges& ranges, std::int64_t numSamples)
{
    return visitKernelType(
        reader.getFormat().type, ErrorCode::General, [&](auto zero) -> std::unique_ptr<SubbandSource> {
            return std::make_unique<SubbandReaderImp<decltype(zero)>>(reader, ranges, numSamples);
        });
}

} // namespace Quillmoran
