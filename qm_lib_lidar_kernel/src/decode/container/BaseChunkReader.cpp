#include "decode/container/BaseChunkReader.h"

#include "decode/container/ChunkPayload.h"
#include "decode/container/WaveletDecoderInfo.h"
#include <vxunpack/Metadata.h>

#include <cstring>

namespace Quillmoran {

namespace {

constexpr unsigned char magic[4] = {'v', 'x', 'i', 'l'};
constexpr std::uint8_t lidarFormat = 4;
constexpr std::uint8_t newestVersion = 4;

constexpr std::uint64_t fixedFields = 5; // version and length, or count, of the WKT and class-names chunks

constexpr ErrorCode fileError = ErrorCode::ContainerRead;
constexpr ErrorCode unsupportedError = ErrorCode::Unsupported;
constexpr ErrorCode wktError = ErrorCode::WKTChunkRead;
constexpr ErrorCode classNamesError = ErrorCode::ClassNamesChunkRead;

} // namespace

BaseChunkReader::BaseChunkReader(IO* io)
{
    m_stream.init(io, true, streamBufferSize);
}

std::uint64_t BaseChunkReader::readMagic(StreamReader& stream, std::array<std::uint8_t, 4>& version)
{
    unsigned char start[8];
    if (stream.read(start, sizeof start) != sizeof start)
        QM_THROW(fileError, "bad read -- file header");
    if (std::memcmp(start, magic, sizeof magic) != 0)
        QM_THROW(unsupportedError, "not a Vexil file");
    std::memcpy(version.data(), start + sizeof magic, version.size());
    if (version[0] != lidarFormat)
        QM_THROW(unsupportedError, "not a LiDAR file");
    if (version[1] != 0 || version[2] != 0 || version[3] < 1 || version[3] > newestVersion)
        QM_THROW(unsupportedError, "unsupported version");
    std::uint64_t length = 0;
    if (!stream.get_be(length))
        QM_THROW(fileError, "bad read -- file length");
    return length;
}

std::int64_t BaseChunkReader::readGroupHeader(std::uint64_t fileLength)
{
    ChunkHeader group;
    group.read(m_stream);
    if (group.length < 0 || fileLength < ChunkHeader::size ||
        static_cast<std::uint64_t>(group.length) > fileLength - ChunkHeader::size)
        QM_THROW(fileError, "chunk length error");
    if (group.id != CHUNK_GROUP)
        QM_THROW(fileError, "unsupported group type");
    return group.length;
}

std::uint32_t BaseChunkReader::readChunkHeader(ChunkHeader& header, std::int64_t& remaining, ErrorCode code)
{
    remaining -= header.read(m_stream);
    if (header.id == CHUNK_DIGESTS)
        header.length = std::clamp<std::int64_t>(header.length, 0, std::max<std::int64_t>(remaining, 0));
    if (header.length < 0 || remaining < header.length)
        QM_THROW(code, "chunk length error");
    remaining -= header.length;
    return header.id;
}

void BaseChunkReader::readChunkHeader(ChunkHeader& header, std::int64_t& remaining, std::uint32_t expectedId,
                                      ErrorCode code)
{
    if (readChunkHeader(header, remaining, code) != expectedId)
        QM_THROW(code, "bad chunk order");
}

bool BaseChunkReader::readDigestsHeader(ChunkHeader& header, std::int64_t& remaining)
{
    std::uint32_t id = 0;
    if (remaining < ChunkHeader::size || m_stream.remaining() < ChunkHeader::size || !m_stream.get_be(id) ||
        id != CHUNK_DIGESTS)
        return false;
    m_stream.seek(-static_cast<std::int64_t>(sizeof id), Stream::SEEK_FROM_CURRENT);
    readChunkHeader(header, remaining, ErrorCode::ChunkHeaderRead);
    return true;
}

void BaseChunkReader::readMetadata(std::int64_t length, IO::Location& location)
{
    location.set(m_stream.getIO(), m_stream.tell(), length);
    skip(length);
}

void BaseChunkReader::readMetadata(const IO::Location& location, Metadata& metadata)
{
    if (!location.io() || location.length() < 1)
        return;
    const Scoped<IO> range(BoundedIO::create(location));
    StreamReader stream;
    stream.init(range.get(), true, streamBufferSize);
    stream.seek(location.offset(), Stream::SEEK_FROM_START);
    metadata.read(stream);
    stream.close();
}

std::optional<std::string> BaseChunkReader::readWKT(std::int64_t length)
{
    Payload payload(m_stream, length);
    if (payload.left() < fixedFields)
        QM_THROW(wktError, "wkt chunk is the wrong size");
    payload.getVersion("wkt", 1, wktError, "bad read -- version");
    const auto size = payload.get<std::uint32_t>(wktError, "bad write -- wkt length");
    if (size != payload.left())
        QM_THROW(wktError, "wkt chunk is the wrong size");
    if (size == 0)
        return std::nullopt;
    return payload.getText(size, "wkt", wktError);
}

std::vector<std::optional<std::string>> BaseChunkReader::readClassNames(std::int64_t length)
{
    Payload payload(m_stream, length);
    if (payload.left() < fixedFields)
        QM_THROW(classNamesError, "class names chunk is the wrong size");
    payload.getVersion("class names", 1, classNamesError, "bad read -- version");
    const auto count = payload.get<std::uint32_t>(classNamesError, "bad read -- count");
    // Each name has at least its length field.
    if (count > payload.left() / sizeof(std::uint32_t))
        QM_THROW(classNamesError, "class names chunk is the wrong size");

    std::vector<std::optional<std::string>> names;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (payload.left() < sizeof(std::uint32_t))
            QM_THROW(classNamesError, "class names chunk is the wrong size");
        const auto size = payload.get<std::uint32_t>(classNamesError, "bad write -- name length");
        if (size > payload.left())
            QM_THROW(classNamesError, "class names chunk is the wrong size");
        std::string name = payload.getText(size, "name", classNamesError);
        if (size == 0)
            names.emplace_back();
        else
            names.emplace_back(std::move(name));
    }
    if (payload.left() != 0)
        QM_THROW(classNamesError, "class names chunk is the wrong size");
    return names;
}

void BaseChunkReader::readExtendedHeader(std::int64_t length,
                                         std::vector<WaveletDecoderChannelInfo>& channels)
{
    Payload payload(m_stream, length);
    payload.getVersion("extended header", 1, ErrorCode::ExtendedHeaderRead,
                       "bad read -- extened header version");
    for (WaveletDecoderChannelInfo& channel : channels)
        channel.loadExtended(m_stream, ErrorCode::ExtendedRecordRead);
}

} // namespace Quillmoran
