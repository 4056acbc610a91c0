#include "tileindex/TileReport.h"

#include "files/QMFileUtils.h"
#include "text/Printable.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

void TileReport::print(std::FILE* stream)
{
    const std::size_t numFiles = m_set.tiles.size() + (m_set.overview ? 1 : 0);
    std::fprintf(stream, "%zu files, %lld points\n", m_set.tiles.size(),
                 static_cast<long long>(m_set.info->getNumPoints()));
    if (!m_set.srs.empty())
        std::fprintf(stream, "spatial reference: %s\n", printable(m_set.srs).c_str());
    if (m_set.overview) {
        std::fprintf(stream, "overview of a share of %g:\n", m_set.overview->fraction);
        printTile(stream, m_set.overview->tile);
    }
    for (const TileInfo& tile : m_set.tiles)
        printTile(stream, tile);
    if (m_opener && m_differing != 0)
        QM_THROW(ErrorCode::General, "%zu of %zu files are not as they were indexed", m_differing, numFiles);
}

void TileReport::printTile(std::FILE* stream, const TileInfo& tile)
{
    const State state = findState(tile);
    m_differing += state != State::Same;
    constexpr const char* names[] = {"ok", "changed", "missing", "unreadable"};
    const Bounds& box = tile.bounds;
    std::fprintf(stream, "%-10s %12lld  %.3f %.3f  %.3f %.3f  %.3f %.3f  %s\n",
                 names[static_cast<std::size_t>(state)], static_cast<long long>(tile.numPoints), box.x.min,
                 box.x.max, box.y.min, box.y.max, box.z.min, box.z.max, printable(tile.path.c_str()).c_str());
}

TileReport::State TileReport::findState(const TileInfo& tile) const
{
    if (!QMFileUtils::exists(tile.path))
        return State::Missing;
    if (QMFileUtils::getStats(tile.path).modificationTime != tile.timestamp)
        return State::Changed;
    return m_opener ? compare(tile) : State::Same;
}

TileReport::State TileReport::compare(const TileInfo& tile) const
{
    try {
        TileInfo now = describeTile(tile.path, *openTile(*m_opener, tile.path));
        now.path = tile.path;
        return now == tile ? State::Same : State::Changed;
    } catch (const Error&) {
        return State::Unreadable;
    }
}

} // namespace Quillmoran
