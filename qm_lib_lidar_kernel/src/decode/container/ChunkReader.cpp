#include "decode/container/ChunkReader.h"

#include "decode/container/ChunkPayload.h"
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"

namespace Quillmoran {

namespace {

constexpr ErrorCode headerError = ErrorCode::WaveletHeaderRead;
constexpr ErrorCode indexError = ErrorCode::IndexChunkRead;
constexpr ErrorCode subbandError = ErrorCode::SubbandRead;

} // namespace

ChunkReader::WaveletHeader ChunkReader::readWaveletHeader(std::int64_t length)
{
    Payload payload(m_stream, length);
    payload.getVersion("header", 2, headerError, "bad read -- header version");

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
    const auto version = payload.getVersion("index", INDEX_ON_DISK, indexError, "bad read -- header version");
    const auto pointsPerEntry = payload.get<std::uint32_t>(indexError, "bad read -- index header");

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
    const auto version = payload.getVersion("subband", 3, subbandError, "bad read -- header version");
    const auto storedChannel = payload.get<std::uint16_t>(subbandError, "bad read -- subband header");
    const auto storedSubband = payload.get<std::uint16_t>(subbandError, "bad read -- subband header");
    if (storedChannel != channel)
        QM_THROW(subbandError, "bad channel order");
    if (storedSubband != subband)
        QM_THROW(subbandError, "bad subband order");

    IO* io = m_stream.getIO();
    if (version == 1) {
        first = IO::Location();
        second.set(io, m_stream.tell(), static_cast<std::int64_t>(payload.left()));
    } else {
        const auto a = payload.get<std::int64_t>(subbandError, "bad read -- subband lengths");
        const auto b = payload.get<std::int64_t>(subbandError, "bad read -- subband lengths");
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
