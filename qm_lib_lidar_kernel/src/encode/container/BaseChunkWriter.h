// Writes the container of a compressed file and the chunks that do not depend on how its bands are made: the
// wavelet header, the small chunks and the digests. The counterpart is decode/container/BaseChunkReader.h.
#pragma once

#include "common/container/ChunkHeader.h"
#include "common/container/Digest.h"
#include "common/container/WaveletChannelInfo.h"
#include "encode/container/ChunkBuffer.h"
#include "platform/Stream.h"
#include <vxunpack/IO.h>

#include <cstdint>
#include <vector>

namespace Quillmoran {

class BaseChunkWriter
{
protected:
    using Records = std::vector<const WaveletChannelInfo*>;

    // Opens a stream over the file.
    BaseChunkWriter(IO* io, std::uint8_t fileVersion);
    ~BaseChunkWriter() = default;

    // Writes the preamble and the group, whose chunks group() writes, and closes the stream.
    template <class Group>
    void writeFile(Group group)
    {
        writePreamble();
        writeChunk(CHUNK_GROUP, group);
        finishPreamble();
    }
    // Writes a chunk whose payload payload() writes to m_out.
    template <class Payload>
    void writeChunk(std::uint32_t id, Payload payload)
    {
        ChunkHeader header;
        header.id = id;
        header.write(m_out, false);
        payload();
        header.write(m_out, true);
    }
    // Collects a chunk with payload(stream) in memory, adds its bytes to the digest and writes them.
    template <class Payload>
    void writeChunk(std::uint32_t id, Digest& digest, Payload payload)
    {
        const std::int64_t begin = m_out.tell();
        const Scoped<ChunkBuffer> chunk(ChunkBuffer::create(begin));
        StreamWriter stream;
        stream.init(chunk.get(), true, streamBufferSize);
        stream.seek(begin, Stream::SEEK_FROM_START);
        ChunkHeader header;
        header.id = id;
        header.write(stream, false);
        payload(stream);
        header.write(stream, true);
        stream.close(true);
        const std::vector<unsigned char>& bytes = chunk->getBytes();
        digest.add(bytes.data(), bytes.size());
        m_out.write(bytes.data(), bytes.size());
    }

    // Null is a file without a coordinate system.
    void writeWKT(const char* wkt);
    void writeWaveletHeader(std::uint8_t version, std::int64_t numPoints, std::uint32_t numLevels,
                            const Records& records);
    // Nothing if the names fit into the records.
    void writeExtendedHeader(const Records& records);
    // `samples` has the digests of the blocks of 2^blockBits points, by channel and block. All other chunks
    // have been written.
    void writeDigests(unsigned blockBits, std::int64_t numPoints, std::size_t numChannels,
                      const std::vector<std::uint64_t>& samples);

    // Notes the sizes of a band, in the order of the file. A band of one range has none.
    void addBand(std::int64_t dataSize, std::int64_t headerSize)
    {
        m_bandSizes.push_back({dataSize, headerSize});
    }
    // The last chunk, for readers of remote files. Small files, which these read whole, and files with bands of
    // one range have none.
    void writeBandTable(std::size_t numChannels, std::uint32_t numLevels);

    static void writeText(StreamWriter& out, const char* text); // length, bytes, NUL; null is length 0

    static constexpr std::uint8_t smallChunkVersion = 1; // of WKT, class names, extended header and digests

    StreamWriter m_out;
    Digest m_index;
    Digest m_description; // of the version and all chunks but the index and the bands

private:
    static constexpr std::size_t streamBufferSize = 1 << 18;

    void writePreamble();
    void finishPreamble();

    struct BandSizes
    {
        std::int64_t data;
        std::int64_t headers;
    };

    std::uint8_t m_fileVersion;
    std::vector<BandSizes> m_bandSizes;
};

} // namespace Quillmoran
