#include <vxunpack/PersistentPointSourceWriter.h>

#include "files/PartialFile.h"
#include "files/QMFileUtils.h"
#include "index/BoxGrid.h"
#include "index/MemoryRTree.h"
#include "platform/CheckedMath.h"
#include "utils/NamedSource.h"
#include "utils/TileSetFile.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointReader.h>

namespace Quillmoran {

namespace {

QMFileSpec relativeTo(const std::string& directory, const QMFileSpec& path)
{
    const std::string prefix = directory == "/" ? directory : directory + '/';
    const std::string whole = path.c_str();
    return whole.compare(0, prefix.size(), prefix) == 0 ? whole.c_str() + prefix.size() : whole.c_str();
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

PersistentPointSourceWriter* PersistentPointSourceWriter::create()
{
    return new PersistentPointSourceWriter;
}

void PersistentPointSourceWriter::init(FileOpener* opener)
{
    m_gpsWeek.reset();
    m_unknownCoordinateSystems.clear();
    clear();
    m_srs.clear();
    m_overview.reset();
    m_indexTime.reset();
    m_opener = Scoped<FileOpener>::retained(opener);
}

void PersistentPointSourceWriter::init(const QMFileSpec& index, FileOpener* opener)
{
    const std::int64_t indexTime = QMFileUtils::getStats(index).modificationTime;
    const Scoped<PersistentPointSourceManager> known(PersistentPointSourceManager::create());
    known->init(index, opener);
    init(opener);
    const TileSet& set = known->getTileSet();
    m_srs = set.srs;
    m_gpsWeek = set.gpsWeek;
    m_indexName = index.c_str();
    m_union = PointCloudUnion(m_gpsWeek);
    m_union.add(*set.info, m_indexName);
    for (const TileInfo& tile : set.tiles)
        insert(tile);
    m_overview = set.overview;
    if (m_overview)
        m_overview->tile.path = QMFileUtils::resolve(m_overview->tile.path);
    m_indexTime = indexTime;
}

std::int64_t PersistentPointSourceWriter::getNumPoints() const
{
    std::int64_t sum = 0;
    for (const auto& [order, tile] : m_tiles)
        sum = saturatingAdd(sum, tile.numPoints);
    return sum;
}

std::vector<QMFileSpec> PersistentPointSourceWriter::getFiles() const
{
    std::vector<QMFileSpec> files;
    for (const auto& [order, tile] : m_tiles)
        files.push_back(tile.path);
    return files;
}

TileInfo PersistentPointSourceWriter::describe(const QMFileSpec& file, PointCloudInfo& cloud)
{
    const Scoped<PointSource> source = openTile(*m_opener, file);
    const auto* las = dynamic_cast<const LASPointReader*>(&NamedSource::unwrap(*source));
    if (las && las->hasUnknownCoordinateSystem())
        m_unknownCoordinateSystems.emplace_back(file.c_str());
    TileInfo tile = describeTile(file, *source);
    cloud.init(*source);
    return tile;
}

void PersistentPointSourceWriter::add(const QMFileSpec& file)
{
    if (m_overview && m_overview->tile.path == QMFileUtils::resolve(file))
        return setOverview(file, m_overview->fraction);
    const Scoped<PointCloudInfo> cloud(PointCloudInfo::create());
    const TileInfo tile = describe(file, *cloud);
    m_union.add(*cloud, file.c_str());
    insert(tile);
}

void PersistentPointSourceWriter::insert(const TileInfo& tile)
{
    TileInfo resolved = tile;
    resolved.path = QMFileUtils::resolve(tile.path);
    const auto [known, isNew] = m_order.emplace(resolved.path, m_nextOrder);
    if (isNew)
        ++m_nextOrder;
    m_tiles[known->second] = resolved;
}

// A file that was written in the second in which the index was, or later, can have been changed after it was
// described without its time telling.
bool PersistentPointSourceWriter::isUnchanged(const TileInfo& tile) const
{
    const std::int64_t time = QMFileUtils::getStats(tile.path).modificationTime;
    return time == tile.timestamp && m_indexTime && time < *m_indexTime;
}

PersistentPointSourceWriter::Change PersistentPointSourceWriter::update(const QMFileSpec& file)
{
    const QMFileSpec path = QMFileUtils::resolve(file);
    if (m_overview && m_overview->tile.path == path)
        return updateOverview();
    const auto known = m_order.find(path);
    if (known == m_order.end()) {
        add(file);
        return Change::Added;
    }
    if (!QMFileUtils::exists(path)) {
        remove(path);
        return Change::Removed;
    }
    const TileInfo before = m_tiles.at(known->second);
    if (isUnchanged(before))
        return Change::None;
    add(file);
    return m_tiles.at(known->second) == before ? Change::None : Change::Refreshed;
}

PersistentPointSourceWriter::Change PersistentPointSourceWriter::updateOverview()
{
    const TileInfo before = m_overview->tile;
    if (!QMFileUtils::exists(before.path)) {
        removeOverview(false);
        return Change::Removed;
    }
    if (isUnchanged(before))
        return Change::None;
    setOverview(before.path, m_overview->fraction);
    return m_overview->tile == before ? Change::None : Change::Refreshed;
}

bool PersistentPointSourceWriter::remove(const QMFileSpec& file)
{
    const auto known = m_order.find(QMFileUtils::resolve(file));
    if (known == m_order.end())
        return false;
    m_tiles.erase(known->second);
    m_order.erase(known);
    if (m_tiles.empty())
        clear();
    return true;
}

void PersistentPointSourceWriter::clear()
{
    m_tiles.clear();
    m_order.clear();
    m_nextOrder = 0;
    m_union = PointCloudUnion(m_gpsWeek);
}

void PersistentPointSourceWriter::setGPSWeek(int week)
{
    if (m_gpsWeek == week)
        return;
    if (m_gpsWeek)
        QM_THROW(ErrorCode::General, "'%s' was made with GPS week %d", m_indexName.c_str(), *m_gpsWeek);
    m_gpsWeek = week;
    PointCloudUnion converted(m_gpsWeek);
    if (!m_tiles.empty())
        converted.add(m_union.getInfo(), m_indexName);
    m_union = converted;
}

void PersistentPointSourceWriter::setOverview(const QMFileSpec& file, double fraction)
{
    if (!isOverviewFraction(fraction))
        QM_THROW(ErrorCode::General, "bad overview fraction");
    const Scoped<PointCloudInfo> cloud(PointCloudInfo::create());
    const TileInfo tile = describe(file, *cloud);
    remove(tile.path);
    PointCloudUnion both(m_gpsWeek); // refuses another clock
    both.add(m_union.getInfo(), "the tiles");
    both.add(*cloud, file.c_str());
    m_overview = Overview{tile, fraction};
}

void PersistentPointSourceWriter::removeOverview(bool deleteFile)
{
    if (m_overview && deleteFile)
        QMFileUtils::deleteFile(m_overview->tile.path);
    m_overview.reset();
}

TileSet PersistentPointSourceWriter::getTileSet() const
{
    TileSet set;
    set.srs = m_srs;
    set.gpsWeek = m_gpsWeek;
    set.info->init(m_union.getInfo());
    set.info->setNumPoints(getNumPoints());
    Bounds bounds;
    for (const auto& [order, tile] : m_tiles) {
        bounds.grow(tile.bounds);
        set.tiles.push_back(tile);
    }
    set.info->setBounds(bounds);
    set.overview = m_overview;
    return set;
}

Scoped<PointSource> PersistentPointSourceWriter::createPointSource() const
{
    const TileSet set = getTileSet();
    const Scoped<MemoryRTree> tree = makeTree(set, BoxGrid(set.info->getBounds()));
    const Scoped<PersistentPointSourceManager> tiles(PersistentPointSourceManager::create());
    tiles->init(set, tree.get(), m_opener.get());
    return openMosaic(*tiles);
}

void PersistentPointSourceWriter::write(const QMFileSpec& index) const
{
    TileSet set = getTileSet();
    const std::string directory = QMFileUtils::resolve(index).dirname();
    for (TileInfo& tile : set.tiles)
        tile.path = relativeTo(directory, tile.path);
    if (set.overview)
        set.overview->tile.path = relativeTo(directory, set.overview->tile.path);
    const BoxGrid grid(set.info->getBounds());
    const Scoped<MemoryRTree> tree = makeTree(set, grid);

    PartialFile partial(index);
    partial.requireSeekable("index");
    TileSetFile::write(partial.io(), set, *tree, grid.steps());
    partial.finish();
}

} // namespace Quillmoran
