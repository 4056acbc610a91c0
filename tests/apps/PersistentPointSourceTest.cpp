#include <vxunpack/PersistentPointSourceManager.h>
#include <vxunpack/PersistentPointSourceWriter.h>

#include "index/BoxGrid.h"
#include "index/MemoryRTree.h"
#include "support/SetOfSources.h"
#include "support/Test.h"
#include "support/TileFiles.h"
#include "utils/sets/TileSetFile.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/TXTPointReader.h>

#include <chrono>

namespace Quillmoran::Testing { namespace {

using Names = std::vector<std::string>;
using Rows = std::vector<std::vector<double>>;
using Change = PersistentPointSourceWriter::Change;

class TileIndex : public testing::Test
{
protected:
    // Makes a tile of the grid that is an hour old.
    std::string tile(const std::string& name, int column, int row, int count = 20,
                     std::chrono::minutes age = std::chrono::hours(1))
    {
        writeFile(directory / name, buildTile(column * 10.0, row * 10.0, count));
        setAge(directory / name, age);
        return directory / name;
    }
    static void setAge(const std::string& path, std::chrono::minutes age)
    {
        std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - age);
    }

    Scoped<PersistentPointSourceWriter> makeWriter(const Names& files = {})
    {
        Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
        writer->init(opener.get());
        for (const std::string& file : files)
            writer->add(file.c_str());
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

TEST_F(TileIndex, RestoresAllFields)
{
    std::filesystem::create_directory(directory / "sub");
    const auto writer =
        makeWriter({tile("b.vxl", 1, 2), tile("empty.vxl", 7, 7, 0), tile("sub/a.vxl", 3, 4, 30)});
    writer->setSRS("EPSG:25832");
    writer->setOverview(tile("small.vxl", 1, 2, 5).c_str(), 0.125);
    writer->write(index.c_str());

    const auto read = openIndex(index);
    EXPECT_STREQ(read->getSRS(), "EPSG:25832");
    ASSERT_EQ(read->getNumSources(), 3u);
    EXPECT_EQ(read->getTileInfo(0).path, directory / "b.vxl");
    EXPECT_EQ(read->getTileInfo(1).bounds, Bounds());
    EXPECT_EQ(read->getTileInfo(2).path, directory / "sub/a.vxl");
    EXPECT_EQ(read->getTileInfo(2).numPoints, 30);
    EXPECT_EQ(read->getTileInfo(2).bounds.y.min, 40);
    EXPECT_EQ(errorOf(-1, [&] { read->createPointSource(3); }), "bad tile index");
    EXPECT_EQ(read->getOverviewFraction(), 0.125);
    EXPECT_EQ(read->getOverviewInfo()->numPoints, 5);
    EXPECT_EQ(Scoped<PointSource>(read->createOverviewPointSource())->getNumPoints(), 5);

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

    openWriter()->write((directory / "again.index").c_str());
    EXPECT_EQ(readFile(directory / "again.index"), readFile(index));
    // An empty tile is in no box, and a used writer starts anew.
    opener->takeOpened();
    const auto mosaic = openMosaic();
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{-1e300, 1e300}, {-1e300, 1e300}, {-1, 1}}).size(),
              50u);
    EXPECT_EQ(opener->takeOpened(), (Names{"b.vxl", "a.vxl"}));
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{18.83, 29}, {0, 90}, {0, 1}}).size(), 0u);
    EXPECT_EQ(opener->takeOpened(), Names()) << "only tiles that intersect a box are opened";
    writer->init(opener.get());
    EXPECT_EQ(writer->getNumTiles(), 0u);
    EXPECT_EQ(writer->getOverviewInfo(), nullptr);
}

// Only paths in the directory of the index are relative to it.
TEST_F(TileIndex, CanBeMovedWithTheTilesBelowIt)
{
    for (const char* name : {"tiles", "tiles2"})
        std::filesystem::create_directory(directory / name);
    const auto writer = makeWriter({tile("tiles/a.vxl", 0, 0), tile("tiles2/b.vxl", 5, 5, 21)});
    writer->setOverview(tile("tiles/small.vxl", 0, 0, 4).c_str(), 0.1);
    writer->write((directory / "tiles/t.index").c_str());
    std::filesystem::rename(directory / "tiles", directory / "there");
    const auto read = openIndex(directory / "there/t.index");
    EXPECT_EQ(read->getTileInfo(0).path, directory / "there/a.vxl");
    EXPECT_EQ(read->getTileInfo(1).path, directory / "tiles2/b.vxl");
    EXPECT_EQ(read->getOverviewInfo()->path, directory / "there/small.vxl");
    for (std::size_t i = 0; i < 2; ++i)
        EXPECT_EQ(Scoped<PointSource>(read->createPointSource(i))->getNumPoints(), i == 0 ? 20 : 21);
}

TEST_F(TileIndex, LooksForALostOverviewInItsDirectory)
{
    const TemporaryDirectory elsewhere;
    writeFile(elsewhere / "small.vxl", buildTile(0, 0, 3));
    const auto writer = makeWriter({tile("a.vxl", 0, 0)});
    writer->setOverview((elsewhere / "small.vxl").c_str(), 0.5);
    writer->write(index.c_str());
    tile("overview.vxl", 0, 0, 4);
    EXPECT_EQ(openIndex(index)->getOverviewInfo()->path, elsewhere / "small.vxl");
    std::filesystem::remove(elsewhere / "small.vxl");
    EXPECT_EQ(Scoped<PointSource>(openIndex(index)->createOverviewPointSource())->getNumPoints(), 4);
    std::filesystem::remove(directory / "overview.vxl");
    EXPECT_EQ(openIndex(index)->getOverviewInfo()->path, elsewhere / "small.vxl");
}

TEST_F(TileIndex, FollowsChangesOfItsFiles)
{
    const std::chrono::minutes hour = std::chrono::hours(1);
    Names files;
    for (const char* name : {"a.vxl", "b.vxl", "c.vxl", "d.vxl", "o.vxl", "touched.vxl"})
        files.push_back(tile(name, name[0] - 'a', 0, 20));
    makeWriter(files)->write(index.c_str());
    setAge(index, std::chrono::minutes(20));
    opener->takeOpened();

    std::filesystem::remove(directory / "a.vxl");
    tile("c.vxl", 5, 5, 7, hour / 2);
    tile("e.vxl", 6, 6, 20);
    tile("o.vxl", 7, 7, 20, 2 * hour); // an older file is another one
    const auto updated = openWriter();
    const std::pair<const char*, Change> changes[] = {{"a.vxl", Change::Removed},   {"b.vxl", Change::None},
                                                      {"c.vxl", Change::Refreshed}, {"e.vxl", Change::Added},
                                                      {"o.vxl", Change::Refreshed}, {"o.vxl", Change::None}};
    for (const auto& [name, change] : changes)
        EXPECT_EQ(updated->update((directory / name).c_str()), change) << name;
    EXPECT_EQ(opener->takeOpened(), (Names{"c.vxl", "e.vxl", "o.vxl"}));
    EXPECT_EQ(namesOf(*updated), (Names{"b.vxl", "c.vxl", "d.vxl", "o.vxl", "touched.vxl", "e.vxl"}));
    EXPECT_EQ(updated->getNumPoints(), 107);
    updated->write(index.c_str());
    const auto mosaic = openMosaic();
    EXPECT_EQ(mosaic->getBounds().x.min, 10);
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{50, 59}, {50, 59}, {-1, 1}}).size(), 7u);
}

// A file as new as its index may have changed after it was described; it is read again, even if nothing changed.
TEST_F(TileIndex, IgnoresTimesOfFilesAsNewAsTheIndex)
{
    const std::string path = tile("a.vxl", 0, 0);
    const auto now = std::filesystem::file_time_type::clock::now();
    const auto setTimes = [&] {
        for (const std::string& file : {path, index})
            if (std::filesystem::exists(file))
                std::filesystem::last_write_time(file, now);
    };
    setTimes();
    makeWriter({path})->write(index.c_str());
    setTimes();
    EXPECT_EQ(openWriter()->update(path.c_str()), Change::None);
    writeFile(path, buildTile(0, 0, 9));
    setTimes();
    EXPECT_EQ(openWriter()->update(path.c_str()), Change::Refreshed);
}

TEST_F(TileIndex, HasOneTileForEachFile)
{
    const std::string a = tile("a.vxl", 0, 0), b = tile("b.vxl", 1, 0);
    const auto writer = makeWriter({a, b});
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
    EXPECT_EQ(writer->getOverviewInfo(), nullptr);
    writer->clear();
    EXPECT_EQ(writer->getNumTiles(), 0u);
}

TEST_F(TileIndex, UnitesTheChannelsOfItsTiles)
{
    PointInfo layout;
    TXTPointReader::parseFormat("xyzi", layout);
    opener->simple().setTextOptions(true, layout, 0);
    const std::string text = directory.file("a.txt", "1 2 3 4\n"), b = tile("b.vxl", 5, 5);
    const auto writer = makeWriter({text, b});
    writer->write(index.c_str());
    const auto mosaic = openMosaic();
    ASSERT_EQ(mosaic->getNumChannels(), 4u);
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{1, 1}, {2, 2}, {3, 3}}), (Rows{{1, 2, 3, 4}}));
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{50, 59}, {50, 59}, {0, 0}})[0][3], 0);
    EXPECT_EQ(writer->getWarnings().size(), 1u);

    // Without its last tile, an index has no channels of its own; its GPS week is kept.
    writer->setGPSWeek(2100);
    for (const std::string& file : {text, b})
        EXPECT_TRUE(writer->remove(file.c_str()));
    EXPECT_EQ(writer->createPointSource()->getNumChannels(), 0u);
    writer->add(b.c_str());
    EXPECT_EQ(writer->createPointSource()->getNumChannels(), 3u);
    EXPECT_EQ(writer->getWarnings(), Names());
    writer->write(index.c_str());
    EXPECT_EQ(openIndex(index)->getGPSWeek(), 2100);
    EXPECT_EQ(errorOf(-1, [&] { openWriter()->setGPSWeek(2101); }),
              "'" + index + "' was made with GPS week 2100");
    openWriter()->setGPSWeek(2100);

    opener->simple().setTextOptions(false, layout, 0);
    EXPECT_EQ(errorOf(-1, [&] { writer->add(text.c_str()); }), "the number of points must be known");
}

TEST_F(TileIndex, RefusesATreeThatNamesNoTile)
{
    TileSet set;
    set.info->setPointInfo(layoutXYZ());
    set.tiles.push_back({tile("a.vxl", 0, 0).c_str(), 0, {{0, 9}, {0, 9}, {0, 9}}, 20});
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    tree->insert({{0, 9}, {0, 9}, {0, 9}}, 1);
    const double steps[] = {1, 1, 1};
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(index.c_str(), "w");
    TileSetFile::write(file.get(), set, *tree, steps);
    const auto mosaic = openMosaic();
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{20, 30}, {20, 30}, {0, 1}}).size(), 0u);
    EXPECT_EQ(errorOf(-1, [&] { readRows(*mosaic, mosaic->getPointInfo()); }), "bad tile index");
    EXPECT_EQ(errorOf(-1, [&] { mosaic->getTotalWork(Bounds::Huge(), 1); }), "bad tile index");
}

// Coordinates in parts have no bounds of their own, and there is no index.
TEST_F(TileIndex, MeasuresTilesWithoutBounds)
{
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double last : {2.0, infinity}) {
        FilePlan plan;
        const std::vector<double> columns[] = {{-3.5, 7, 1}, {0, 2, 5}, {9, last, 8}};
        for (int axis = 0; axis < 3; ++axis)
            for (ChannelPlan& part : splitChannel(std::string(1, "XYZ"[axis]), FLOAT64, columns[axis]))
                plan.channels.push_back(std::move(part));
        writeFile(directory / "a.vxl", buildFile(plan));
        const auto writer = makeWriter();
        const std::string outcome = failureOf([&] { writer->add((directory / "a.vxl").c_str()); });
        EXPECT_EQ(outcome, last == infinity ? "-1 the bounds must be known" : "no error");
        writer->write(index.c_str());
        if (last != infinity) {
            EXPECT_EQ(openIndex(index)->getTileInfo(0).bounds, (Bounds{{-3.5, 7}, {0, 5}, {2, 9}}));
        }
    }
}

TEST(BoxGrid, NeverLosesATileToRounding)
{
    Random random(3);
    for (const double origin : {0.0, 500000.0, -4.1e6, 1e12})
        for (const double size : {1e-9, 1e-3, 1.0, 1e5}) {
            SCOPED_TRACE(std::to_string(origin) + ' ' + std::to_string(size));
            Bounds all;
            std::vector<Bounds> boxes;
            for (int i = 0; i < 200; ++i) {
                const double a = origin + random.real() * size, b = origin + random.real() * size;
                const Bounds::Range range{std::min(a, b), std::max(a, b)};
                boxes.push_back({range, range, range});
                all.grow(boxes.back());
            }
            const BoxGrid grid(all);
            const double step = grid.steps()[0], offset = grid.widen(all).x.min;
            const auto stored = [&](double value) {
                const double line = std::floor((value - offset) / step + 0.5);
                EXPECT_TRUE(line >= 0 && line <= 4294967295.0) << line;
                return line * step + offset;
            };
            for (const Bounds& box : boxes) {
                const Bounds wider = grid.widen(box);
                ASSERT_LE(stored(wider.x.min), box.x.min);
                ASSERT_GE(stored(wider.x.max), box.x.max);
                ASSERT_LE(stored(wider.x.max) - box.x.max, 2 * step);
            }
        }
}

}} // namespace Quillmoran::Testing
