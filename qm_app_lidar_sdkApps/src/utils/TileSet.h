// What a tile-set index tells: the files of a survey, the tiles, described one by one and as one point cloud.
// PersistentPointSourceWriter builds it, PersistentPointSourceManager shows it, TileSetFile.h draws the file.
#pragma once

#include "files/QMFileSpec.h"
#include <vxunpack/Bounds.h>
#include <vxunpack/PointCloudInfo.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class PointSource;

struct TileInfo
{
    QMFileSpec path;
    std::int64_t timestamp = 0; // the file's modification time, seconds since 1970
    Bounds bounds;
    std::int64_t numPoints = 0;

    bool operator==(const TileInfo& other) const
    {
        return path == other.path && timestamp == other.timestamp && bounds == other.bounds &&
               numPoints == other.numPoints;
    }
};

// A file that holds a share of the points of all tiles.
struct Overview
{
    TileInfo tile;
    double fraction = 0; // above 0, at most 1
};

struct TileSet
{
    std::string srs;
    Scoped<PointCloudInfo> info{PointCloudInfo::create()};
    std::optional<int> gpsWeek; // with which week time is converted to adjusted standard time
    std::vector<TileInfo> tiles;
    std::optional<Overview> overview;
};

constexpr bool isOverviewFraction(double fraction)
{
    return fraction > 0 && fraction <= 1;
}

// Describes a file by its source. A source whose bounds are not finite, as of a compressed file without an
// index, is read to its end for them. -1 "the number of points must be known", "the bounds must be known".
TileInfo describeTile(const QMFileSpec& file, const PointSource& source);

} // namespace Quillmoran
