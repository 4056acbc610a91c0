// Writes the chunk sequence of a compressed file. The counterparts are decode/container/BaseChunkReader.h and
// ChunkReader.h.
#pragma once

#include "common/container/Digest.h"
#include "encode/bands/ChannelEncoder.h"
#include "encode/container/IndexWriter.h"
#include "platform/Stream.h"
#include <vxunpack/EncodeOptions.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class Metadata;

// The contents of a file. The pointers are borrowed.
struct FileContents
{
    std::int64_t numPoints = 0;
    std::uint32_t numLevels = 1;
    const std::vector<std::unique_ptr<ChannelEncoder>>* channels = nullptr;
    const IndexWriter* index = nullptr;
    const std::vector<ChannelDigests>* digests = nullptr; // one per channel of the points
    const Metadata* metadata = nullptr;
    const char* wkt = nullptr; // or null
    const char* const* classNames = nullptr;
    std::size_t numClassNames = 0;
};

class ChunkWriter
{
public:
    ChunkWriter(IO* io, const FileVersions& versions);

    void write(const FileContents& contents);

private:
    template <class Payload>
    void writeChunk(std::uint32_t id, Payload payload);
    // Writes a chunk with payload(stream), and adds its bytes to the digest.
    template <class Payload>
    void writeChunk(std::uint32_t id, Digest& digest, Payload payload);
    void writeGroup(const FileContents& contents);
    void writeHeader(StreamWriter& out, const FileContents& contents) const;
    void writeBand(std::size_t channel, std::size_t level, const SubbandWriter& band);
    static void writeClassNames(StreamWriter& out, const FileContents& contents);
    static void writeText(StreamWriter& out, const char* text); // length, bytes, NUL; null is length 0
    void writeDigests(const FileContents& contents);

    FileVersions m_versions;
    StreamWriter m_out;
    Digest m_index;
    Digest m_description; // of the version and all chunks but the index and the bands
};

} // namespace Quillmoran
