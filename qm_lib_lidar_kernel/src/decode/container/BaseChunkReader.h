// Reads the chunk sequence of a compressed file, field by field:
//
//   preamble | group header | wavelet header | index | subband ... | metadata | WKT | [class names] |
//   [extended header]
//
// BaseChunkReader knows the container and the small chunks; ChunkReader adds the three wavelet chunks.
// All lengths are checked against what contains them before they are used. VX7PointReader drives both.
#pragma once

#include "common/container/ChunkHeader.h"
#include "platform/Stream.h"
#include <vxunpack/ErrorCode.h>
#include <vxunpack/IO.h>

#include <array>
#include <cstdint>
#include <memory>
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

    // Opens a stream over the store.
    explicit BaseChunkReader(IO* io);

    StreamReader& stream() noexcept { return m_stream; }
    void close() { m_stream.close(); }

    // Reads and checks the preamble. `version` receives format, major, minor and version; returns the length
    // of the file that the preamble tells.
    static std::uint64_t readMagic(StreamReader& stream, std::array<std::uint8_t, 4>& version);
    // Reads the group header and returns the length of its payload.
    std::int64_t readGroupHeader(std::uint64_t fileLength);
    // Reads a chunk's header and takes it and its payload off `remaining`. A chunk that is longer than what
    // remains is `code` "chunk length error", one of another id than expected "bad chunk order".
    std::uint32_t readChunkHeader(ChunkHeader& header, std::int64_t& remaining, ErrorCode code);
    void readChunkHeader(ChunkHeader& header, std::int64_t& remaining, std::uint32_t expectedId,
                         ErrorCode code);

    void skip(std::int64_t length) { m_stream.seek(length, Stream::SEEK_FROM_CURRENT); }

    // Only remembers where the records stand.
    void readMetadata(std::int64_t length, IO::Location& location);
    // Reads the records; an empty location leaves the store untouched.
    static void readMetadata(const IO::Location& location, Metadata& metadata);
    // No value when the file has no text.
    std::optional<std::string> readWKT(std::int64_t length);
    // A missing name has no value.
    std::vector<std::optional<std::string>> readClassNames(std::int64_t length);
    void readExtendedHeader(std::int64_t length, std::vector<WaveletDecoderChannelInfo>& channels);

protected:
    // The payload of a chunk: a view of the stream that ends where the payload ends.
    class Payload;

    StreamReader m_stream;
};

} // namespace Quillmoran
