// Builds an index file: a set of tiles, each opened once for its description. A set can start from an
// existing index and follow changes of the files.
//
// Tiles keep the order in which they were added. Different paths of one file name the same tile: paths are made
// absolute and the links of their directories resolved before they are compared.
#pragma once

#include <vxunpack/PersistentPointSourceManager.h>

#include <memory>
#include <string>
#include <vector>

namespace Quillmoran {

struct NamedCoordinateSystem;

class QM_API PersistentPointSourceWriter final : public Object
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

    static PersistentPointSourceWriter* create() { return new PersistentPointSourceWriter; }

    // An empty set, or that of an index.
    void init(FileOpener* opener);
    void init(const char* index, FileOpener* opener);

    std::size_t getNumTiles() const noexcept;
    std::int64_t getNumPoints() const;
    std::vector<std::string> getFiles() const; // absolute paths
    // Differences between the tiles: see PointCloudUnion.
    std::vector<std::string> getWarnings() const;
    const std::vector<NamedCoordinateSystem>& getCoordinateSystems() const noexcept;
    // The opened files whose coordinate systems are not understood.
    const std::vector<std::string>& getUnknownCoordinateSystems() const noexcept;

    // Opens the file and inserts it; errors are those of the opener, of describeTile() and of
    // PointCloudUnion::add(). A file that is already a tile, or the overview, is described anew in its place.
    void add(const char* file);
    // Adds a tile, or replaces the one of the same path, without opening it. Its channels must be among those
    // of the set.
    void insert(const TileInfo& tile);
    // Follows a change of a file: adds a new one, describes it anew if its time changed, removes it if it no
    // longer exists. Channels of removed tiles remain channels of the set. Also applies to the overview.
    Change update(const char* file);
    // False if there is no such tile.
    bool remove(const char* file);
    void clear();

    // Converts week times of the tiles to adjusted standard time, so that tiles with either clock can be
    // added. -1 if the index was made with another week.
    void setGPSWeek(int week);
    void setSRS(const char* srs);
    // A file with that fraction of all points, above 0 and at most 1: -1 "bad overview fraction". Removes the
    // tile with that path, if any.
    void setOverview(const char* file, double fraction);
    // Null without an overview.
    const TileInfo* getOverviewInfo() const noexcept;
    void removeOverview(bool deleteFile);

    // The mosaic of the tiles, as readers of the index will see it, without writing the index.
    Scoped<PointSource> createPointSource() const;

    // Stores relative paths of files below the directory of the index and absolute paths of others. A file of
    // this name is replaced only when the new index is complete.
    void write(const char* index) const;

private:
    struct Imp;

    PersistentPointSourceWriter();
    ~PersistentPointSourceWriter() override;

    const std::unique_ptr<Imp> m_imp;
};

} // namespace Quillmoran
