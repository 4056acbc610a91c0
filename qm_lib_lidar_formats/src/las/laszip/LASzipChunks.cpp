#include "las/laszip/LASzipChunks.h"

#include "las/laszip/LASzipTableCode.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <vector>

namespace Quillmoran {

namespace {

// LASzip's decoder begins with the range 0xFFFFFFFF and the first four bytes as its value. It reads outside
// its tables when the value is not below the range, which no encoder produces.
void checkCode(const IO& io, std::int64_t position)
{
    unsigned char bytes[4];
    if (readFully(io, position, bytes, sizeof bytes) == sizeof bytes &&
        loadLittleEndian<std::uint32_t>(bytes) == UINT32_MAX)
        QM_THROW(ErrorCode::LASRead, "bad LAZ chunk: invalid first bytes of its code");
}

// The table of the file whose code is at a position, if it is consistent.
std::shared_ptr<const LASzipChunkTable> readTable(const IO& io, std::int64_t position,
                                                  const LASzipChunks& chunks, std::uint64_t numPoints,
                                                  std::uint32_t chunkSize)
{
    constexpr std::uint64_t maxEntryBytes = 16; // of the code
    constexpr std::uint64_t minCodeBytes = 16;
    const bool isVariable = chunkSize == LASzipCoding::variableChunks;
    if (chunks.count == 0 || chunkSize == 0)
        return nullptr;
    std::vector<unsigned char> code(static_cast<std::size_t>(std::min(
        static_cast<std::uint64_t>(io.size() - position), chunks.count * maxEntryBytes + minCodeBytes)));
    code.resize(readFully(io, position, code.data(), code.size()));
    const auto entries = LASzipTableCode::decode(code, chunks.count, isVariable,
                                                 static_cast<std::uint64_t>(chunks.end - chunks.begin));
    if (!entries)
        return nullptr;
    auto table = std::make_shared<LASzipChunkTable>();
    table->points.reserve(entries->size() + 1);
    table->positions.reserve(entries->size() + 1);
    std::uint64_t point = 0;
    std::int64_t begin = chunks.begin;
    for (const LASzipTableEntry& entry : *entries) {
        if (point >= numPoints)
            return nullptr;
        table->points.push_back(point);
        table->positions.push_back(begin);
        point += isVariable ? entry.numPoints : std::min<std::uint64_t>(chunkSize, numPoints - point);
        begin += entry.numBytes;
    }
    if (point != numPoints)
        return nullptr;
    table->points.push_back(point);
    table->positions.push_back(begin);
    return table;
}

} // namespace

std::size_t LASzipChunkTable::find(std::uint64_t point) const noexcept
{
    const auto above = std::upper_bound(points.begin(), points.end() - 1, point);
    return static_cast<std::size_t>(above - points.begin()) - 1;
}

LASzipChunks LASzipChunks::find(const IO& io, const LASHeader& header, const LASzipCoding& coding)
{
    LASzipChunks chunks;
    if (header.getPointCount() == 0)
        return chunks;
    chunks.begin = header.pointDataOffset;
    chunks.pointBytes = header.recordLength;
    if (!coding.chunked)
        return chunks;
    // A position of -1 means that the last 8 bytes of the file hold the position.
    const std::int64_t size = io.size();
    unsigned char bytes[8];
    const auto read = [&](std::int64_t position) {
        if (position < 0 || readFully(io, position, bytes, sizeof bytes) != sizeof bytes)
            QM_THROW(ErrorCode::LASRead, "the LAZ chunk table is missing");
        return loadLittleEndian<std::int64_t>(bytes);
    };
    std::int64_t table = read(header.pointDataOffset);
    if (table == -1)
        table = read(size - static_cast<std::int64_t>(sizeof bytes));
    read(table);
    if (loadLittleEndian<std::uint32_t>(bytes) != 0)
        QM_THROW(ErrorCode::LASRead, "bad LAZ chunk table: unknown version");
    chunks.count = loadLittleEndian<std::uint32_t>(bytes + 4);
    constexpr std::int64_t minChunkBytes = 20; // its first point is not coded
    if (chunks.count > size / minChunkBytes)
        QM_THROW(ErrorCode::LASRead, "bad LAZ chunk table: %u chunks do not fit into the file", chunks.count);
    checkCode(io, table + std::int64_t{sizeof bytes});
    chunks.begin += std::int64_t{sizeof bytes};
    if (table < chunks.begin)
        QM_THROW(ErrorCode::LASRead, "bad LAZ chunk table: it is before the points");
    chunks.end = table;
    chunks.numLayers = coding.numLayers;
    chunks.table =
        readTable(io, table + std::int64_t{sizeof bytes}, chunks, header.getPointCount(), coding.chunkSize);
    return chunks;
}

LASzipChunkWalk::LASzipChunkWalk(const IO& io, const LASzipChunks& chunks)
    : m_io(io), m_chunks(chunks), m_next(chunks.begin), m_unchecked(chunks.count)
{}

void LASzipChunkWalk::seek(std::size_t chunk) noexcept
{
    m_next = m_chunks.table->positions[chunk];
    m_unchecked = m_chunks.count - static_cast<std::uint32_t>(chunk);
    m_readBegin = m_readEnd = -1;
}

std::size_t LASzipChunkWalk::allow(std::int64_t position, std::size_t count)
{
    if (m_chunks.numLayers == 0)
        return count;
    // LASzip reads the table before the chunks and not again.
    if (position >= m_chunks.end)
        return m_amongChunks ? 0 : count;
    const auto upTo = [&](std::int64_t end) {
        const std::int64_t left = std::max<std::int64_t>(end - position, 0);
        count = static_cast<std::size_t>(std::min(left, static_cast<std::int64_t>(count)));
    };
    m_amongChunks = m_amongChunks || position >= m_chunks.begin;
    upTo(m_chunks.end);
    while (m_unchecked != 0 && m_next < position + static_cast<std::int64_t>(count))
        checkChunk();
    if (m_unchecked == 0)
        upTo(std::max(m_next, m_chunks.begin));
    return count;
}

void LASzipChunkWalk::noteRead(std::int64_t position, std::size_t count)
{
    if (m_chunks.numLayers != 0 || m_chunks.pointBytes == 0 || position < m_chunks.begin)
        return;
    if (position != m_readEnd)
        m_readBegin = position;
    m_readEnd = position + static_cast<std::int64_t>(count);
    if (m_readEnd - m_readBegin == static_cast<std::int64_t>(m_chunks.pointBytes))
        checkCode(m_io, m_readEnd);
}

void LASzipChunkWalk::checkChunk()
{
    std::vector<unsigned char> sizes(4 * m_chunks.numLayers);
    const std::int64_t position = m_next + static_cast<std::int64_t>(m_chunks.pointBytes) + 4;
    std::int64_t left = m_chunks.end - position - static_cast<std::int64_t>(sizes.size());
    if (left < 0 || readFully(m_io, position, sizes.data(), sizes.size()) != sizes.size())
        QM_THROW(ErrorCode::LASRead, "bad LAZ chunk: its header overlaps the chunk table");
    for (std::size_t i = 0; i < m_chunks.numLayers; ++i) {
        const std::int64_t size = loadLittleEndian<std::uint32_t>(sizes.data() + 4 * i);
        if (size > left)
            QM_THROW(ErrorCode::LASRead, "bad LAZ chunk: layer %zu overlaps the chunk table", i);
        if (size != 0)
            checkCode(m_io, m_chunks.end - left);
        left -= size;
    }
    m_next = m_chunks.end - left;
    --m_unchecked;
}

} // namespace Quillmoran
