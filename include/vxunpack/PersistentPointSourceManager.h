// The tiles of an index file as the sources of a manager. Each call opens the tile again; the manager keeps
// no tile open. FilePointSourceManager joins the tiles of an index with a MosaicFilter, which looks up the
// tiles of a query in the index's R-tree.
//
// A tile that changed after it was indexed is still read, but queries select it by the bounds in the index.
// The index file stays open, and descriptions of tiles are read from it when they are needed: the memory for
// a million tiles is a few megabytes.
#pragma once

#include <vxunpack/Bounds.h>
#include <vxunpack/PointSource.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Quillmoran {

class RTree;
struct TileSet;

// One file of a set.
struct TileInfo
{
    std::string path;
    std::int64_t timestamp = 0; // the file's modification time, seconds since 1970
    Bounds bounds;
    std::int64_t numPoints = 0;

    bool operator==(const TileInfo&) const = default;
};

class QM_API PersistentPointSourceManager final : public PointSourceManager
{
public:
    // Opens the source of a file.
    class QM_API FileOpener : public Object
    {
    public:
        // A new count of a source.
        virtual PointSource* openPointSource(const char* path) const = 0;

    protected:
        FileOpener() = default;
    };

    static PersistentPointSourceManager* create() { return new PersistentPointSourceManager; }

    // Relative paths are relative to the directory of the index, so tiles and index can be moved together. If
    // the overview is not where the index says, "overview.vxl" in the directory of the index is taken. Throws
    // General for a malformed index, which leaves the manager unchanged.
    void init(const char* index, FileOpener* opener);

    const char* getSRS() const noexcept;
    const PointCloudInfo* getPointCloudInfo() const noexcept;
    const RTree* getRTree() const noexcept;
    // The week that converts the week times of tiles to adjusted standard time, if any.
    const std::optional<int>& getGPSWeek() const noexcept;
    // Reads the index file, and may be called from any thread. Throws General "bad tile index" for an index
    // past the end.
    TileInfo getTileInfo(std::size_t index) const;
    // Null without an overview.
    const TileInfo* getOverviewInfo() const noexcept;

    // Throws General "bad tile index", and the errors of the opener with the path of the tile.
    PointSource* createPointSource(std::size_t index) override;
    std::string getSourceName(std::size_t index) const override { return getTileInfo(index).path; }
    double getOverviewFraction() const override;
    PointSource* createOverviewPointSource() override;

private:
    friend class PersistentPointSourceWriter;
    struct QM_HIDDEN Imp;

    PersistentPointSourceManager();
    ~PersistentPointSourceManager() override;

    // A set in memory with absolute paths; the values of the tree are indices of its tiles.
    void init(TileSet set, const RTree* tree, FileOpener* opener);

    const std::unique_ptr<Imp> m_imp;
};

} // namespace Quillmoran
