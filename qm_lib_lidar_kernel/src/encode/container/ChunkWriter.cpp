#include "encode/container/ChunkWriter.h"

#include "common/container/ChunkHeader.h"
#include <vxunpack/Metadata.h>

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBufferSize = 1 << 18;
constexpr std::int64_t fileLengthOffset = 8;
constexpr std::int64_t preambleSize = 16;
constexpr std::uint8_t lidarFormat = 4;
constexpr std::uint8_t smallChunkVersion = 1; // of WKT, class names and extended header
constexpr ErrorCode headerError = ErrorCode::WaveletHeaderWrite;
constexpr ErrorCode extendedError = ErrorCode::ExtendedRecordRead;

bool needsExtendedHeader(const FileContents& contents)
{
    return std::any_of(contents.channels->begin(), contents.channels->end(), [](const auto& channel) {
        return std::strlen(channel->getRecord().getName()) > WaveletChannelInfo::recordNameSize;
    });
}

} // namespace

ChunkWriter::ChunkWriter(IO* io, const FileVersions& versions) : m_versions(versions)
{
    m_out.init(io, true, streamBufferSize);
}

void ChunkWriter::write(const FileContents& contents)
{
    m_out.put_str("vxil");
    for (const std::uint8_t byte : {lidarFormat, std::uint8_t{0}, std::uint8_t{0}, m_versions.file})
        m_out.put_be(byte);
    m_out.put_be(std::uint64_t{0}); // replaced by the length below
    writeChunk(CHUNK_GROUP, [&] { writeGroup(contents); });
    const std::int64_t end = m_out.tell();
    m_out.seek(fileLengthOffset, Stream::SEEK_FROM_START);
    m_out.put_be(static_cast<std::uint64_t>(end - preambleSize));
    m_out.close(true);
}

template <class Payload>
void ChunkWriter::writeChunk(std::uint32_t id, Payload payload)
{
    ChunkHeader header;
    header.id = id;
    header.write(m_out, false);
    payload();
    header.write(m_out, true);
}

void ChunkWriter::writeGroup(const FileContents& contents)
{
    writeChunk(CHUNK_WAVELET_HEADER, [&] { writeHeader(contents); });
    writeChunk(CHUNK_INDEX, [&] { contents.index->write(m_out, m_versions.index); });
    for (std::size_t c = 0; c < contents.channels->size(); ++c) {
        const std::vector<SubbandWriter>& bands = (*contents.channels)[c]->getBands();
        for (std::size_t level = 0; level < bands.size(); ++level)
            writeChunk(CHUNK_SUBBAND, [&] { writeBand(c, level, bands[level]); });
    }
    writeChunk(CHUNK_METADATA, [&] { contents.metadata->write(m_out); });
    writeChunk(CHUNK_WKT, [&] {
        m_out.put_be(smallChunkVersion);
        writeText(contents.wkt);
    });
    if (m_versions.file >= FileVersions::withClassNames)
        writeChunk(CHUNK_CLASS_NAMES, [&] { writeClassNames(contents); });
    if (needsExtendedHeader(contents)) {
        writeChunk(CHUNK_EXTENDED_HEADER, [&] {
            m_out.put_be(smallChunkVersion);
            for (const auto& channel : *contents.channels)
                channel->getRecord().saveExtended(m_out, extendedError);
        });
    }
}

void ChunkWriter::writeHeader(const FileContents& contents)
{
    m_out.put_be(m_versions.header);
    m_out.put_be(contents.numPoints);
    m_out.put_be(static_cast<std::uint16_t>(contents.numLevels - 1));
    m_out.put_be(static_cast<std::uint16_t>(contents.channels->size()));
    for (const auto& channel : *contents.channels)
        channel->getRecord().save(m_out, headerError);
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
    m_out.put_be(band.data().size());
    m_out.put_be(band.headers().size());
    band.data().copyTo(m_out);
    band.headers().copyTo(m_out);
}

void ChunkWriter::writeClassNames(const FileContents& contents)
{
    m_out.put_be(smallChunkVersion);
    m_out.put_be(static_cast<std::uint32_t>(contents.numClassNames));
    for (std::size_t i = 0; i < contents.numClassNames; ++i)
        writeText(contents.classNames[i]);
}

void ChunkWriter::writeText(const char* text)
{
    const std::size_t size = text ? std::strlen(text) + 1 : 0;
    m_out.put_be(static_cast<std::uint32_t>(size));
    if (text)
        m_out.write(text, size);
}

} // namespace Quillmoran
