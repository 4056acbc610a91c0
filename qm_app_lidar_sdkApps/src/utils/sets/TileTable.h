// The tiles in the "path" packet of a tile-set index. Only the positions of some of them are in memory, so
// that an index of millions of tiles is opened quickly and needs little memory. The file stays open.
#pragma once

#include "platform/OpenIO.h"
#include "utils/sets/Packet.h"

#include <mutex>
#include <optional>
#include <vector>

namespace Quillmoran {

class TileTable
{
public:
    // Checks all tiles of the payload. Throws the errors of TileSetFile::read().
    TileTable(IO* io, std::int64_t position, std::int64_t length);

    std::size_t size() const noexcept { return m_count; }
    // The path is as it is stored. Reads the file, and may be called from any thread. Throws General "bad
    // tile index" for an index past the end.
    TileInfo get(std::size_t index) const;

private:
    static constexpr std::size_t groupTiles = 16;

    OpenIO m_io;
    std::size_t m_count = 0;
    std::int64_t m_end = 0;
    std::vector<std::int64_t> m_starts; // of the groups

    mutable std::mutex m_mutex; // of the group that was read last, for callers that read all tiles in order
    mutable std::size_t m_group = 0;
    mutable std::vector<TileInfo> m_tiles;
};

} // namespace Quillmoran
