// Builds an index file: a set of tiles, each of which is opened once for its description. A set can start
// from an index that exists, and follow changes of the files.
//
// Tiles keep the order in which they came. One file is one tile however it is named: paths are compared when
// they are absolute and the links of their directories resolved.
#pragma once

#include "filters/PointCloudUnion.h"
#include <vxunpack/PersistentPointSourceManager.h>

#include <map>

namespace Quillmoran {

class PersistentPointSourceWriter final : public Object
{
public:
    using FileOpener = PersistentPointSourceManager::FileOpener;
    enum class Change
    {
        None,
        Added,
        Refreshed,
        Removed
    };

    static PersistentPointSourceWriter* create();

    void init(FileOpener* opener);
    void init(const QMFileSpec& index, FileOpener* opener);

    std::size_t getNumTiles() const noexcept { return m_tiles.size(); }
    std::int64_t getNumPoints() const;
    std::vector<QMFileSpec> getFiles() const;
    // What the tiles did not agree on: see PointCloudUnion.
    std::vector<std::string> getWarnings() const { return m_union.getWarnings(); }
    const std::vector<NamedCoordinateSystem>& getCoordinateSystems() const noexcept
    {
        return m_union.getCoordinateSystems();
    }

    // The opened files whose coordinate systems are not understood.
    const std::vector<std::string>& getUnknownCoordinateSystems() const noexcept
    {
        return m_unknownCoordinateSystems;
    }

    // Opens the file and inserts it; the errors are the opener's, those of describeTile() and of
    // PointCloudUnion::add(). A file that is a tile already is described anew, and so is the overview, which
    // does not become a tile.
    void add(const QMFileSpec& file);
    // Adds a tile, or replaces the one of the same path, without opening it: its channels are those of the
    // set.
    void insert(const TileInfo& tile);
    // Follows a change of a file: a new one is added, one of another time described anew, one that is gone
    // removed. The channels of removed tiles stay channels of the set. The overview is followed, too.
    Change update(const QMFileSpec& file);
    // False when there is no such tile.
    bool remove(const QMFileSpec& file);
    void clear();

    // Week time of the tiles is converted to adjusted standard time, so that tiles with either clock can be
    // added. -1 if the index was made with another week.
    void setGPSWeek(int week);
    void setSRS(const char* srs) { m_srs = srs ? srs : ""; }
    // A file that holds that share of all points, above 0 and at most 1: -1 "bad overview fraction". A tile
    // of that path is one no more.
    void setOverview(const QMFileSpec& file, double fraction);
    const std::optional<Overview>& getOverview() const noexcept { return m_overview; }
    void removeOverview(bool deleteFile);

    // The mosaic of the tiles, as readers of the index will see it, without writing the index.
    Scoped<PointSource> createPointSource() const;

    // Paths of files below the index's directory are stored relative to it, others absolute. What was there
    // under this name stays until the new index is complete.
    void write(const QMFileSpec& index) const;

private:
    PersistentPointSourceWriter() = default;

    TileInfo describe(const QMFileSpec& file, PointCloudInfo& cloud);
    bool isUnchanged(const TileInfo& tile) const;
    Change updateOverview();
    TileSet getTileSet() const; // with absolute paths

    Scoped<FileOpener> m_opener;
    std::string m_srs;
    std::optional<int> m_gpsWeek;
    std::string m_indexName;                             // of the index that this set started from
    std::vector<std::string> m_unknownCoordinateSystems; // names of files
    PointCloudUnion m_union;                             // counts and bounds are those of the tiles
    std::map<std::uint64_t, TileInfo> m_tiles;           // by the order in which they came
    std::map<QMFileSpec, std::uint64_t> m_order;         // of each path
    std::uint64_t m_nextOrder = 0;
    std::optional<Overview> m_overview;
    std::optional<std::int64_t> m_indexTime; // of the index that this set started from
};

} // namespace Quillmoran
