#include <vxunpack/PersistentPointSourceManager.h>

#include "files/QMFileUtils.h"
#include "filters/MergeRules.h"
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "utils/NamedSource.h"
#include "utils/TileSetFile.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>
#include <vxunpack/MosaicFilter.h>

#include <utility>

namespace Quillmoran {

namespace {

QMFileSpec findOverview(const QMFileSpec& directory, const QMFileSpec& stored)
{
    const QMFileSpec beside(directory, "overview.vxl");
    return !QMFileUtils::exists(stored) && QMFileUtils::exists(beside) ? beside : stored;
}

} // namespace

Scoped<PointSource> openTile(const PersistentPointSourceManager::FileOpener& opener, const QMFileSpec& file)
{
    try {
        const Scoped<PointSource> source(opener.openPointSource(file));
        return NamedSource::wrap(source.get(), file.c_str());
    } catch (Error& error) {
        nameFile(error, file.c_str());
        throw;
    }
}

Scoped<PointSource> openMosaic(PersistentPointSourceManager& tiles, const std::optional<int>& gpsWeek)
{
    const std::optional<int> week = tiles.getGPSWeek() ? tiles.getGPSWeek() : gpsWeek;
    const Scoped<PointCloudInfo> info(PointCloudInfo::create());
    info->init(*tiles.getPointCloudInfo());
    info->setPointInfo(MergeRules::renameClocks(info->getPointInfo(), week));
    Scoped<MosaicFilter> mosaic(MosaicFilter::create());
    mosaic->init(info.get(), tiles.getRTree(), &tiles, week);
    return Scoped<PointSource>(mosaic.detach());
}

PersistentPointSourceManager* PersistentPointSourceManager::create()
{
    return new PersistentPointSourceManager;
}

PersistentPointSourceManager::PersistentPointSourceManager() : m_tree(MemoryRTree::create())
{}

void PersistentPointSourceManager::init(const QMFileSpec& index, FileOpener* opener)
{
    QMFileUtils::requireRegularFile(index);
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(index.c_str(), "r");
    TileSet set;
    const Scoped<DiskRTree> tree(DiskRTree::create());
    TileSetFile::read(file.get(), set, *tree);

    const QMFileSpec directory(index.dirname().c_str());
    for (TileInfo& tile : set.tiles)
        tile.path = QMFileSpec(directory, tile.path.c_str());
    if (set.overview) {
        QMFileSpec& path = set.overview->tile.path;
        path = findOverview(directory, QMFileSpec(directory, path.c_str()));
    }
    init(std::move(set), tree.get(), opener);
}

void PersistentPointSourceManager::init(TileSet set, const RTree* tree, FileOpener* opener)
{
    m_set = std::move(set);
    m_tree = Scoped<const RTree>::retained(tree);
    m_opener = Scoped<FileOpener>::retained(opener);
    setNumSources(m_set.tiles.size());
}

const TileInfo& PersistentPointSourceManager::getTileInfo(std::size_t index) const
{
    if (index >= m_set.tiles.size())
        QM_THROW(ErrorCode::General, "bad tile index");
    return m_set.tiles[index];
}

const TileInfo* PersistentPointSourceManager::getOverviewInfo() const noexcept
{
    return m_set.overview ? &m_set.overview->tile : nullptr;
}

PointSource* PersistentPointSourceManager::createPointSource(std::size_t index)
{
    return openTile(*m_opener, getTileInfo(index).path).detach();
}

PointSource* PersistentPointSourceManager::createOverviewPointSource()
{
    return m_set.overview ? openTile(*m_opener, m_set.overview->tile.path).detach() : nullptr;
}

} // namespace Quillmoran
