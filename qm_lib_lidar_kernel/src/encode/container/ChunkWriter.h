// Writes the chunk sequence of a compressed file. The counterparts are decode/container/BaseChunkReader.h and
// ChunkReader.h.
#pragma once

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
    void writeGroup(const FileContents& contents);
    void writeHeader(const FileContents& contents);
    void writeBand(std::size_t channel, std::size_t level, const SubbandWriter& band);
    void writeClassNames(const FileContents& contents);
    void writeText(const char* text); // length, bytes, NUL; null is written as length 0

    FileVersions m_versions;
    StreamWriter m_out;
};

} // namespace Quillmoran
