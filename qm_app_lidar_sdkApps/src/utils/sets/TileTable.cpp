#include "utils/sets/TileTable.h"

#include <vxunpack/Base.h>

#include <algorithm>

namespace Quillmoran {

TileTable::TileTable(IO* io, std::int64_t position, std::int64_t length) : m_io(io), m_end(position + length)
{
    constexpr std::size_t bufferSize = 64 << 10;
    Packet packet(io, position, length, bufferSize);
    m_count = packet.readCount<std::uint32_t>("number of files", Packet::tileBytes);
    m_starts.reserve(m_count / groupTiles + 1);
    for (std::size_t i = 0; i < m_count; ++i) {
        if (i % groupTiles == 0)
            m_starts.push_back(packet.tell());
        packet.skipTile();
    }
}

TileInfo TileTable::get(std::size_t index) const
{
    if (index >= m_count)
        QM_THROW(ErrorCode::General, "bad tile index");
    const std::size_t group = index / groupTiles, first = group * groupTiles;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_tiles.empty() || group != m_group) {
        m_tiles.clear();
        Packet packet(&*m_io, m_starts[group], m_end - m_starts[group]);
        std::vector<TileInfo> tiles(std::min(groupTiles, m_count - first));
        for (TileInfo& tile : tiles)
            tile = packet.readTile();
        m_tiles = std::move(tiles);
        m_group = group;
    }
    return m_tiles[index - first];
}

} // namespace Quillmoran
