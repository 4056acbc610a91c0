// Writes the chunk sequence of a compressed file whose points have been encoded.
#pragma once

#include "encode/bands/ChannelEncoder.h"
#include "encode/container/BaseChunkWriter.h"
#include "encode/container/IndexWriter.h"
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

class ChunkWriter : private BaseChunkWriter
{
public:
    ChunkWriter(IO* io, const FileVersions& versions);

    void write(const FileContents& contents);

private:
    void writeGroup(const FileContents& contents);
    void writeBand(std::size_t channel, std::size_t level, const SubbandWriter& band);
    static void writeClassNames(StreamWriter& out, const FileContents& contents);

    FileVersions m_versions;
};

} // namespace Quillmoran
