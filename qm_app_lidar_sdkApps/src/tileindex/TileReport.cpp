#include "tileindex/TileReport.h"

#include "files/QMFileUtils.h"
#include "text/Printable.h"
#include "utils/sets/TileSet.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

void TileReport::print(std::FILE* stream)
{
    const std::size_t numTiles = m_index.getNumSources();
    const TileInfo* const overview = m_index.getOverviewInfo();
    std::fprintf(stream, "%zu files, %lld points\n", numTiles,
                 static_cast<long long>(m_index.getPointCloudInfo()->getNumPoints()));
    if (*m_index.getSRS())
        std::fprintf(stream, "spatial reference: %s\n", printable(m_index.getSRS()).c_str());
    if (overview) {
        std::fprintf(stream, "overview of a share of %g:\n", m_index.getOverviewFraction());
        printTile(stream, *overview);
    }
    for (std::size_t i = 0; i < numTiles; ++i)
        printTile(stream, m_index.getTileInfo(i));
    if (m_opener && m_differing != 0)
        QM_THROW(ErrorCode::General, "%zu of %zu files are not as they were indexed", m_differing,
                 numTiles + (overview ? 1 : 0));
}

void TileReport::printTile(std::FILE* stream, const TileInfo& tile)
{
    const State state = findState(tile);
    m_differing += state != State::Same;
    constexpr const char* names[] = {"ok", "changed", "missing", "unreadable"};
    const Bounds& box = tile.bounds;
    std::fprintf(stream, "%-10s %12lld  %.3f %.3f  %.3f %.3f  %.3f %.3f  %s\n",
                 names[static_cast<std::size_t>(state)], static_cast<long long>(tile.numPoints), box.x.min,
                 box.x.max, box.y.min, box.y.max, box.z.min, box.z.max, printable(tile.path).c_str());
}

TileReport::State TileReport::findState(const TileInfo& tile) const
{
    if (!QMFileUtils::exists(tile.path.c_str()))
        return State::Missing;
    if (QMFileUtils::getStats(tile.path.c_str()).modificationTime != tile.timestamp)
        return State::Changed;
    return m_opener ? compare(tile) : State::Same;
}

TileReport::State TileReport::compare(const TileInfo& tile) const
{
    try {
        TileInfo now = describeTile(tile.path.c_str(), *openTile(*m_opener, tile.path.c_str()));
        now.path = tile.path;
        return now == tile ? State::Same : State::Changed;
    } catch (const Error&) {
        return State::Unreadable;
    }
}

} // namespace Quillmoran
