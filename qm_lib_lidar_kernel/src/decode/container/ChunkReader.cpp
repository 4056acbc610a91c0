#include "decode/container/ChunkReader.h"

#include "decode/container/ChunkPayload.h"
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"

namespace Quillmoran {

namespace {

constexpr ErrorCode headerError = ErrorCode::WaveletHeaderRead;
constexpr ErrorCode indexError = ErrorCode::IndexChunkRead;
constexpr ErrorCode subbandError = ErrorCode::SubbandRead;
constexpr ErrorCode unsupportedError = ErrorCode::Unsupported;

} // namespace

ChunkReader::WaveletHeader ChunkReader::readWaveletHeader(std::int64_t length)
{
    Payload payload(m_stream, length);
    std::uint8_t version = 0;
    if (!payload.get_be(version))
        QM_THROW(headerError, "bad read -- header version");
    if (version < 1 || version > 2)
        QM_THROW(unsupportedError, "unsupported header version");

    WaveletHeader header;
    std::uint16_t lastLevel = 0;
    std::uint16_t numChannels = 0;
    if (!payload.get_be(header.numPoints) || !payload.get_be(lastLevel) || !payload.get_be(numChannels) ||
        header.numPoints < 0)
        QM_THROW(headerError, "bad read -- wavelet header");
    header.numLevels = std::uint32_t{lastLevel} + 1;

    for (std::uint16_t i = 0; i < numChannels; ++i) {
        if (payload.left() < WaveletChannelInfo::recordSize)
            QM_THROW(headerError, "chunk length error");
        WaveletDecoderChannelInfo& channel = header.channels.emplace_back();
        if (!payload.take(static_cast<std::uint64_t>(channel.load(m_stream, headerError))))
            QM_THROW(headerError, "chunk length error");
        if (channel.getSubblockSize() == 0)
            QM_THROW(headerError, "bad read -- channel info");
    }
    payload.skipRest();
    return header;
}

std::uint32_t ChunkReader::readIndex(std::int64_t length, Scoped<RTree>& tree)
{
    Payload payload(m_stream, length);
    std::uint8_t version = 0;
    if (!payload.get_be(version))
        QM_THROW(indexError, "bad read -- header version");
    if (version != INDEX_IN_MEMORY && version != INDEX_ON_DISK)
        QM_THROW(unsupportedError, "unsupported index version");
    std::uint32_t pointsPerEntry = 0;
    if (!payload.get_be(pointsPerEntry))
        QM_THROW(indexError, "bad read -- index header");

    tree.reset();
    const auto rest = static_cast<std::int64_t>(payload.left());
    if (version == INDEX_IN_MEMORY) {
        Scoped<MemoryRTree> memory(MemoryRTree::create());
        memory->load(m_stream, rest);
        tree.reset(memory.detach());
    } else {
        Scoped<DiskRTree> disk(DiskRTree::create());
        disk->init(m_stream, rest);
        tree.reset(disk.detach());
    }
    payload.skipRest();
    return pointsPerEntry;
}

void ChunkReader::readSubband(std::int64_t length, std::uint32_t channel, std::uint32_t subband,
                              IO::Location& first, IO::Location& second)
{
    Payload payload(m_stream, length);
    std::uint8_t version = 0;
    if (!payload.get_be(version))
        QM_THROW(subbandError, "bad read -- header version");
    if (version < 1 || version > 3)
        QM_THROW(unsupportedError, "unsupported subband version");
    std::uint16_t storedChannel = 0;
    std::uint16_t storedSubband = 0;
    if (!payload.get_be(storedChannel) || !payload.get_be(storedSubband))
        QM_THROW(subbandError, "bad read -- subband header");
    if (storedChannel != channel)
        QM_THROW(subbandError, "bad channel order");
    if (storedSubband != subband)
        QM_THROW(subbandError, "bad subband order");

    IO* io = m_stream.getIO();
    if (version == 1) {
        first = IO::Location();
        second.set(io, m_stream.tell(), static_cast<std::int64_t>(payload.left()));
    } else {
        std::int64_t a = 0;
        std::int64_t b = 0;
        if (!payload.get_be(a) || !payload.get_be(b))
            QM_THROW(subbandError, "bad read -- subband lengths");
        const std::int64_t start = m_stream.tell();
        if (a < 0 || b < 0 || !payload.take(static_cast<std::uint64_t>(a)) ||
            !payload.take(static_cast<std::uint64_t>(b)))
            QM_THROW(subbandError, "chunk length error");
        second.set(io, start, a);
        first.set(io, saturatingAdd(start, a), b);
    }
    payload.skipRest();
}

} // namespace Quillmoran
