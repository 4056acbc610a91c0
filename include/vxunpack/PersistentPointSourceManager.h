// The tiles of an index file as the sources of a manager, opened one by one when they are asked for and not
// kept. A file set shows an index through a MosaicFilter, whose queries find their tiles in the index's tree.
//
// A tile that was changed since it was indexed is still read; whether a point of it is found then depends on
// the bounds that the index has. The index file is opened for as long as its tree is being walked.
#pragma once

#include "index/RTree.h"
#include "utils/TileSet.h"
#include <vxunpack/PointSource.h>

namespace Quillmoran {

class PersistentPointSourceManager final : public PointSourceManager
{
public:
    // Makes the source of a file.
    class FileOpener : public Object
    {
    public:
        // A new count of a source.
        virtual PointSource* openPointSource(const QMFileSpec& file) const = 0;

    protected:
        FileOpener() = default;
    };

    static PersistentPointSourceManager* create();

    // A relative path is meant from the index's own directory, so that tiles and index can be moved together.
    // The overview is where the index says, or else the "overview.vxl" beside the index. Errors are those of
    // TileSetFile.h; after one the manager is unchanged.
    void init(const QMFileSpec& index, FileOpener* opener);
    // A set in memory with absolute paths; the values of the tree are indices of its tiles.
    void init(TileSet set, const RTree* tree, FileOpener* opener);

    const char* getSRS() const noexcept { return m_set.srs.c_str(); }
    const PointCloudInfo* getPointCloudInfo() const noexcept { return m_set.info.get(); }
    const RTree* getRTree() const noexcept { return m_tree.get(); }
    // The week with which tiles with week time are read as adjusted standard time, if any.
    const std::optional<int>& getGPSWeek() const noexcept { return m_set.gpsWeek; }
    // -1 "bad tile index" past the end.
    const TileInfo& getTileInfo(std::size_t index) const;
    // Null without an overview.
    const TileInfo* getOverviewInfo() const noexcept;

    // -1 "bad tile index"; the opener's own errors, with the path of the tile.
    PointSource* createPointSource(std::size_t index) override;
    std::string getSourceName(std::size_t index) const override { return getTileInfo(index).path.c_str(); }
    double getOverviewFraction() const override { return m_set.overview ? m_set.overview->fraction : 0; }
    PointSource* createOverviewPointSource() override;

    // What the index holds, with the paths as they are opened.
    const TileSet& getTileSet() const noexcept { return m_set; }

private:
    PersistentPointSourceManager();

    TileSet m_set;
    Scoped<const RTree> m_tree;
    Scoped<FileOpener> m_opener;
};

// Opens a tile; errors of the opener and of the source name the file.
Scoped<PointSource> openTile(const PersistentPointSourceManager::FileOpener& opener, const QMFileSpec& file);

// The mosaic of all tiles, which keeps the manager.
Scoped<PointSource> openMosaic(PersistentPointSourceManager& tiles,
                               const std::optional<int>& gpsWeek = std::nullopt);

} // namespace Quillmoran
