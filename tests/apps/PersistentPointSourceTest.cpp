#include <vxunpack/PersistentPointSourceManager.h>
#include <vxunpack/PersistentPointSourceWriter.h>

#include "index/BoxGrid.h"
#include "index/MemoryRTree.h"
#include "support/Errors.h"
#include "support/Layouts.h"
#include "support/Random.h"
#include "support/SetOfSources.h"
#include "support/TileFiles.h"
#include "utils/sets/TileSetFile.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/TXTPointReader.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace Quillmoran {
namespace {

using Testing::buildTile;
using Testing::CountingOpener;
using Testing::errorOf;
using Testing::readRows;
using Testing::TemporaryDirectory;
using Testing::writeFile;
using Names = std::vector<std::string>;
using Change = PersistentPointSourceWriter::Change;

void setAge(const std::string& path, std::chrono::seconds age)
{
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - age);
}

class TileIndex : public testing::Test
{
protected:
    // Adds a tile of the grid, an hour old.
    std::string tile(const std::string& name, int column, int row, int count = 20)
    {
        writeFile(directory / name, buildTile(column * 10.0, row * 10.0, count));
        setAge(directory / name, std::chrono::hours(1));
        return directory / name;
    }

    Scoped<PersistentPointSourceWriter> makeWriter()
    {
        Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
        writer->init(opener.get());
        return writer;
    }
    Scoped<PersistentPointSourceWriter> openWriter()
    {
        Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
        writer->init(index.c_str(), opener.get());
        return writer;
    }
    Scoped<PersistentPointSourceManager> openIndex(const std::string& path)
    {
        Scoped<PersistentPointSourceManager> manager(PersistentPointSourceManager::create());
        manager->init(path.c_str(), opener.get());
        return manager;
    }
    Scoped<MosaicFilter> openMosaic()
    {
        const auto tiles = openIndex(index);
        Scoped<MosaicFilter> mosaic(MosaicFilter::create());
        mosaic->init(tiles->getPointCloudInfo(), tiles->getRTree(), tiles.get());
        return mosaic;
    }
    static Names namesOf(const PersistentPointSourceWriter& writer)
    {
        Names names;
        for (const std::string& file : writer.getFiles())
            names.push_back(std::filesystem::path(file).filename());
        return names;
    }

    TemporaryDirectory directory;
    Scoped<CountingOpener> opener = CountingOpener::make();
    std::string index = directory / "tiles.index";
};

TEST_F(TileIndex, OpensOnlyTilesThatIntersectABox)
{
    const auto writer = makeWriter();
    for (int i = 0; i < 100; ++i)
        writer->add(tile("t" + std::to_string(i) + ".vxl", i % 10, i / 10).c_str());
    writer->write(index.c_str());
    EXPECT_EQ(opener->takeOpened().size(), 100u);

    const auto mosaic = openMosaic();
    EXPECT_EQ(mosaic->getNumPoints(), 2000);
    EXPECT_EQ(mosaic->getBounds().x.max, 98.82);
    EXPECT_EQ(opener->takeOpened(), Names());
    const Bounds box{{41, 58}, {20, 29}, {-1, 1}};
    const auto rows = readRows(*mosaic, mosaic->getPointInfo(), box);
    Names opened = opener->takeOpened();
    std::sort(opened.begin(), opened.end());
    EXPECT_EQ(opened, (Names{"t24.vxl", "t25.vxl"}));
    for (const auto& row : rows)
        EXPECT_TRUE(box.contains(row[0], row[1], row[2]));
    EXPECT_EQ(mosaic->getTotalWork(box, 1), 40);
    EXPECT_EQ(opener->takeOpened().size(), 2u);
    const auto all = readRows(*mosaic, mosaic->getPointInfo());
    EXPECT_EQ(all.size(), 2000u);
    EXPECT_EQ(
        static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(), [&](const auto& row) { return box.contains(row[0], row[1], row[2]); })),
        rows.size());
}

TEST_F(TileIndex, RestoresAllFields)
{
    const auto writer = makeWriter();
    writer->setSRS("EPSG:25832");
    writer->add(tile("b.vxl", 1, 2).c_str());
    writer->add(tile("empty.vxl", 7, 7, 0).c_str());
    std::filesystem::create_directory(directory / "sub");
    writer->add(tile("sub/a.vxl", 3, 4, 30).c_str());
    writer->setOverview(tile("small.vxl", 1, 2, 5).c_str(), 0.125);
    writer->write(index.c_str());

    const auto read = openIndex(index);
    EXPECT_STREQ(read->getSRS(), "EPSG:25832");
    ASSERT_EQ(read->getNumSources(), 3u);
    EXPECT_EQ(read->getTileInfo(0).path, directory / "b.vxl");
    EXPECT_EQ(read->getTileInfo(2).path, directory / "sub/a.vxl");
    EXPECT_EQ(read->getTileInfo(2).numPoints, 30);
    EXPECT_EQ(read->getTileInfo(2).bounds.y.min, 40);
    EXPECT_EQ(read->getTileInfo(1).bounds, Bounds());
    EXPECT_EQ(errorOf(-1, [&] { read->createPointSource(3); }), "bad tile index");
    EXPECT_EQ(read->getOverviewFraction(), 0.125);
    EXPECT_EQ(read->getOverviewInfo()->numPoints, 5);
    const Scoped<PointSource> overview(read->createOverviewPointSource());
    EXPECT_EQ(overview->getNumPoints(), 5);

    const PointCloudInfo& info = *read->getPointCloudInfo();
    ASSERT_TRUE(info.getPointInfo().hasValidXYZ());
    EXPECT_EQ(info.getPointInfo().getChannel("Y")->getQuantization(), 0.01);
    EXPECT_EQ(info.getNumPoints(), 50);
    EXPECT_EQ(info.getBounds().x.min, 10);
    EXPECT_EQ(info.getScale(), nullptr) << "the tiles have different offsets";
    EXPECT_STREQ(info.getWKT(), "LOCAL_CS[\"grid\"]");
    ASSERT_EQ(info.getNumClassIdNames(), 3u);
    EXPECT_EQ(info.getClassIdNames()[1], nullptr);
    EXPECT_STREQ(info.getClassIdNames()[2], "ground");

    const auto again = openWriter();
    again->write((directory / "again.index").c_str());
    EXPECT_EQ(Testing::readFile(directory / "again.index"), Testing::readFile(index));
}

TEST_F(TileIndex, CanBeMovedWithTheTilesBelowIt)
{
    const TemporaryDirectory elsewhere;
    writeFile(elsewhere / "far.vxl", buildTile(50, 50));
    std::filesystem::create_directory(directory / "here");
    const auto writer = makeWriter();
    writer->add(tile("here/a.vxl", 0, 0).c_str());
    writer->add((elsewhere / "far.vxl").c_str());
    writer->setOverview(tile("here/overview.vxl", 0, 0, 4).c_str(), 0.1);
    writer->write((directory / "here/t.index").c_str());
    std::filesystem::rename(directory / "here", directory / "there");

    const auto read = openIndex(directory / "there/t.index");
    EXPECT_EQ(read->getTileInfo(0).path, directory / "there/a.vxl");
    for (std::size_t i = 0; i < 2; ++i)
        EXPECT_EQ(Scoped<PointSource>(read->createPointSource(i))->getNumPoints(), 20);
    EXPECT_EQ(Scoped<PointSource>(read->createOverviewPointSource())->getNumPoints(), 4);
}

TEST_F(TileIndex, LooksForALostOverviewInItsDirectory)
{
    const TemporaryDirectory elsewhere;
    writeFile(elsewhere / "small.vxl", buildTile(0, 0, 3));
    const auto writer = makeWriter();
    writer->add(tile("a.vxl", 0, 0).c_str());
    writer->setOverview((elsewhere / "small.vxl").c_str(), 0.5);
    writer->write(index.c_str());
    std::filesystem::remove(elsewhere / "small.vxl");
    EXPECT_EQ(openIndex(index)->getOverviewInfo()->path, elsewhere / "small.vxl");
    tile("overview.vxl", 0, 0, 4);
    EXPECT_EQ(Scoped<PointSource>(openIndex(index)->createOverviewPointSource())->getNumPoints(), 4);
}

TEST_F(TileIndex, FollowsChangesOfItsFiles)
{
    const auto writer = makeWriter();
    for (const char* name : {"a.vxl", "b.vxl", "c.vxl", "d.vxl"})
        writer->add(tile(name, name[0] - 'a', 0).c_str());
    writer->write(index.c_str());
    opener->takeOpened();

    std::filesystem::remove(directory / "a.vxl");
    tile("c.vxl", 5, 5, 7);
    setAge(directory / "c.vxl", std::chrono::minutes(30));
    tile("e.vxl", 6, 6);
    const auto updated = openWriter();
    const std::pair<const char*, Change> changes[] = {{"a.vxl", Change::Removed},
                                                      {"b.vxl", Change::None},
                                                      {"c.vxl", Change::Refreshed},
                                                      {"e.vxl", Change::Added}};
    for (const auto& [name, change] : changes)
        EXPECT_EQ(updated->update((directory / name).c_str()), change) << name;
    EXPECT_EQ(opener->takeOpened(), (Names{"c.vxl", "e.vxl"}));
    EXPECT_EQ(namesOf(*updated), (Names{"b.vxl", "c.vxl", "d.vxl", "e.vxl"}));
    EXPECT_EQ(updated->getNumPoints(), 67);
    updated->write(index.c_str());
    const auto mosaic = openMosaic();
    EXPECT_EQ(mosaic->getBounds().x.min, 10);
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{50, 59}, {50, 59}, {-1, 1}}).size(), 7u);
}

TEST_F(TileIndex, IgnoresTimesOfFilesAsNewAsTheIndex)
{
    const auto writer = makeWriter();
    const std::string path = tile("a.vxl", 0, 0);
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(path, now);
    writer->add(path.c_str());
    writer->write(index.c_str());
    std::filesystem::last_write_time(index, now);
    writeFile(path, buildTile(0, 0, 9));
    std::filesystem::last_write_time(path, now);
    EXPECT_EQ(openWriter()->update(path.c_str()), Change::Refreshed);
}

TEST_F(TileIndex, HasOneTileForEachFile)
{
    const auto writer = makeWriter();
    const std::string a = tile("a.vxl", 0, 0), b = tile("b.vxl", 1, 0);
    writer->add(a.c_str());
    writer->add(b.c_str());
    tile("a.vxl", 0, 0, 50);
    writer->add((directory / "./a.vxl").c_str());
    EXPECT_EQ(namesOf(*writer), (Names{"a.vxl", "b.vxl"}));
    EXPECT_EQ(writer->getNumPoints(), 70);
    EXPECT_TRUE(writer->remove((directory / "./b.vxl").c_str()));
    EXPECT_FALSE(writer->remove(b.c_str()));
    writer->add(b.c_str());
    writer->setOverview(a.c_str(), 0.5);
    EXPECT_EQ(namesOf(*writer), (Names{"b.vxl"})) << "the overview is not a tile";
    writer->add(a.c_str());
    EXPECT_EQ(namesOf(*writer), (Names{"b.vxl"}));
    EXPECT_EQ(writer->update(a.c_str()), Change::None);
    EXPECT_EQ(errorOf(-1, [&] { writer->setOverview(a.c_str(), 1.5); }), "bad overview fraction");
    writer->removeOverview(false);
    EXPECT_TRUE(std::filesystem::exists(a));
    writer->setOverview(a.c_str(), 1);
    writer->removeOverview(true);
    EXPECT_FALSE(std::filesystem::exists(a));
    writer->clear();
    EXPECT_EQ(writer->getNumTiles(), 0u);
}

TEST_F(TileIndex, UnitesTheChannelsOfItsTiles)
{
    PointInfo layout;
    TXTPointReader::parseFormat("xyzi", layout);
    opener->simple().setTextOptions(true, layout, 0);
    const auto writer = makeWriter();
    writer->add(directory.file("a.txt", "1 2 3 4\n").c_str());
    writer->add(tile("b.vxl", 5, 5).c_str());
    writer->write(index.c_str());
    const auto mosaic = openMosaic();
    ASSERT_EQ(mosaic->getNumChannels(), 4u);
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{1, 1}, {2, 2}, {3, 3}}),
              (std::vector<std::vector<double>>{{1, 2, 3, 4}}));
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{50, 59}, {50, 59}, {0, 0}})[0][3], 0);

    opener->simple().setTextOptions(false, layout, 0);
    EXPECT_EQ(errorOf(-1, [&] { writer->add((directory / "a.txt").c_str()); }),
              "the number of points must be known");
}

TEST_F(TileIndex, NamesTilesThatCannotBeRead)
{
    const auto writer = makeWriter();
    const std::string bad = directory.file("bad.vxl", "not a survey at all");
    EXPECT_EQ(errorOf(40211, [&] { writer->add(bad.c_str()); }), "not a Vexil file path = " + bad);
    EXPECT_EQ(errorOf(ENOENT, [&] { writer->add((directory / "none.vxl").c_str()); }),
              "No such file or directory path = " + directory / "none.vxl");
    EXPECT_EQ(writer->getNumTiles(), 0u);
    writer->write(index.c_str());
    EXPECT_EQ(openMosaic()->getNumPoints(), 0);
}

TEST_F(TileIndex, RefusesATreeThatNamesNoTile)
{
    TileSet set;
    set.info->setPointInfo(Testing::layoutXYZ());
    set.tiles.push_back({tile("a.vxl", 0, 0).c_str(), 0, {{0, 9}, {0, 9}, {0, 9}}, 20});
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    tree->insert({{0, 9}, {0, 9}, {0, 9}}, 1);
    const double steps[] = {1, 1, 1};
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(index.c_str(), "w");
    TileSetFile::write(file.get(), set, *tree, steps);
    const auto mosaic = openMosaic();
    const Bounds outside{{20, 30}, {20, 30}, {0, 1}};
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), outside).size(), 0u);
    EXPECT_EQ(errorOf(-1, [&] { readRows(*mosaic, mosaic->getPointInfo()); }), "bad tile index");
    EXPECT_EQ(errorOf(-1, [&] { mosaic->getTotalWork(Bounds::Huge(), 1); }), "bad tile index");
}

TEST_F(TileIndex, MeasuresTilesWithoutBounds)
{
    Testing::FilePlan plan;
    // Coordinates in parts have no bounds of their own, and there is no index.
    for (const char* name : {"X", "Y", "Z"})
        for (Testing::ChannelPlan& part : Testing::splitChannel(name, FLOAT64, {-3.5, 7, 1, 0, 2}))
            plan.channels.push_back(std::move(part));
    writeFile(directory / "a.vxl", buildFile(plan));
    const auto writer = makeWriter();
    writer->add((directory / "a.vxl").c_str());
    writer->write(index.c_str());
    EXPECT_EQ(openIndex(index)->getTileInfo(0).bounds, (Bounds{{-3.5, 7}, {-3.5, 7}, {-3.5, 7}}));
}

TEST_F(TileIndex, LeavesTheOldIndexWhenWritingFails)
{
    const auto writer = makeWriter();
    writer->add(tile("a.vxl", 0, 0).c_str());
    writer->write(index.c_str());
    const std::string before = Testing::readFile(index);
    writer->setSRS(std::string(70000, 'x').c_str());
    EXPECT_EQ(errorOf(-1, [&] { writer->write(index.c_str()); }), "failed writing: srs: string is too long");
    EXPECT_EQ(Testing::readFile(index), before);
    const auto files = std::filesystem::directory_iterator(directory.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 2) << "the index and the tile";
}

TEST(BoxGrid, NeverLosesATileToRounding)
{
    Testing::Random random(3);
    for (const double origin : {0.0, 500000.0, -4.1e6, 1e12})
        for (const double size : {1e-9, 1e-3, 1.0, 1e5}) {
            Bounds all;
            std::vector<Bounds> boxes;
            for (int i = 0; i < 200; ++i) {
                const double a = origin + random.real() * size, b = origin + random.real() * size;
                const Bounds::Range range{std::min(a, b), std::max(a, b)};
                boxes.push_back({range, range, range});
                all.grow(boxes.back());
            }
            const BoxGrid grid(all);
            const double step = grid.steps()[0];
            const double offset = grid.widen(all).x.min;
            for (const Bounds& box : boxes) {
                const Bounds wider = grid.widen(box);
                const auto stored = [&](double value) {
                    const double line = std::floor((value - offset) / step + 0.5);
                    EXPECT_GE(line, 0);
                    EXPECT_LE(line, 4294967295.0);
                    return line * step + offset;
                };
                ASSERT_LE(stored(wider.x.min), box.x.min) << origin << ' ' << size;
                ASSERT_GE(stored(wider.x.max), box.x.max) << origin << ' ' << size;
                ASSERT_LE(stored(wider.x.max) - box.x.max, 2 * step) << origin << ' ' << size;
            }
        }
}

} // namespace
} // namespace Quillmoran
