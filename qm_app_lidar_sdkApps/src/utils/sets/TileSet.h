// The contents of a tile-set index: the files of a survey, the tiles, described one by one and as one point
// cloud. PersistentPointSourceWriter builds it, PersistentPointSourceManager reads it; TileSetFile.h
// describes the file.
#pragma once

#include <vxunpack/PersistentPointSourceManager.h>

#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

// A file with an even sample of the points of all tiles.
struct Overview
{
    TileInfo tile;
    double fraction = 0; // of the points, above 0, at most 1
};

struct TileSet
{
    std::string srs;
    Scoped<PointCloudInfo> info{PointCloudInfo::create()};
    std::optional<int> gpsWeek;  // converts week time to adjusted standard time
    std::vector<TileInfo> tiles; // empty if they are in a TileTable
    std::optional<Overview> overview;
};

constexpr bool isOverviewFraction(double fraction)
{
    return fraction > 0 && fraction <= 1;
}

// Describes a file by its source. If the bounds of the source are not finite, as for a compressed file
// without an index, all its points are read. Throws General "the number of points must be known" or "the
// bounds must be known".
TileInfo describeTile(const char* file, const PointSource& source);

// Opens a tile; errors of the opener and of the source name the file.
Scoped<PointSource> openTile(const PersistentPointSourceManager::FileOpener& opener, const char* file);

// The mosaic of all tiles, which keeps the manager. The week applies if the index has none.
Scoped<PointSource> openMosaic(PersistentPointSourceManager& tiles,
                               const std::optional<int>& gpsWeek = std::nullopt);

} // namespace Quillmoran
