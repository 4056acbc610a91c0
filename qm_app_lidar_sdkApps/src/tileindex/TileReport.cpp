#include "tileindex/TileReport.h"

#include "files/QMFileUtils.h"
#include "text/Printable.h"
#include "utils/sets/TileSet.h"
#include <vxunpack/Base.h>

#include <string_view>

namespace Quillmoran {

namespace {

using FileOpener = PersistentPointSourceManager::FileOpener;

constexpr const char* same = "ok";

const char* findState(const TileInfo& tile, const FileOpener* opener)
{
    const char* const path = tile.path.c_str();
    if (!QMFileUtils::exists(path))
        return "missing";
    if (QMFileUtils::getStats(path).modificationTime != tile.timestamp)
        return "changed";
    if (!opener)
        return same;
    try {
        TileInfo now = describeTile(path, *openTile(*opener, path));
        now.path = tile.path;
        return now == tile ? same : "changed";
    } catch (const Error& error) {
        // These say nothing about the tile.
        if (error.code() == ErrorCode::RemoteForbidden || error.code() == ErrorCode::Cancelled)
            throw;
        return "unreadable";
    }
}

} // namespace

void printTiles(std::FILE* stream, const PersistentPointSourceManager& index, const FileOpener* opener)
{
    const std::size_t numTiles = index.getNumSources();
    const TileInfo* const overview = index.getOverviewInfo();
    std::size_t numDiffering = 0;
    const auto printTile = [&](const TileInfo& tile) {
        const char* const state = findState(tile, opener);
        numDiffering += state != std::string_view(same);
        const Bounds& box = tile.bounds;
        std::fprintf(stream, "%-10s %12lld  %.3f %.3f  %.3f %.3f  %.3f %.3f  %s\n", state,
                     static_cast<long long>(tile.numPoints), box.x.min, box.x.max, box.y.min, box.y.max,
                     box.z.min, box.z.max, printable(tile.path).c_str());
    };
    std::fprintf(stream, "%zu files, %lld points\n", numTiles,
                 static_cast<long long>(index.getPointCloudInfo()->getNumPoints()));
    if (*index.getSRS())
        std::fprintf(stream, "spatial reference: %s\n", printable(index.getSRS()).c_str());
    if (overview) {
        std::fprintf(stream, "overview of a share of %g:\n", index.getOverviewFraction());
        printTile(*overview);
    }
    for (std::size_t i = 0; i < numTiles; ++i)
        printTile(index.getTileInfo(i));
    if (opener && numDiffering != 0)
        QM_THROW(ErrorCode::General, "%zu of %zu files are not as they were indexed", numDiffering,
                 numTiles + (overview ? 1 : 0));
}

} // namespace Quillmoran
