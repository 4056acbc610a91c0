#include <vxunpack/PersistentPointSourceManager.h>

#include "files/QMFileUtils.h"
#include "files/RemoteName.h"
#include "filters/MergeRules.h"
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "utils/sets/Make.h"
#include "utils/sets/NamedSource.h"
#include "utils/sets/TileSetFile.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>
#include <vxunpack/MosaicFilter.h>

#include <utility>

namespace Quillmoran {

namespace {

std::string findOverview(const QMFileSpec& directory, const QMFileSpec& stored)
{
    const QMFileSpec local(directory, "overview.vxl");
    return !QMFileUtils::exists(stored) && QMFileUtils::exists(local) ? local.c_str() : stored.c_str();
}

} // namespace

Scoped<PointSource> openTile(const PersistentPointSourceManager::FileOpener& opener, const char* file)
{
    const Scoped<PointSource> source(naming(file, [&] { return opener.openPointSource(file); }));
    return NamedSource::wrap(source.get(), file);
}

Scoped<PointSource> openMosaic(PersistentPointSourceManager& tiles, const std::optional<int>& gpsWeek)
{
    const std::optional<int> week = tiles.getGPSWeek() ? tiles.getGPSWeek() : gpsWeek;
    const auto info = make<PointCloudInfo>(*tiles.getPointCloudInfo());
    info->setPointInfo(MergeRules::renameClocks(info->getPointInfo(), week));
    return make<MosaicFilter, PointSource>(info.get(), tiles.getRTree(), &tiles, week);
}

struct PersistentPointSourceManager::Imp
{
    QMFileSpec absolute(const std::string& path) const
    {
        return RemoteName::isRemote(path) ? QMFileSpec(path.c_str()) : QMFileSpec(directory, path.c_str());
    }

    TileSet set;                            // with the paths as they are opened
    std::unique_ptr<const TileTable> table; // the tiles of a file; null if they are in the set
    QMFileSpec directory;                   // of relative paths in the table
    Scoped<const RTree> tree{MemoryRTree::create()};
    Scoped<FileOpener> opener;
};

PersistentPointSourceManager::PersistentPointSourceManager() : m_imp(new Imp)
{}

PersistentPointSourceManager::~PersistentPointSourceManager() = default;

void PersistentPointSourceManager::init(const char* index, FileOpener* opener)
{
    if (!index || !opener)
        QM_THROW(ErrorCode::InvalidArgument, "%s not given", index ? "opener" : "path");
    QMFileUtils::requireRegularFile(index);
    const auto file = make<FileIO::Imp>(index, "r");
    Imp read;
    const Scoped<DiskRTree> tree(DiskRTree::create());
    read.table = TileSetFile::read(file.get(), read.set, *tree);
    read.directory = QMFileSpec(index).dirname().c_str();
    if (read.set.overview) {
        std::string& path = read.set.overview->tile.path;
        path = findOverview(read.directory, read.absolute(path));
    }
    read.tree = Scoped<const RTree>::retained(tree.get());
    read.opener = Scoped<FileOpener>::retained(opener);
    *m_imp = std::move(read);
    setNumSources(m_imp->table->size());
}

void PersistentPointSourceManager::init(TileSet set, const RTree* tree, FileOpener* opener)
{
    m_imp->set = std::move(set);
    m_imp->table.reset();
    m_imp->tree = Scoped<const RTree>::retained(tree);
    m_imp->opener = Scoped<FileOpener>::retained(opener);
    setNumSources(m_imp->set.tiles.size());
}

const char* PersistentPointSourceManager::getSRS() const noexcept
{
    return m_imp->set.srs.c_str();
}

const PointCloudInfo* PersistentPointSourceManager::getPointCloudInfo() const noexcept
{
    return m_imp->set.info.get();
}

const RTree* PersistentPointSourceManager::getRTree() const noexcept
{
    return m_imp->tree.get();
}

const std::optional<int>& PersistentPointSourceManager::getGPSWeek() const noexcept
{
    return m_imp->set.gpsWeek;
}

TileInfo PersistentPointSourceManager::getTileInfo(std::size_t index) const
{
    if (m_imp->table) {
        TileInfo tile = m_imp->table->get(index);
        tile.path = m_imp->absolute(tile.path).c_str();
        return tile;
    }
    if (index >= m_imp->set.tiles.size())
        QM_THROW(ErrorCode::General, "bad tile index");
    return m_imp->set.tiles[index];
}

const TileInfo* PersistentPointSourceManager::getOverviewInfo() const noexcept
{
    return m_imp->set.overview ? &m_imp->set.overview->tile : nullptr;
}

double PersistentPointSourceManager::getOverviewFraction() const
{
    return m_imp->set.overview ? m_imp->set.overview->fraction : 0;
}

PointSource* PersistentPointSourceManager::createPointSource(std::size_t index)
{
    return openTile(*m_imp->opener, getTileInfo(index).path.c_str()).detach();
}

PointSource* PersistentPointSourceManager::createOverviewPointSource()
{
    const TileInfo* const overview = getOverviewInfo();
    return overview ? openTile(*m_imp->opener, overview->path.c_str()).detach() : nullptr;
}

} // namespace Quillmoran
