// Builds an index file: a set of tiles, each opened once for its description. A set can start from an
// existing index and be updated when files change.
//
// Tiles keep the order in which they were added. Different paths to one file refer to the same tile: before
// paths are compared, they are made absolute and symbolic links in their directories are resolved.
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

    // Starts with no tiles, or with the tiles of an index.
    void init(FileOpener* opener);
    void init(const char* index, FileOpener* opener);

    std::size_t getNumTiles() const noexcept;
    std::int64_t getNumPoints() const;
    std::vector<std::string> getFiles() const; // absolute paths
    // Differences between the tiles, a message each.
    std::vector<std::string> getWarnings() const;
    const std::vector<NamedCoordinateSystem>& getCoordinateSystems() const noexcept;
    // The opened files that have a coordinate system which cannot be translated.
    const std::vector<std::string>& getUnknownCoordinateSystems() const noexcept;

    // Opens the file and inserts it; throws the errors of the opener, and InvalidArgument for a tile with
    // another GPS clock than the others. If the file is already a tile, or the overview, its description is
    // read again.
    void add(const char* file);
    // Adds a tile, or replaces the tile with the same path, without opening the file. Its channels must be
    // channels of the set.
    void insert(const TileInfo& tile);
    // Updates the set for one file: adds a new file, reads the description of a tile again if its file may
    // have changed, and removes a tile whose file no longer exists. Channels of removed tiles remain channels
    // of the set. Also applies to the overview.
    Change update(const char* file);
    // False if there is no such tile.
    bool remove(const char* file);
    void clear();

    // Converts week times of the tiles to adjusted standard time, so that tiles with either clock can be
    // added. Throws General if the index was made with another week.
    void setGPSWeek(int week);
    void setSRS(const char* srs);
    // Sets the file that holds this fraction of all points. Throws General "bad overview fraction" unless the
    // fraction is above 0 and at most 1. Removes the tile with that path, if any.
    void setOverview(const char* file, double fraction);
    // Null without an overview.
    const TileInfo* getOverviewInfo() const noexcept;
    void removeOverview(bool deleteFile);

    // The mosaic of the tiles, as readers of the index will see it, without writing the index.
    Scoped<PointSource> createPointSource() const;

    // Stores the paths of files in or below the directory of the index relative to it, and absolute paths of
    // other files. An existing index is replaced only when the new one is complete.
    void write(const char* index) const;

private:
    struct QM_HIDDEN Imp;

    PersistentPointSourceWriter();
    ~PersistentPointSourceWriter() override;

    const std::unique_ptr<Imp> m_imp;
};

} // namespace Quillmoran
