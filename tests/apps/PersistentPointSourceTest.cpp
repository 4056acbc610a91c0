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

namespace Quillmoran::Testing { namespace {

using Rows = std::vector<Numbers>;
using Change = PersistentPointSourceWriter::Change;

class TileIndex : public testing::Test
{
protected:
    // Makes a tile of the grid that is an hour old.
    std::string tile(const std::string& name, int column, int row, int count = 20)
    {
        writeFile(directory / name, buildTile(column * 10.0, row * 10.0, count));
        directory.setAge(name, std::chrono::hours(1));
        return directory / name;
    }

    Scoped<PersistentPointSourceWriter> makeWriter(const Strings& files = {})
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

    TemporaryDirectory directory;
    Scoped<CountingOpener> opener = CountingOpener::make();
    std::string index = directory / "tiles.index";
};

TEST_F(TileIndex, DescribesItsTilesAndOpensThoseInABox)
{
    const auto writer =
        makeWriter({tile("b.vxl", 1, 2), tile("empty.vxl", 7, 7, 0), tile("a.vxl", 3, 4, 30)});
    writer->setSRS("EPSG:25832");
    writer->setOverview(tile("small.vxl", 1, 2, 5).c_str(), 0.125);
    writer->write(index.c_str());

    const auto read = openIndex(index);
    EXPECT_STREQ(read->getSRS(), "EPSG:25832");
    EXPECT_EQ(read->getTileInfo(1).bounds, Bounds());
    EXPECT_EQ(errorOf(-1, [&] { read->createPointSource(3); }), "bad tile index");
    EXPECT_EQ(read->getOverviewFraction(), 0.125);
    EXPECT_EQ(Scoped<PointSource>(read->createOverviewPointSource())->getNumPoints(), 5);

    const PointCloudInfo& info = *read->getPointCloudInfo();
    EXPECT_EQ(info.getPointInfo().getChannel("Y")->getQuantization(), 0.01);
    EXPECT_EQ(info.getNumPoints(), 50);
    EXPECT_EQ(info.getBounds().x.min, 10);
    EXPECT_EQ(info.getScale(), nullptr) << "the tiles have different offsets";
    openWriter()->write((directory / "again.index").c_str());
    EXPECT_EQ(readFile(directory / "again.index"), readFile(index));
    // An empty tile is in no box, and a used writer starts anew.
    opener->takeOpened();
    const auto mosaic = openMosaic();
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{-1e300, 1e300}, {-1e300, 1e300}, {-1, 1}}).size(),
              50u);
    EXPECT_EQ(opener->takeOpened(), (Strings{"b.vxl", "a.vxl"}));
    EXPECT_EQ(readRows(*mosaic, mosaic->getPointInfo(), {{18.83, 29}, {0, 90}, {0, 1}}).size(), 0u);
    EXPECT_EQ(opener->takeOpened(), Strings()) << "only tiles that intersect a box are opened";
    writer->init(opener.get());
    EXPECT_EQ(writer->getNumTiles(), 0u);
    EXPECT_EQ(writer->getOverviewInfo(), nullptr);
}

// Tiles are read from the file that was opened, in any order, without opening their files.
TEST_F(TileIndex, DescribesManyTilesFromTheFile)
{
    const auto writer = makeWriter({tile("a.vxl", 0, 0)});
    const auto added = [&](int i) {
        const double x = 10.0 * i;
        return TileInfo{directory / (std::string(static_cast<std::size_t>(i), 'n') + ".vxl"),
                        i,
                        {{x, x + 9}, {0, 9}, {0, 9}},
                        i};
    };
    constexpr int numTiles = 70;
    for (int i = 1; i < numTiles; ++i)
        writer->insert(added(i));
    writer->write(index.c_str());
    opener->takeOpened();
    const auto read = openIndex(index);
    makeWriter({tile("b.vxl", 0, 0)})->write(index.c_str());
    opener->takeOpened();
    EXPECT_EQ(read->getNumSources(), std::size_t{numTiles});
    for (int i = 1; i < numTiles; ++i) {
        EXPECT_EQ(read->getTileInfo(static_cast<std::size_t>(numTiles - i)), added(numTiles - i)) << i;
        EXPECT_EQ(read->getTileInfo(static_cast<std::size_t>(i)), added(i)) << i;
    }
    EXPECT_EQ(errorOf(2, [&] { read->createPointSource(5); }),
              "No such file or directory path = " + added(5).path);
    EXPECT_EQ(opener->takeOpened(), Strings{"nnnnn.vxl"});
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
    EXPECT_EQ(writer->getFiles(), (Strings{a, b}));
    EXPECT_EQ(writer->getNumPoints(), 70);
    EXPECT_TRUE(writer->remove((directory / "./b.vxl").c_str()));
    EXPECT_FALSE(writer->remove(b.c_str()));
    EXPECT_NEAR(writer->createPointSource()->getBounds().x.max, 8.82, 1e-9);
    writer->add(b.c_str());
    writer->setOverview(a.c_str(), 0.5);
    EXPECT_EQ(writer->getFiles(), Strings{b}) << "the overview is not a tile";
    writer->add(a.c_str());
    EXPECT_EQ(writer->getFiles(), Strings{b});
    EXPECT_EQ(writer->update(a.c_str()), Change::None);
    EXPECT_EQ(errorOf(-1, [&] { writer->setOverview(a.c_str(), 1.5); }), "bad overview fraction");
    writer->removeOverview(false);
    EXPECT_TRUE(std::filesystem::exists(a));
    writer->setOverview(a.c_str(), 1);
    writer->removeOverview(true);
    EXPECT_FALSE(std::filesystem::exists(a));
    EXPECT_EQ(writer->getOverviewInfo(), nullptr);
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
    EXPECT_EQ(writer->getWarnings(), Strings());
    writer->write(index.c_str());
    EXPECT_EQ(openIndex(index)->getGPSWeek(), 2100);
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
    for (const double last : {infinity, 2.0}) {
        FilePlan plan;
        for (const auto& [name, samples] :
             {std::pair("X", Numbers{-3.5, 7, 1}), {"Y", {0, 2, 5}}, {"Z", {9, last, 8}}})
            for (ChannelPlan& part : splitChannel(name, FLOAT64, samples))
                plan.channels.push_back(std::move(part));
        writeFile(directory / "a.vxl", buildFile(plan));
        const auto writer = makeWriter();
        const std::string outcome = failureOf([&] { writer->add((directory / "a.vxl").c_str()); });
        EXPECT_EQ(outcome, last == infinity ? "-1 the bounds must be known" : "no error");
        writer->write(index.c_str());
    }
    EXPECT_EQ(openIndex(index)->getTileInfo(0).bounds, (Bounds{{-3.5, 7}, {0, 5}, {2, 9}}));
}

TEST(BoxGrid, NeverLosesATileToRounding)
{
    Random random(3);
    for (const double origin : {0.0, 500000.0, -4.1e6, 1e12})
        for (const double size : {1e-9, 1e-3, 1.0, 1e5}) {
            const Bounds::Range whole{origin, origin + size};
            const BoxGrid grid({whole, whole, whole});
            const double step = grid.steps()[0], offset = grid.widen({whole, whole, whole}).x.min;
            const auto stored = [&](double value) {
                const double line = std::floor((value - offset) / step + 0.5);
                EXPECT_TRUE(line >= 0 && line <= 4294967295.0) << line;
                return line * step + offset;
            };
            for (int i = 0; i < 200; ++i) {
                const double a = origin + random.real() * size, b = origin + random.real() * size;
                const Bounds::Range box{std::min(a, b), std::max(a, b)};
                const Bounds::Range wider = grid.widen({box, box, box}).x;
                ASSERT_LE(stored(wider.min), box.min) << origin << ' ' << size;
                ASSERT_GE(stored(wider.max), box.max) << origin << ' ' << size;
                ASSERT_LE(stored(wider.max) - box.max, 2 * step) << origin << ' ' << size;
            }
        }
}

}} // namespace Quillmoran::Testing
