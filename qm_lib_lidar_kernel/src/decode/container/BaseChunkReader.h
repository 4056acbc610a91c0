// Reads the chunk sequence of a compressed file:
//
//   preamble | group header | wavelet header | index | subband ... | metadata | WKT | [class names] |
//   [extended header] | [digests]
//
// BaseChunkReader reads the container and the small chunks; ChunkReader adds the three wavelet chunks. All
// lengths are checked against the containing chunk or file before they are used. VX7PointReader calls both.
#pragma once

#include "common/container/ChunkHeader.h"
#include "platform/Stream.h"
#include <vxunpack/ErrorCode.h>
#include <vxunpack/IO.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class Metadata;
class WaveletDecoderChannelInfo;

class BaseChunkReader
{
public:
    static constexpr std::size_t streamBufferSize = 4096;

    // Opens a stream over the file.
    explicit BaseChunkReader(IO* io);

    StreamReader& stream() noexcept { return m_stream; }
    void close() { m_stream.close(); }

    // Reads and checks the preamble. `version` receives format, major, minor and version. Returns the length
    // of the file as stored in the preamble.
    static std::uint64_t readMagic(StreamReader& stream, std::array<std::uint8_t, 4>& version);
    // Reads the group header and returns the length of its payload.
    std::int64_t readGroupHeader(std::uint64_t fileLength);
    // Reads a chunk's header and subtracts the sizes of header and payload from `remaining`. `code` "chunk
    // length error" if the chunk is too long, "bad chunk order" if its id is not the expected one. A chunk of
    // digests is shortened instead, since the file can be read without them.
    std::uint32_t readChunkHeader(ChunkHeader& header, std::int64_t& remaining, ErrorCode code);
    void readChunkHeader(ChunkHeader& header, std::int64_t& remaining, std::uint32_t expectedId,
                         ErrorCode code);

    void skip(std::int64_t length) { m_stream.seek(length, Stream::SEEK_FROM_CURRENT); }

    // Only notes the location of the records.
    void readMetadata(std::int64_t length, IO::Location& location);
    // Reads the records; an empty location leaves `metadata` unchanged.
    static void readMetadata(const IO::Location& location, Metadata& metadata);
    // No value if the file has no text.
    std::optional<std::string> readWKT(std::int64_t length);
    // A missing name is an element without a value.
    std::vector<std::optional<std::string>> readClassNames(std::int64_t length);
    void readExtendedHeader(std::int64_t length, std::vector<WaveletDecoderChannelInfo>& channels);
    // Whether there is another chunk and it has digests; then reads its header, as above.
    bool readDigestsHeader(ChunkHeader& header, std::int64_t& remaining);

protected:
    // A view of the stream that ends where the payload of a chunk ends.
    class Payload;

    StreamReader m_stream;
};

} // namespace Quillmoran
