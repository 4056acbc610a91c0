#include <vxunpack/PersistentPointSourceWriter.h>

#include "files/OutputFile.h"
#include "files/QMFileUtils.h"
#include "files/RemoteName.h"
#include "filters/PointCloudUnion.h"
#include "index/BoxGrid.h"
#include "index/MemoryRTree.h"
#include "platform/CheckedMath.h"
#include "utils/sets/Make.h"
#include "utils/sets/NamedSource.h"
#include "utils/sets/TileSetFile.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointReader.h>

#include <map>
#include <optional>

namespace Quillmoran {

namespace {

std::string resolved(const char* path)
{
    if (!path)
        QM_THROW(ErrorCode::InvalidArgument, "path not given");
    return QMFileUtils::resolve(path).c_str();
}

std::string relativeTo(const std::string& directory, const std::string& path)
{
    const std::string prefix = directory == "/" ? directory : directory + '/';
    return path.compare(0, prefix.size(), prefix) == 0 ? path.substr(prefix.size()) : path;
}

Scoped<MemoryRTree> makeTree(const TileSet& set, const BoxGrid& grid)
{
    Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (std::size_t i = 0; i < set.tiles.size(); ++i)
        if (set.tiles[i].numPoints != 0)
            tree->insert(grid.widen(set.tiles[i].bounds), static_cast<std::int64_t>(i));
    return tree;
}

} // namespace

struct PersistentPointSourceWriter::Imp
{
    TileInfo describe(const char* file, PointCloudInfo& cloud);
    bool isUnchanged(const TileInfo& tile) const;
    TileSet getTileSet() const; // with absolute paths
    void requireInit() const
    {
        if (!opener)
            QM_THROW(ErrorCode::InvalidArgument, "the index writer has no opener of files");
    }

    Scoped<FileOpener> opener;
    TileSet set;                                 // its description and tiles are made by getTileSet()
    std::string indexName;                       // of the index that this set started from
    std::vector<std::string> unknownSystems;     // names of files
    PointCloudUnion cloud;                       // counts and bounds are those of the tiles
    std::map<std::uint64_t, TileInfo> tiles;     // by the order in which they were added
    std::map<std::string, std::uint64_t> orders; // by path
    std::uint64_t nextOrder = 0;
    std::optional<std::int64_t> indexTime; // of the index that this set started from
};

TileInfo PersistentPointSourceWriter::Imp::describe(const char* file, PointCloudInfo& description)
{
    requireInit();
    if (!file)
        QM_THROW(ErrorCode::InvalidArgument, "path not given");
    const Scoped<PointSource> source = openTile(*opener, file);
    const auto* las = dynamic_cast<const LASPointReader*>(&NamedSource::unwrap(*source));
    if (las && las->hasUnknownCoordinateSystem())
        unknownSystems.emplace_back(file);
    TileInfo tile = describeTile(file, *source);
    description.init(*source);
    return tile;
}

// Times have a resolution of a second: a file written in the same second as the index, or later, may have
// changed after it was described and still have the same time.
bool PersistentPointSourceWriter::Imp::isUnchanged(const TileInfo& tile) const
{
    if (RemoteName::isRemote(tile.path))
        return false; // it has no time
    const std::int64_t time = QMFileUtils::getStats(tile.path.c_str()).modificationTime;
    return time == tile.timestamp && indexTime && time < *indexTime;
}

TileSet PersistentPointSourceWriter::Imp::getTileSet() const
{
    TileSet whole = set;
    whole.info = make<PointCloudInfo>(cloud.getInfo());
    std::int64_t numPoints = 0;
    Bounds bounds;
    for (const auto& [order, tile] : tiles) {
        numPoints = saturatingAdd(numPoints, tile.numPoints);
        bounds.grow(tile.bounds);
        whole.tiles.push_back(tile);
    }
    whole.info->setNumPoints(numPoints);
    whole.info->setBounds(bounds);
    return whole;
}

PersistentPointSourceWriter::PersistentPointSourceWriter() : m_imp(new Imp)
{}

PersistentPointSourceWriter::~PersistentPointSourceWriter() = default;

void PersistentPointSourceWriter::init(FileOpener* opener)
{
    *m_imp = Imp();
    m_imp->opener = Scoped<FileOpener>::retained(opener);
}

void PersistentPointSourceWriter::init(const char* index, FileOpener* opener)
{
    const std::int64_t indexTime = QMFileUtils::getStats(index).modificationTime;
    const auto known = make<PersistentPointSourceManager>(index, opener);
    init(opener);
    m_imp->indexName = index;
    m_imp->set.srs = known->getSRS();
    m_imp->set.gpsWeek = known->getGPSWeek();
    m_imp->cloud = PointCloudUnion(m_imp->set.gpsWeek);
    m_imp->cloud.add(*known->getPointCloudInfo(), index);
    for (std::size_t i = 0; i < known->getNumSources(); ++i)
        insert(known->getTileInfo(i));
    if (const TileInfo* overview = known->getOverviewInfo()) {
        m_imp->set.overview = Overview{*overview, known->getOverviewFraction()};
        m_imp->set.overview->tile.path = resolved(overview->path.c_str());
    }
    m_imp->indexTime = indexTime;
}

std::size_t PersistentPointSourceWriter::getNumTiles() const noexcept
{
    return m_imp->tiles.size();
}

std::int64_t PersistentPointSourceWriter::getNumPoints() const
{
    return m_imp->getTileSet().info->getNumPoints();
}

std::vector<std::string> PersistentPointSourceWriter::getFiles() const
{
    std::vector<std::string> files;
    for (const auto& [order, tile] : m_imp->tiles)
        files.push_back(tile.path);
    return files;
}

std::vector<std::string> PersistentPointSourceWriter::getWarnings() const
{
    return m_imp->cloud.getWarnings();
}

const std::vector<NamedCoordinateSystem>& PersistentPointSourceWriter::getCoordinateSystems() const noexcept
{
    return m_imp->cloud.getCoordinateSystems();
}

const std::vector<std::string>& PersistentPointSourceWriter::getUnknownCoordinateSystems() const noexcept
{
    return m_imp->unknownSystems;
}

const TileInfo* PersistentPointSourceWriter::getOverviewInfo() const noexcept
{
    return m_imp->set.overview ? &m_imp->set.overview->tile : nullptr;
}

void PersistentPointSourceWriter::setSRS(const char* srs)
{
    m_imp->set.srs = srs ? srs : "";
}

void PersistentPointSourceWriter::add(const char* file)
{
    if (m_imp->set.overview && m_imp->set.overview->tile.path == resolved(file))
        return setOverview(file, m_imp->set.overview->fraction);
    const Scoped<PointCloudInfo> cloud(PointCloudInfo::create());
    const TileInfo tile = m_imp->describe(file, *cloud);
    m_imp->cloud.add(*cloud, file);
    insert(tile);
}

void PersistentPointSourceWriter::insert(const TileInfo& tile)
{
    TileInfo stored = tile;
    stored.path = resolved(tile.path.c_str());
    const auto [known, isNew] = m_imp->orders.emplace(stored.path, m_imp->nextOrder);
    if (isNew)
        ++m_imp->nextOrder;
    m_imp->tiles[known->second] = stored;
}

PersistentPointSourceWriter::Change PersistentPointSourceWriter::update(const char* file)
{
    const std::string path = resolved(file);
    const bool isOverview = m_imp->set.overview && m_imp->set.overview->tile.path == path;
    const auto known = m_imp->orders.find(path);
    if (!isOverview && known == m_imp->orders.end()) {
        add(file);
        return Change::Added;
    }
    const TileInfo before = isOverview ? m_imp->set.overview->tile : m_imp->tiles.at(known->second);
    if (!QMFileUtils::exists(path.c_str())) {
        if (isOverview)
            removeOverview(false);
        else
            remove(path.c_str());
        return Change::Removed;
    }
    if (m_imp->isUnchanged(before))
        return Change::None;
    add(file);
    const TileInfo& after = isOverview ? m_imp->set.overview->tile : m_imp->tiles.at(known->second);
    return after == before ? Change::None : Change::Refreshed;
}

bool PersistentPointSourceWriter::remove(const char* file)
{
    const auto known = m_imp->orders.find(resolved(file));
    if (known == m_imp->orders.end())
        return false;
    m_imp->tiles.erase(known->second);
    m_imp->orders.erase(known);
    if (m_imp->tiles.empty())
        clear();
    return true;
}

void PersistentPointSourceWriter::clear()
{
    m_imp->tiles.clear();
    m_imp->orders.clear();
    m_imp->nextOrder = 0;
    m_imp->cloud = PointCloudUnion(m_imp->set.gpsWeek);
}

void PersistentPointSourceWriter::setGPSWeek(int week)
{
    std::optional<int>& known = m_imp->set.gpsWeek;
    if (known == week)
        return;
    if (known)
        QM_THROW(ErrorCode::General, "'%s' was made with GPS week %d", m_imp->indexName.c_str(), *known);
    known = week;
    PointCloudUnion converted(week);
    if (!m_imp->tiles.empty())
        converted.add(m_imp->cloud.getInfo(), m_imp->indexName);
    m_imp->cloud = converted;
}

void PersistentPointSourceWriter::setOverview(const char* file, double fraction)
{
    if (!isOverviewFraction(fraction))
        QM_THROW(ErrorCode::General, "bad overview fraction");
    const Scoped<PointCloudInfo> cloud(PointCloudInfo::create());
    const TileInfo tile = m_imp->describe(file, *cloud);
    remove(tile.path.c_str());
    PointCloudUnion both(m_imp->set.gpsWeek); // refuses another clock
    both.add(m_imp->cloud.getInfo(), "the tiles");
    both.add(*cloud, file);
    m_imp->set.overview = Overview{tile, fraction};
}

void PersistentPointSourceWriter::removeOverview(bool deleteFile)
{
    if (m_imp->set.overview && deleteFile)
        QMFileUtils::deleteFile(m_imp->set.overview->tile.path.c_str());
    m_imp->set.overview.reset();
}

Scoped<PointSource> PersistentPointSourceWriter::createPointSource() const
{
    const TileSet set = m_imp->getTileSet();
    const Scoped<MemoryRTree> tree = makeTree(set, BoxGrid(set.info->getBounds()));
    const Scoped<PersistentPointSourceManager> tiles(PersistentPointSourceManager::create());
    tiles->init(set, tree.get(), m_imp->opener.get());
    return openMosaic(*tiles);
}

void PersistentPointSourceWriter::write(const char* index) const
{
    m_imp->requireInit();
    TileSet set = m_imp->getTileSet();
    const std::string directory = QMFileSpec(resolved(index).c_str()).dirname();
    for (TileInfo& tile : set.tiles)
        tile.path = relativeTo(directory, tile.path);
    if (set.overview)
        set.overview->tile.path = relativeTo(directory, set.overview->tile.path);
    const BoxGrid grid(set.info->getBounds());
    const Scoped<MemoryRTree> tree = makeTree(set, grid);

    OutputFile output("index", OutputFile::SEEKABLE);
    output.init(index);
    TileSetFile::write(&output.open(), set, *tree, grid.steps());
    output.commit();
}

} // namespace Quillmoran
