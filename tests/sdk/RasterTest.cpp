// Rasters against a model that counts cells in whole hundredths, so that it has no rounding errors.
#include "raster/RasterAccumulator.h"
#include "support/CoordinateSystems.h"
#include "support/MemoryPointSource.h"
#include "support/Random.h"
#include "support/Test.h"
#include <vxunpack/Raster.h>

#include <gdal_priv.h>
#include <numeric>
#include <ogr_spatialref.h>

namespace Quillmoran::Testing { namespace {

using Cell = std::pair<std::int64_t, std::int64_t>; // column and row of the plane, from the south

std::int64_t floorDivide(std::int64_t a, std::int64_t b)
{
    return a / b - (a % b < 0 ? 1 : 0);
}

// Points at multiples of 0.01, many of them on the edges of cells, around the origin.
struct Survey
{
    explicit Survey(int count, int spreadX = 300, int spreadY = 300)
        : layout(layoutXYZ({channel("Intensity", UINT16)}))
    {
        for (const char* name : {"ClassId", "ReturnNum", "NumReturns"})
            layout.append(channel(name, UINT8));
        columns.resize(layout.getNumChannels());
        Random random(7);
        for (int i = 0; i < count; ++i) {
            const int step = random.chance(0.5) ? 10 : 1;
            x.push_back(random.between(-spreadX, spreadX) / step * step);
            y.push_back(random.between(-spreadY, spreadY) / step * step);
            const Numbers point = {static_cast<double>(x.back()) * 0.01,
                                   static_cast<double>(y.back()) * 0.01,
                                   400 + static_cast<double>(random.between(0, 9999)) * 0.01,
                                   static_cast<double>(random.between(0, 5000)),
                                   static_cast<double>(random.between(1, 9)),
                                   static_cast<double>(random.between(1, 3)),
                                   static_cast<double>(random.between(1, 3))};
            for (std::size_t c = 0; c < columns.size(); ++c)
                columns[c].push_back(point[c]);
        }
    }

    Scoped<MemoryPointSource> source() const
    {
        const auto source = MemoryPointSource::make(layout, columns);
        source->setWKT(transverseMercator(9).c_str());
        return source;
    }
    vx::Cloud cloud() const { return vx::Cloud(Scoped<PointSource>(source().detach())); }

    // The values of a channel in each cell of `size` hundredths, of the points that are kept.
    std::map<Cell, Numbers> cells(int size, std::size_t channelIndex,
                                  const std::function<bool(std::size_t)>& keeps) const
    {
        std::map<Cell, Numbers> found;
        for (std::size_t i = 0; i < x.size(); ++i)
            if (keeps(i))
                found[{floorDivide(x[i], size), floorDivide(y[i], size)}].push_back(columns[channelIndex][i]);
        return found;
    }

    PointInfo layout;
    MemoryPointSource::Columns columns;
    std::vector<std::int64_t> x, y; // in hundredths
};

std::map<Cell, double> cellsOf(const RasterGrid& grid, std::span<const double> values)
{
    std::map<Cell, double> cells;
    for (std::size_t row = 0; row < grid.rows; ++row)
        for (std::size_t column = 0; column < grid.columns; ++column)
            cells[{grid.west + static_cast<std::int64_t>(column),
                   grid.north - static_cast<std::int64_t>(row)}] = values[row * grid.columns + column];
    return cells;
}

vx::RasterOptions optionsOf(double resolution, const Strings& layers, const vx::Box& box = {})
{
    vx::RasterOptions options = {.resolution = resolution, .box = box};
    for (const std::string& layer : layers)
        options.layers.push_back(vx::RasterLayer::parse(layer));
    return options;
}

TEST(Raster, HasTheStatisticsOfThePointsInEachCell)
{
    const Survey survey(5000);
    const auto& columns = survey.columns;
    const auto all = [](std::size_t) { return true; };
    const auto isFirst = [&](std::size_t i) { return columns[5][i] == 1; };
    const auto isGround = [&](std::size_t i) { return columns[4][i] == 2 && columns[5][i] >= columns[6][i]; };
    const auto isVegetation = [&](std::size_t i) {
        return isFirst(i) && columns[4][i] >= 3 && columns[4][i] <= 5;
    };
    const auto count = [](const Numbers& values) { return static_cast<double>(values.size()); };
    const auto min = [](const Numbers& values) { return *std::min_element(values.begin(), values.end()); };
    const auto max = [](const Numbers& values) { return *std::max_element(values.begin(), values.end()); };
    const auto mean = [](const Numbers& values) {
        long double sum = 0; // exact for these
        for (const double value : values)
            sum += static_cast<long double>(value);
        return static_cast<double>(sum) / static_cast<double>(values.size());
    };
    struct Case
    {
        std::string layer;
        std::size_t channelIndex;
        std::function<bool(std::size_t)> keeps;
        std::function<double(const Numbers&)> statistic;
    };
    const std::vector<Case> cases = {{"count", 2, all, count},
                                     {"min", 2, all, min},
                                     {"max:intensity", 3, all, max},
                                     {"mean", 2, all, mean},
                                     {"count@first", 2, isFirst, count},
                                     {"ground", 2, isGround, mean},
                                     {"min:Z@last@class=2", 2, isGround, min},
                                     {"mean:Intensity@class=3,4,5@first", 3, isVegetation, mean}};
    Strings layers;
    for (const Case& each : cases)
        layers.push_back(each.layer);
    for (const int size : {10, 25, 100, 7}) {
        const vx::Raster raster = vx::rasterize(survey.cloud(), optionsOf(size * 0.01, layers));
        ASSERT_EQ(raster.bands.size(), cases.size());
        for (std::size_t i = 0; i < cases.size(); ++i) {
            auto expected = survey.cells(size, cases[i].channelIndex, cases[i].keeps);
            std::size_t numFound = 0;
            for (const auto& [cell, value] : cellsOf(raster.grid, raster.bands[i].cells)) {
                const auto found = expected.find(cell);
                numFound += found != expected.end();
                if (found != expected.end())
                    ASSERT_DOUBLE_EQ(value, cases[i].statistic(found->second))
                        << cases[i].layer << ' ' << size;
                else
                    ASSERT_TRUE(cases[i].channelIndex == 2 && value == 0 ? cases[i].layer.starts_with("count")
                                                                         : std::isnan(value));
            }
            EXPECT_EQ(numFound, expected.size()) << "every point is in a cell of the raster";
            EXPECT_EQ(raster.bands[i].name, cases[i].layer);
        }
    }
}

// Parts of a raster, from boxes that share their edges or from little memory, in any format and with any
// threads.
TEST(Raster, HasNoSeams)
{
    const TemporaryDirectory directory;
    const Survey survey(20000, 30000, 3000);
    vx::write(directory / "a.vxl", survey.cloud());
    vx::write(directory / "a.laz", survey.cloud(), {.scale = {{0.01, 0.01, 0.01}}});
    const Strings layers = {"count", "min", "max", "mean", "mean:Intensity"};
    const vx::Raster whole = vx::rasterize(survey.cloud(), optionsOf(0.3, layers));
    const auto sumOf = [](std::span<const double> values) {
        return std::accumulate(values.begin(), values.end(), 0.0);
    };
    EXPECT_EQ(sumOf(whole.bands[0].cells), 20000);
    const auto expectSame = [&](const RasterGrid& grid, std::size_t band, std::span<const double> values) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            const std::size_t column =
                i % grid.columns + static_cast<std::size_t>(grid.west - whole.grid.west);
            const std::size_t row =
                i / grid.columns + static_cast<std::size_t>(whole.grid.north - grid.north);
            const bool isInside = column < whole.grid.columns && row < whole.grid.rows; // no index is below 0
            const double same = isInside ? whole.bands[band].at(row, column) : band == 0 ? 0 : nan;
            ASSERT_TRUE(values[i] == same || (std::isnan(values[i]) && std::isnan(same)))
                << band << ": " << values[i] << ' ' << same << " in " << column << ' ' << row;
        }
    };
    for (const vx::Cloud& cloud :
         {survey.cloud(), vx::open(directory / "a.vxl"), vx::open(directory / "a.laz")}) {
        double numPoints = 0;
        constexpr double edges[] = {-300.6, -99.9, 0, 99.9, 200.1, 300.6}; // multiples of 0.3, in decimals
        for (std::size_t i = 1; i < std::size(edges); ++i)
            for (const auto& [south, north] : {std::pair(-30.3, 0.3), std::pair(0.3, 30.3)}) {
                const vx::Box box = {edges[i - 1], edges[i], south, north};
                const vx::Raster part = vx::rasterize(cloud, optionsOf(0.3, layers, box));
                for (std::size_t band = 0; band < layers.size(); ++band)
                    expectSame(part.grid, band, part.bands[band].cells);
                numPoints += sumOf(part.bands[0].cells);
            }
        EXPECT_EQ(numPoints, 20000) << "each point is in one of the parts";

        for (const unsigned threads : {1, 3}) {
            vx::RasterOptions options = optionsOf(0.3, layers);
            options.threads = threads;
            options.maxBytes = 512 * 512 * 130; // a block
            Numbers progress;
            options.progress = [&](double fraction) {
                progress.push_back(fraction);
                return true;
            };
            std::size_t numParts = 0, numCells = 0;
            const RasterGrid grid = vx::rasterize(cloud, options, [&](const vx::RasterPart& part) {
                ++numParts;
                numCells += part.grid.numCells();
                EXPECT_EQ(part.grid,
                          whole.grid.part(part.column, part.row, part.grid.columns, part.grid.rows));
                for (std::size_t band = 0; band < layers.size(); ++band)
                    expectSame(part.grid, band, part.bands[band]);
            });
            EXPECT_EQ(grid, whole.grid);
            EXPECT_EQ(numCells, grid.numCells());
            EXPECT_EQ(numParts, 4u);
            EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()) && progress.back() == 1);
        }
    }
}

TEST(Raster, AccumulatorsAreIndependentOfTheOrderOfPoints)
{
    const Survey survey(3000, 20, 20);
    std::vector<vx::RasterLayer> layers;
    for (const char* text : {"count", "min", "max:Intensity", "mean", "mean:Intensity@last"})
        layers.push_back(vx::RasterLayer::parse(text));
    const PointInfo layout = RasterAccumulator::chooseChannels(layers, survey.layout);
    const RasterGrid grid = RasterGrid::make(Bounds::Huge(), {{-0.2, 0.2}, {-0.2, 0.2}, {0, 0}}, 0.1);
    const auto finish = [&](const RasterAccumulator& cells) {
        Numbers values(layers.size() * grid.numCells());
        for (std::size_t i = 0; i < layers.size(); ++i)
            cells.finish(i, std::span(values).subspan(i * grid.numCells(), grid.numCells()));
        EXPECT_FALSE(std::isnan(values.back()));
        return values;
    };
    const auto addTo = [&](RasterAccumulator& cells, const MemoryPointSource::Columns& columns,
                           std::size_t size) {
        const auto source = MemoryPointSource::make(survey.layout, columns);
        const Scoped<PointIterator> points(source->createIterator(Bounds::Huge(), 1, layout, nullptr));
        PointData block;
        block.init(layout, size);
        while (const std::size_t count = points->getNextPoints(block))
            EXPECT_EQ(cells.add(block, count), count);
    };
    RasterAccumulator forward(grid, layers, layout), backward(grid, layers, layout),
        other(grid, layers, layout);
    addTo(forward, survey.columns, 3000);
    MemoryPointSource::Columns head = survey.columns, tail = survey.columns;
    for (std::size_t c = 0; c < head.size(); ++c) {
        head[c].resize(1234);
        tail[c].erase(tail[c].begin(), tail[c].begin() + 1234);
        std::reverse(head[c].begin(), head[c].end());
    }
    addTo(backward, tail, 7);
    addTo(other, head, 100);
    backward.merge(other);
    EXPECT_EQ(finish(backward), finish(forward));

    // What is no number is in no cell, and no value of one.
    RasterAccumulator odd(grid, layers, layout);
    const auto source = MemoryPointSource::make(survey.layout, {{0, nan, 1e300, 0},
                                                                {0, 0, -infinity, 0},
                                                                {nan, 1, 1, 5},
                                                                {1, 1, 1, 1},
                                                                {1, 1, 1, 1},
                                                                {1, 1, 1, 1},
                                                                {1, 1, 1, 1}});
    PointData block;
    block.init(layout, 4);
    EXPECT_EQ(Scoped<PointIterator>(source->createIterator(Bounds::Huge(), 1, layout, nullptr))
                  ->getNextPoints(block),
              4u);
    EXPECT_EQ(odd.add(block, 4), 2u);
    Numbers values(grid.numCells());
    odd.finish(3, values);
    EXPECT_EQ(std::count(values.begin(), values.end(), 5.0), 1);
}

TEST(Raster, IsWrittenAsCloudOptimizedGeoTIFF)
{
    const TemporaryDirectory directory;
    const Survey survey(20000, 30000, 30000);
    const std::string path = directory / "survey.tif";
    vx::RasterOptions options = optionsOf(1, {"count", "max:Z"}, {.xMin = -300.5, .yMax = 300.5});
    vx::writeRaster(directory / "whole.tif", survey.cloud(), options);
    options.maxBytes = 512 * 512 * 32; // parts
    Strings warnings;
    options.warning = [&](const std::string& text) { warnings.push_back(text); };
    const RasterGrid grid = vx::writeRaster(path, survey.cloud(), options);
    EXPECT_EQ(warnings,
              Strings{"the raster is made in 4 parts, and the points are read about 4 times, since they "
                      "have no spatial index; 0.0 GB of memory would hold it as a whole"});
    EXPECT_TRUE(readFile(path) == readFile(directory / "whole.tif"));
    const vx::Raster expected = vx::rasterize(survey.cloud(), optionsOf(1, {"count", "max"}, options.box));
    GDALAllRegister();
    {
        const std::unique_ptr<GDALDataset> file(GDALDataset::Open(path.c_str()));
        ASSERT_TRUE(file);
        EXPECT_STREQ(file->GetMetadataItem("LAYOUT", "IMAGE_STRUCTURE"), "COG");
        EXPECT_STREQ(file->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE"), "DEFLATE");
        double transform[6];
        file->GetGeoTransform(transform);
        EXPECT_EQ(Numbers(transform, transform + 6), (Numbers{-301, 1, 0, 301, 0, -1}));
        EXPECT_EQ(file->GetSpatialRef()->GetUTMZone(), 32);
        ASSERT_EQ(file->GetRasterCount(), 2);
        for (int i = 0; i < 2; ++i) {
            GDALRasterBand& band = *file->GetRasterBand(i + 1);
            EXPECT_STREQ(band.GetDescription(), i == 0 ? "count" : "max:Z");
            EXPECT_EQ(band.GetRasterDataType(), GDT_Float32);
            EXPECT_GE(band.GetOverviewCount(), 1);
            int hasNoData = 0;
            EXPECT_TRUE(std::isnan(band.GetNoDataValue(&hasNoData)) && hasNoData);
            std::vector<float> cells(grid.numCells());
            const auto width = static_cast<int>(grid.columns), height = static_cast<int>(grid.rows);
            ASSERT_EQ(
                band.RasterIO(GF_Read, 0, 0, width, height, cells.data(), width, height, GDT_Float32, 0, 0),
                CE_None);
            std::vector<float> wanted;
            for (const double value : expected.bands[static_cast<std::size_t>(i)].cells)
                wanted.push_back(static_cast<float>(value));
            EXPECT_TRUE(std::equal(cells.begin(), cells.end(), wanted.begin(), [](float a, float b) {
                return a == b || (std::isnan(a) && std::isnan(b));
            }));
        }
    }

    // The same from parts that were made before, in any order.
    vx::RasterFileOptions parts = {.bands = {"count", "max:Z"}, .coordinateSystem = transverseMercator(9)};
    vx::RasterWriter writer(directory / "parts.tif", grid, parts);
    for (const auto& [left, right, bottom, top] :
         {std::array{17, 302, -301, 301}, std::array{-301, 17, -100, 301},
          std::array{-301, 17, -301, -100}}) {
        const vx::Box box = {1.0 * left, std::min(1.0 * right, grid.xMax()),
                             std::max(1.0 * bottom, grid.yMin()), 1.0 * top};
        const vx::Raster made = vx::rasterize(survey.cloud(), optionsOf(1, {"count", "max:Z"}, box));
        writer.write({0, 0, made.grid, {made.bands[0].cells, made.bands[1].cells}});
    }
    const Numbers cell(1);
    for (const RasterGrid& outside :
         {RasterGrid{1, grid.west - 1, 0, 1, 1}, RasterGrid{1, 0, grid.north + 1, 1, 1},
          RasterGrid{1, grid.west + 700, 0, 1, 1}, RasterGrid{2, 0, 0, 1, 1}})
        EXPECT_EQ(failureOf([&] {
                      writer.write({0, 0, outside, {cell, cell}});
                  }),
                  "40007 a part of 1 x 1 cells is not inside of the raster");
    EXPECT_EQ(failureOf([&] {
                  writer.write({0, 0, RasterGrid{1, 0, 0, 1, 1}, {cell}});
              }),
              "40007 a part has other bands than the raster");
    writer.commit();
    EXPECT_EQ(failureOf([&] { writer.commit(); }), "40007 the raster is complete");
    EXPECT_TRUE(readFile(directory / "parts.tif") == readFile(path));
    vx::RasterWriter(directory / "parts.tif", grid, parts)
        .write({0, 0, RasterGrid{1, 0, 0, 1, 1}, {cell, cell}});
    EXPECT_TRUE(readFile(directory / "parts.tif") == readFile(path)) << "it was not completed";
    parts.progress = [](double) -> bool { throw 7; };
    EXPECT_THROW(vx::RasterWriter(directory / "parts.tif", grid, parts).commit(), int);
    std::filesystem::remove(directory / "parts.tif");

    // The samples are as wide as the layers need. A failed run leaves what was there, and nothing else.
    const std::pair<std::string, GDALDataType> types[] = {
        {"count@first", GDT_UInt32}, {"min:Intensity", GDT_Float32}, {"mean:X", GDT_Float64}};
    for (const auto& [layer, type] : types) {
        vx::writeRaster(path, survey.cloud(), optionsOf(10, {layer}));
        const std::unique_ptr<GDALDataset> file(GDALDataset::Open(path.c_str()));
        EXPECT_EQ(file->GetRasterBand(1)->GetRasterDataType(), type) << layer;
    }
    std::filesystem::remove(directory / "whole.tif");
    const std::string before = readFile(path);
    const auto failing = survey.source();
    failing->failAt(12345);
    const vx::Cloud broken{Scoped<PointSource>::retained(failing.get())};
    EXPECT_EQ(failureOf([&] { vx::writeRaster(path, broken, optionsOf(1, {"min"})); }), "40000 test");
    vx::RasterOptions cancelled = optionsOf(1, {"min"});
    cancelled.progress = [](double fraction) { return fraction < 1; };
    EXPECT_EQ(failureOf([&] { vx::writeRaster(path, survey.cloud(), cancelled); }).substr(0, 6), "40006 ");
    EXPECT_TRUE(readFile(path) == before);
    const auto odd = survey.source();
    odd->setWKT("nowhere");
    vx::writeRaster(path, vx::Cloud(Scoped<PointSource>::retained(odd.get())), options);
    EXPECT_EQ(warnings[1], '\'' + path + "' has no coordinate system: that of the points is not understood");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
}

TEST(Raster, RefusesMistakes)
{
    const TemporaryDirectory directory;
    const Survey survey(100);
    const auto making = [&](const vx::RasterOptions& options) {
        return [&survey, options] { vx::rasterize(survey.cloud(), options); };
    };
    const auto parsing = [](const char* text) { return [text] { vx::RasterLayer::parse(text); }; };
    vx::RasterOptions small = optionsOf(0.001, {"min"}), badClass = optionsOf(1, {"min"});
    small.maxBytes = 1000000;
    badClass.layers[0].classes = {256};
    const Numbers none;
    const vx::Cloud empty = vx::Cloud::fromColumns({{"X", none}, {"Y", none}, {"Z", none}});
    const std::string notLayer = "' is not a layer of a raster: count, min, max, mean or ground, then ";
    const std::pair<std::function<void()>, std::string> cases[] = {
        {parsing(""), "40007 '" + notLayer},
        {parsing("median"), "40007 'median" + notLayer},
        {parsing("min:"), "40007 'min:" + notLayer},
        {parsing("count:Z"), "40007 'count:Z" + notLayer},
        {parsing("min@"), "40007 'min@" + notLayer},
        {parsing("min@only"), "40007 'min@only" + notLayer},
        {parsing("min@class="), "40007 'min@class=" + notLayer},
        {parsing("min@class=2,"), "40007 'min@class=2," + notLayer},
        {parsing("min@class=256"), "40007 'min@class=256" + notLayer},
        {making(optionsOf(0, {"min"})), "40007 the resolution is 0, it must be above 0"},
        {making(optionsOf(nan, {"min"})), "40007 the resolution is nan, it must be above 0"},
        {making(optionsOf(1e-13, {"min"})), "40007 the resolution 1e-13 is too fine for coordinates of "},
        {making(optionsOf(1e-9, {"min"})), "40007 the resolution 1e-09 is too fine: a row or column "},
        {making(optionsOf(1, {"min"}, {.xMin = 10})), "40007 the raster has no extent: 10 to 3"},
        {making(optionsOf(1, {"min:Colour"})), "40007 the point source does not have channel: 'Colour'"},
        {making(optionsOf(1, {"min", "max", "min"})), "40007 there are two layers 'min'"},
        {making(badClass), "40007 there is no class 256, it must be 0 to 255"},
        {making(small), "40007 a raster of 5981 x 5931 cells needs more memory than half of "},
        {[&] { vx::rasterize(empty, optionsOf(1, {"min"})); }, "40007 the raster has no extent: inf to -inf"},
        {[&] {
             vx::rasterize(empty, optionsOf(1, {"min@class=2"}, {0, 1, 0, 1}));
         },
         "40007 the point source does not have channel: 'ClassId'"},
        {[&] { vx::writeRaster(directory / "absent/a.tif", survey.cloud(), optionsOf(1, {"min"})); }, "2 "},
    };
    for (const auto& [call, error] : cases)
        EXPECT_EQ(failureOf(call).substr(0, error.size()), error);
    for (const char* text : {"count", "min:Z@first", "mean:Intensity@last@class=2,9"})
        EXPECT_EQ(vx::RasterLayer::parse(text).toString(), text);

    // A cloud without return numbers has single returns; bounds that are too small are reported.
    const Numbers x = {0.5, 1.5, 7}, y = {1, 1, 1}, z = {3, 4, 5};
    EXPECT_EQ(
        vx::rasterize(vx::Cloud::fromColumns({{"X", x}, {"Y", y}, {"Z", z}}), optionsOf(2, {"max@last"}))
            .bands[0]
            .at(0, 0),
        4);
    EXPECT_EQ(vx::rasterize(empty, optionsOf(1, {"count"}, {0, 3, 0, 2})).bands[0].cells, Numbers(6));
    const auto source = MemoryPointSource::make(layoutXYZ(), {x, y, z});
    source->setBounds({{0, 2}, {0, 1}, {0, 9}});
    vx::RasterOptions options = optionsOf(1, {"count"});
    Strings warnings;
    options.warning = [&](const std::string& text) { warnings.push_back(text); };
    vx::rasterize(vx::Cloud(Scoped<PointSource>::retained(source.get())), options);
    EXPECT_EQ(warnings,
              Strings{"1 points are not in the raster: their coordinates are outside of the bounds of the "
                      "source, or not numbers"});
}

}} // namespace Quillmoran::Testing
