#include "encode/container/ChunkWriter.h"

#include "common/container/ChunkHeader.h"
#include "encode/container/ChunkBuffer.h"
#include <vxunpack/Metadata.h>

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBufferSize = 1 << 18;
constexpr std::int64_t fileLengthOffset = 8;
constexpr std::int64_t preambleSize = 16;
constexpr std::uint8_t smallChunkVersion = 1; // of WKT, class names, extended header and digests
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
    const unsigned char lidarFile[] = {'v', 'x', 'i', 'l', 4, 0, 0, m_versions.file};
    m_out.write(lidarFile, sizeof lidarFile);
    m_description.add(lidarFile, sizeof lidarFile);
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

template <class Payload>
void ChunkWriter::writeChunk(std::uint32_t id, Digest& digest, Payload payload)
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

void ChunkWriter::writeGroup(const FileContents& contents)
{
    writeChunk(CHUNK_WAVELET_HEADER, m_description, [&](StreamWriter& out) { writeHeader(out, contents); });
    writeChunk(CHUNK_INDEX, m_index,
               [&](StreamWriter& out) { contents.index->write(out, m_versions.index); });
    for (std::size_t c = 0; c < contents.channels->size(); ++c) {
        const std::vector<SubbandWriter>& bands = (*contents.channels)[c]->getBands();
        for (std::size_t level = 0; level < bands.size(); ++level)
            writeChunk(CHUNK_SUBBAND, [&] { writeBand(c, level, bands[level]); });
    }
    writeChunk(CHUNK_METADATA, m_description, [&](StreamWriter& out) { contents.metadata->write(out); });
    writeChunk(CHUNK_WKT, m_description, [&](StreamWriter& out) {
        out.put_be(smallChunkVersion);
        writeText(out, contents.wkt);
    });
    if (m_versions.file >= FileVersions::withClassNames)
        writeChunk(CHUNK_CLASS_NAMES, m_description,
                   [&](StreamWriter& out) { writeClassNames(out, contents); });
    if (needsExtendedHeader(contents)) {
        writeChunk(CHUNK_EXTENDED_HEADER, m_description, [&](StreamWriter& out) {
            out.put_be(smallChunkVersion);
            for (const auto& channel : *contents.channels)
                channel->getRecord().saveExtended(out, extendedError);
        });
    }
    writeChunk(CHUNK_DIGESTS, [&] { writeDigests(contents); });
}

void ChunkWriter::writeHeader(StreamWriter& out, const FileContents& contents) const
{
    out.put_be(m_versions.header);
    out.put_be(contents.numPoints);
    out.put_be(static_cast<std::uint16_t>(contents.numLevels - 1));
    out.put_be(static_cast<std::uint16_t>(contents.channels->size()));
    for (const auto& channel : *contents.channels)
        channel->getRecord().save(out, headerError);
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

void ChunkWriter::writeClassNames(StreamWriter& out, const FileContents& contents)
{
    out.put_be(smallChunkVersion);
    out.put_be(static_cast<std::uint32_t>(contents.numClassNames));
    for (std::size_t i = 0; i < contents.numClassNames; ++i)
        writeText(out, contents.classNames[i]);
}

void ChunkWriter::writeText(StreamWriter& out, const char* text)
{
    const std::size_t size = text ? std::strlen(text) + 1 : 0;
    out.put_be(static_cast<std::uint32_t>(size));
    if (text)
        out.write(text, size);
}

void ChunkWriter::writeDigests(const FileContents& contents)
{
    Digest own;
    const auto put = [&](auto number) {
        unsigned char bytes[sizeof number];
        storeBigEndian(bytes, number);
        own.add(bytes, sizeof bytes);
        m_out.write(bytes, sizeof bytes);
    };
    put(smallChunkVersion);
    put(static_cast<std::uint8_t>(BlockDigest::usualBlockBits));
    put(contents.numPoints);
    put(static_cast<std::uint16_t>(contents.digests->size()));
    for (const ChannelDigests& channel : *contents.digests)
        for (const std::uint64_t digest : channel.getBlocks())
            put(digest);
    put(m_index.get());
    put(m_description.get());
    put(own.get());
}

} // namespace Quillmoran
