#include "encode/container/ChunkWriter.h"

#include <vxunpack/Metadata.h>

namespace Quillmoran {

ChunkWriter::ChunkWriter(IO* io, const FileVersions& versions)
    : BaseChunkWriter(io, versions.file), m_versions(versions)
{}

void ChunkWriter::write(const FileContents& contents)
{
    writeFile([&] { writeGroup(contents); });
}

void ChunkWriter::writeGroup(const FileContents& contents)
{
    Records records;
    for (const auto& channel : *contents.channels)
        records.push_back(&channel->getRecord());
    writeWaveletHeader(m_versions.header, contents.numPoints, contents.numLevels, records);
    writeChunk(CHUNK_INDEX, m_index,
               [&](StreamWriter& out) { contents.index->write(out, m_versions.index); });
    for (std::size_t c = 0; c < contents.channels->size(); ++c) {
        const std::vector<SubbandWriter>& bands = (*contents.channels)[c]->getBands();
        for (std::size_t level = 0; level < bands.size(); ++level)
            writeChunk(CHUNK_SUBBAND, [&] { writeBand(c, level, bands[level]); });
    }
    writeChunk(CHUNK_METADATA, m_description, [&](StreamWriter& out) { contents.metadata->write(out); });
    writeWKT(contents.wkt);
    if (m_versions.file >= FileVersions::withClassNames)
        writeChunk(CHUNK_CLASS_NAMES, m_description,
                   [&](StreamWriter& out) { writeClassNames(out, contents); });
    writeExtendedHeader(records);
    std::vector<std::uint64_t> digests;
    for (const ChannelDigests& channel : *contents.digests)
        digests.insert(digests.end(), channel.getBlocks().begin(), channel.getBlocks().end());
    writeDigests(BlockDigest::usualBlockBits, contents.numPoints, contents.digests->size(), digests);
    writeBandTable(records.size(), contents.numLevels);
}

void ChunkWriter::writeBand(std::size_t channel, std::size_t level, const SubbandWriter& band)
{
    m_out.put_be(m_versions.band);
    m_out.put_be(static_cast<std::uint16_t>(channel));
    m_out.put_be(static_cast<std::uint16_t>(level));
    if (band.isInterleaved()) {
        band.headers().copyTo(m_out);
        return;
    }
    addBand(band.data().size(), band.headers().size());
    m_out.put_be(band.data().size());
    m_out.put_be(band.headers().size());
    band.data().copyTo(m_out);
    band.headers().copyTo(m_out);
}

void ChunkWriter::writeClassNames(StreamWriter& out, const FileContents& contents)
{
    out.put_be(smallChunkVersion);
    out.put_be(static_cast<std::uint32_t>(contents.numClassNames));
    for (std::size_t i = 0; i < contents.numClassNames; ++i)
        writeText(out, contents.classNames[i]);
}

} // namespace Quillmoran
