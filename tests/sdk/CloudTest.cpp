// The public interface: opening, reading and writing clouds by name.
#include "support/LASFile.h"
#include "support/Test.h"
#include <vxunpack/vxunpack.h>

#include <tbb/global_control.h>

namespace Quillmoran::Testing { namespace {

constexpr std::size_t numPoints = 100000; // more than one block

// A row of points along X with a column of every sample type.
struct Row
{
    template <class T>
    static std::vector<T> samples(T factor)
    {
        std::vector<T> values(numPoints);
        for (std::size_t i = 0; i < numPoints; ++i)
            values[i] = static_cast<T>(static_cast<T>(i) * factor);
        return values;
    }

    Numbers x = samples(0.5), y = samples(0.0), z = samples(-0.25);
    std::vector<std::uint8_t> classId = samples<std::uint8_t>(1);
    std::vector<std::int16_t> scanAngle = samples<std::int16_t>(3);
    std::vector<std::uint64_t> id = samples<std::uint64_t>(1ull << 40);
    std::vector<float> amplitude = samples(0.1f);

    vx::Cloud cloud() const
    {
        return vx::Cloud::fromColumns({{"X", x, 0.5},
                                       {"Y", y, 0.5},
                                       {"Z", z, 0.25},
                                       {"ClassId", classId},
                                       {"ScanAngle", scanAngle},
                                       {"Id", id},
                                       {"Amplitude", amplitude}});
    }
};

template <class T>
void expectColumn(const vx::Cloud& cloud, const char* name, const std::vector<T>& expected)
{
    std::vector<T> read;
    for (const vx::Block& block : cloud.read({.channels = {name}})) {
        const auto column = block.column<T>(name);
        read.insert(read.end(), column.begin(), column.end());
    }
    EXPECT_EQ(read, expected) << name;
}

std::size_t countPoints(vx::Reader reader)
{
    std::size_t count = 0;
    for (const vx::Block& block : reader)
        count += block.size();
    return count;
}

TEST(Cloud, ColumnsSurviveFilesOfEveryKind)
{
    const TemporaryDirectory directory;
    const Row row;
    const std::string packed = directory / "row.vxl";
    const auto limit = tbb::global_control::max_allowed_parallelism;
    std::map<std::string, int> files; // by their bytes
    for (const unsigned threads : {1, 2, 5}) {
        const auto hasLimit = [&](double) { return tbb::global_control::active_value(limit) == threads; };
        ASSERT_EQ(vx::write(packed, row.cloud(), {.threads = threads, .progress = hasLimit}), numPoints);
        ++files[readFile(packed)];
    }
    EXPECT_EQ(files.size(), 1u);
    const vx::ThreadLimit three(3);
    EXPECT_EQ(tbb::global_control::active_value(limit), 3u);
    const vx::Cloud cloud = vx::open(packed);
    EXPECT_EQ(cloud.numPoints(), numPoints);
    EXPECT_EQ(cloud.channels().size(), 7u);
    EXPECT_EQ(cloud.bounds().xMax, 0.5 * (numPoints - 1));
    expectColumn(cloud, "X", row.x);
    expectColumn(cloud, "Z", row.z);
    expectColumn(cloud, "Classification", row.classId); // the name in LAS
    expectColumn(cloud, "ScanAngle", row.scanAngle);
    expectColumn(cloud, "Id", row.id);
    expectColumn(cloud, "Amplitude", row.amplitude);

    // The format follows from the ending, or from the options; LAS drops channels and says so.
    Strings warnings;
    const auto warning = [&](const std::string& text) { warnings.push_back(text); };
    vx::write(directory / "row.las", cloud, {.warning = warning});
    EXPECT_EQ(warnings.size(), 3u); // a -0 in Z has no multiple of a scale; Id and Amplitude
    EXPECT_EQ(warnings.back(), "the output format does not support channel 'Amplitude'");
    expectColumn(vx::open(directory / "row.las"), "X", row.x);
    vx::write(directory / "whole.las", cloud, {.restores = true});
    expectColumn(vx::open(directory / "whole.las"), "Id", row.id);
    vx::write(directory / "row.dat", cloud, {.query = {.channels = {"ClassId"}}, .format = "laz"});
    std::filesystem::rename(directory / "row.dat", directory / "row.laz");
    expectColumn(vx::open(directory / "row.laz"), "ClassId", row.classId);
    // Angles in degrees and up to 7 returns need no newer point format, in which angles have another unit.
    const Numbers two(2);
    for (const std::uint8_t last : std::vector<std::uint8_t>{7, 8}) {
        const std::vector<std::uint8_t> returns = {1, last};
        const std::vector<std::int8_t> angles(2);
        const vx::Cloud flight = vx::Cloud::fromColumns(
            {{"X", two}, {"Y", two}, {"Z", two}, {"ReturnNum", returns}, {"ScanAngle", angles}});
        vx::write(directory / "flight.las", flight);
        const vx::Channel angle =
            *vx::findChannel(vx::open(directory / "flight.las").channels(), "ScanAngle");
        EXPECT_EQ(angle.type, last == 7 ? SINT8 : SINT16);
    }
    vx::write(directory / "row.txt", cloud, {.query = {.channels = {"Amplitude"}}});
    EXPECT_EQ(vx::write("null", vx::open(directory / "row.txt",
                                         {.textFormat = "X,Y,Z,Amplitude:FLOAT32", .skipLines = 1})),
              numPoints);
}

TEST(Cloud, QueriesChooseBoxFractionAndChannels)
{
    const TemporaryDirectory directory;
    const Row row;
    vx::write(directory / "a.vxl", row.cloud());
    EXPECT_EQ(vx::write(directory / "b.vxl", row.cloud(), {.query = {.box = {.xMax = 4.5}, .fraction = 0.5}}),
              5u);
    for (const vx::Cloud& cloud : {row.cloud(), vx::open(directory / "a.vxl")}) {
        EXPECT_EQ(countPoints(cloud.read({.box = {10, 19.5}})), 20u);
        EXPECT_EQ(countPoints(cloud.read({.box = {.xMin = 3, .xMax = 3}})), 1u);
        EXPECT_EQ(countPoints(cloud.read({.box = {.zMin = -2, .zMax = -0.5}})), 7u);
        EXPECT_EQ(countPoints(cloud.read({.box = {.yMin = 1}})), 0u);
        EXPECT_EQ(countPoints(cloud.read({.box = {.yMin = -1, .yMax = 0}, .fraction = 0.25})), numPoints / 4);
        for (const vx::Block& block : cloud.read({.channels = {"ClassId", "X", "Classification"}}))
            EXPECT_EQ(block.data().getNumChannels(), 4u); // with X, Y and Z
    }
    EXPECT_EQ(vx::open({directory / "a.vxl", directory / "b.vxl"}).numPoints(), numPoints + 5);
    EXPECT_EQ(vx::open(directory.path()).numPoints(), numPoints + 5);
}

TEST(Cloud, FillsArraysAndReportsProgress)
{
    const TemporaryDirectory directory;
    const Row row;
    vx::write(directory / "a.vxl", row.cloud());
    Numbers x(numPoints), y(numPoints), z(numPoints), progress;
    std::vector<std::uint8_t> classes(numPoints);
    const auto report = [&](double fraction) {
        progress.push_back(fraction);
        return progress.size() < 3;
    };
    for (const vx::Cloud& cloud : {row.cloud(), vx::open(directory / "a.vxl")}) {
        vx::Reader reader = cloud.read({.channels = {"Class"}});
        EXPECT_EQ(vx::findChannel(reader.channels(), "classification")->type, UINT8);
        EXPECT_EQ(vx::findChannel(reader.channels(), "colour"), nullptr);
        std::size_t count = 0;
        const auto fill = [&](std::size_t max) {
            return reader.fill(std::vector<void*>{&x[count], &y[count], &z[count], &classes[count]}, max);
        };
        while (const std::size_t added = count < numPoints ? fill(std::min(numPoints - count, 30001ul)) : 0)
            count += added;
        EXPECT_EQ(count, numPoints);
        EXPECT_EQ(x, row.x);
        EXPECT_EQ(classes, row.classId);
        EXPECT_EQ(failureOf([&] { reader.fill({}, 1); }), "40007 0 arrays for 4 channels");

        progress.clear();
        EXPECT_EQ(failureOf([&] { countPoints(cloud.read({}, report)); }), "40006 operation cancelled.");
        EXPECT_EQ(progress.size(), 3u);
        EXPECT_GT(progress.back(), progress.front());
        EXPECT_LT(progress.back(), 0.9);
    }
}

TEST(Cloud, DescribesItself)
{
    const Numbers x = {1, 2}, y = {-3, 4}, z = {7, 5};
    const vx::Cloud cloud = vx::Cloud::fromColumns({{"X", x, 0.5}, {"Y", y, 0.25}, {"Z", z}});
    const vx::Box box = cloud.bounds();
    EXPECT_EQ((std::vector{box.xMin, box.xMax, box.yMin, box.yMax, box.zMin, box.zMax}),
              (Numbers{1, 2, -3, 4, 5, 7}));
    EXPECT_EQ(cloud.channels()[1].name + std::to_string(cloud.channels()[1].scale), "Y0.250000");
    EXPECT_EQ(cloud.source().getTotalWork(Bounds::Huge(), 0.5), 2);
    const vx::Cloud scaled = vx::Cloud::fromColumns({{"X", x, 0.5}, {"Y", y, 0.25}, {"Z", z, 2}});
    EXPECT_EQ((Numbers(scaled.source().getScale(), scaled.source().getScale() + 3)),
              (std::vector{0.5, 0.25, 2.0}));

    const auto source = MemoryPointSource::make(layoutXYZ(), {x, y, z});
    source->setWKT("here");
    source->metadata().add("key", nullptr, METADATA_STRING, "value", 0);
    const vx::Cloud own{Scoped<PointSource>::retained(source.get())};
    EXPECT_EQ(own.numPoints(), 2u);
    EXPECT_EQ(own.coordinateSystem() + own.metadata().getKey(0), "herekey");
    Strings warnings;
    const auto warning = [&](const std::string& text) { warnings.push_back(text); };
    vx::write(TemporaryDirectory() / "a.las", own, {.scale = {{1, 1, 1}}, .warning = warning});
    EXPECT_EQ(warnings.size(), 1u) << "the format cannot hold the system 'here'";
    const vx::Cloud utm = own.withCoordinateSystem("EPSG:25832");
    EXPECT_NE(utm.coordinateSystem().find("25832"), std::string::npos);
    EXPECT_EQ(utm.metadata().getKey(0), std::string("key"));
    EXPECT_EQ(failureOf([&] { own.withCoordinateSystem("?"); }),
              "40007 the coordinate system '?' is not understood");
    source->setNumPoints(PointSource::unknownNumPoints);
    source->setWKT(nullptr);
    EXPECT_FALSE(own.numPoints());
    EXPECT_EQ(own.coordinateSystem(), "");
}

TEST(Cloud, GeneratedPointsAreMadeWhenTheyAreRead)
{
    const TemporaryDirectory directory;
    const std::vector<vx::Channel> channels = {
        {"X"}, {"Y"}, {"Z"}, {"Intensity", UINT16}, {"Unfilled", SINT64}};
    std::uint64_t last = numPoints;
    const auto fill = [&last](std::uint64_t first, const vx::MutableBlock& block) {
        if (first > last)
            throw first;
        EXPECT_GT(block.size(), 0u);
        EXPECT_EQ(block.samples("intensity"), block.column<std::uint16_t>("Intensity").data());
        for (std::size_t i = 0; i < block.size(); ++i) {
            block.x()[i] = static_cast<double>(first + i);
            block.y()[i] = block.z()[i] = 0;
            block.column<std::uint16_t>("Intensity")[i] = static_cast<std::uint16_t>(first + i);
        }
    };
    const vx::Cloud cloud = vx::Cloud::generate(numPoints, channels, fill, {.yMin = -1, .yMax = 1});
    EXPECT_EQ(std::pair(cloud.bounds().yMin, cloud.bounds().yMax), std::pair(-1.0, 1.0));
    Numbers progress;
    const auto report = [&](double fraction) {
        progress.push_back(fraction);
        return true;
    };
    EXPECT_EQ(vx::write(directory / "made.vxl", cloud, {.progress = report}), numPoints);
    EXPECT_NEAR(progress.back(), 1, 0.01);
    EXPECT_GT(progress.size(), 10u);
    double sum = 0;
    for (const vx::Block& block : vx::open(directory / "made.vxl").read())
        for (std::size_t i = 0; i < block.size(); ++i)
            sum += block.x()[i] - block.column<std::uint16_t>("Intensity")[i] +
                   1e9 * static_cast<double>(block.column<std::int64_t>("Unfilled")[i]);
    EXPECT_EQ(sum, 65536.0 * (numPoints - 65536)); // what 16 bits cannot hold

    last = numPoints / 4;
    vx::Reader reader = cloud.read();
    vx::Reader::iterator block = reader.begin();
    EXPECT_THROW(++block, std::uint64_t);
    EXPECT_TRUE(block == reader.end());
}

TEST(Cloud, WritesFormatsByEndingAndOptions)
{
    const TemporaryDirectory directory;
    const Numbers x = {0.00001, 0.123456}, y = {3, 4}, z = {5, 6};
    const vx::Cloud cloud = vx::Cloud::fromColumns({{"X", x}, {"Y", y}, {"Z", z}});
    Strings warnings;
    const auto warning = [&](const std::string& text) { warnings.push_back(text); };
    for (const std::string& path : {directory / "a.CSV", directory / "a.xyz"}) {
        vx::write(path, cloud, {.warning = warning});
        EXPECT_EQ(readFile(path).substr(0, 8), "# X Y Z\n");
    }
    const std::string las = directory / "a.las";
    EXPECT_EQ(vx::write(las, cloud, {.format = "null", .warning = warning}), 2u);
    vx::write(las, cloud, {.scale = {{0.5, 0.5, 0.125}}, .offset = {{10, 20, 30}}, .warning = warning});
    EXPECT_EQ(warnings.size(), 0u) << "rounding was asked for";
    const vx::Cloud written = vx::open(las);
    EXPECT_EQ(written.source().getScale()[2], 0.125);
    EXPECT_EQ(written.source().getOffset()[1], 20);
    vx::write(las, cloud, {.offset = {{10, 20, 30}}, .warning = warning});
    EXPECT_EQ(warnings.size(), 1u) << "of rounding";
    EXPECT_EQ(vx::open(las).source().getOffset()[2], 30);
}

TEST(Cloud, OpensFilesWithOptions)
{
    const TemporaryDirectory directory;
    const std::string text = directory.file("t.txt", "title\n1 2 3\n");
    EXPECT_EQ(countPoints(vx::open(text, {.textFormat = "x,Y,z", .skipLines = 1}).read()), 1u);

    LASFile las;
    las.versionMinor = 3;
    las.format = 4;
    las.points.resize(1);
    las.describePoints();
    const std::string waves = directory / "waves.las";
    writeFile(waves, las.build());
    EXPECT_EQ(failureOf([&] { vx::open(waves).read(); }).substr(0, 6), "40608 ");
    Strings warnings;
    const auto warning = [&](const std::string& message) { warnings.push_back(message); };
    EXPECT_EQ(countPoints(vx::open(waves, {.dropWaveforms = true, .warning = warning}).read()), 1u);
    EXPECT_EQ(warnings.size(), 1u);

    const Numbers one = {1}, two = {2};
    vx::write(directory / "a.vxl",
              vx::Cloud::fromColumns({{"X", one}, {"Y", one}, {"Z", one}, {"GPSTime", one}}));
    vx::write(directory / "b.vxl",
              vx::Cloud::fromColumns({{"X", two}, {"Y", two}, {"Z", two}, {"GPSTime_Adjusted", two}}));
    const std::vector<std::string> paths = {directory / "a.vxl", directory / "b.vxl"};
    EXPECT_EQ(failureOf([&] { vx::open(paths); }).substr(0, 6), "40007 ");
    expectColumn(vx::open(paths, {.gpsWeek = 2000}), "GPSTime_Adjusted",
                 std::vector{2000 * 604800.0 - 1e9 + 1, 2.0});
    const std::string sorted = directory / "sorted.laz";
    vx::write(sorted, vx::open(paths, {.gpsWeek = 2000}), {.order = vx::Order::Time});
    expectColumn(vx::open(sorted), "X", Numbers{2, 1});

    std::string damaged = readFile(paths[0]);
    damaged.back() ^= 1;
    writeFile(paths[0], damaged);
    EXPECT_EQ(failureOf([&] { vx::open(paths[0]).read(); }),
              "40231 the digests are damaged path = " + paths[0]);
    EXPECT_EQ(countPoints(vx::open(paths[0], {.verifiesDigests = false}).read()), 1u);
}

TEST(Cloud, MistakesAreErrors)
{
    const TemporaryDirectory directory, inputs;
    const Numbers three(3), four(4);
    const std::vector<std::uint8_t> classes(3);
    const vx::Cloud cloud =
        vx::Cloud::fromColumns({{"X", three}, {"Y", three}, {"Z", three}, {"ClassId", classes}});
    const std::string in = inputs / "in.vxl", out = directory / "out.vxl";
    vx::write(in, cloud);
    writeFile(inputs / "bad.txt", std::string("1 2 3x\n"));
    const auto withColumn = [&](const vx::Column& column) {
        return [&three, column] { vx::Cloud::fromColumns({{"X", three}, {"Y", three}, column}); };
    };
    const auto reading = [&](const vx::Query& query) { return [&cloud, query] { cloud.read(query); }; };
    const auto writing = [&](const std::string& path, const vx::WriteOptions& options = {}) {
        return [&cloud, path, options] { vx::write(path, cloud, options); };
    };
    const auto generating = [](std::uint64_t count, DataType type,
                               const std::function<void(std::uint64_t, const vx::MutableBlock&)>& fill) {
        return [=] { vx::Cloud::generate(count, {{"X"}, {"Y"}, {"Z"}, {"A", type}}, fill); };
    };
    const std::pair<std::function<void()>, std::string> cases[] = {
        {reading({.channels = {"Colour"}}), "40007 the point source does not have channel: 'Colour'"},
        {reading({.box = {1, 0}}), "40007 the box is empty on one axis: 1 to 0"},
        {reading({.box = {.yMax = nan}}), "40007 the box is empty on one axis: -inf to nan"},
        {reading({.box = {.zMin = 1, .zMax = -1}}), "40007 the box is empty on one axis: 1 to -1"},
        {reading({.fraction = 0}), "40007 the fraction is 0, it must be above 0 and at most 1"},
        {reading({.fraction = 1.001}), "40007 the fraction is 1.001"},
        {writing(out, {.query = {.fraction = nan}}), "40007 the fraction is nan"},
        {writing(out, {.order = vx::Order::Time}), "40012 sorting by time needs a channel GPSTime or "},
        {writing(out, {.restores = true}), "40007 only LAS and LAZ files can be restored"},
        {[&] {
             for (const vx::Block& block : cloud.read())
                 block.column<float>("ClassId");
         },
         "40010 the samples of channel 'ClassId' are UINT8, not FLOAT32"},
        {withColumn({"Z", four}), "40007 channel 'Z' has 4 samples and 'X' has 3"},
        {withColumn({"Z", classes}), "40007 must have x, y, and z channels"},
        {withColumn({"Y", three}), "40007 there are two channels 'Y'"},
        {withColumn({"Z", three, -1}), "40007 the scale of channel 'Z' is -1"},
        {withColumn({"Z", three, infinity}), "40007 the scale of channel 'Z' is inf"},
        {[] { vx::Cloud::generate(1, {{.name = "X", .bits = 65}}, [](auto, const auto&) {}); },
         "40007 channel 'X' has 65 bits"},
        {generating(1, INVALID, [](auto, const auto&) {}), "40007 channel 'A' has no valid type"},
        {generating(INT64_MAX, UINT8, [](auto, const auto&) {}), "40007 too many points"},
        {[&] {
             cloud.source().createIterator(Bounds::Huge(), 1, layoutXYZ({channel("ClassId", vx::UINT16)}),
                                           nullptr);
         },
         "40010 channel 'ClassId' has another type in the source"},
        {[&] {
             ProgressLog log(0);
             PointData block;
             block.init(layoutXYZ(), 1);
             cloud.source().read(Bounds::Huge(), block, &log);
         },
         "40006 operation cancelled."},
        {[] { vx::open(std::vector<std::string>()); }, "40007 there is no file to open"},
        {[&] { vx::open(directory.path()); }, "40007 there is no file to open in " + directory.path()},
        {[&] { vx::open(directory / "absent.vxl").read(); }, "2 "},
        {[&] { countPoints(vx::open(inputs / "bad.txt", {.textFormat = "xyz"}).read()); },
         "40005 " + inputs / "bad.txt:1:5: '3x' is not a number"},
        {writing(directory / "out.index"), "-1 "},
        {writing(directory / "out.vlx"), "40007 unsupported output format"},
        {writing(directory / "out", {.format = "lazz"}), "40007 unsupported output format 'x.lazz'"},
        {[&] { vx::write(in, vx::open(in)); }, "-1 "},
        // Cancelled at the first report; the output is absent.
        {writing(out, {.progress = [](double) { return false; }}), "40006 "},
    };
    for (const auto& [call, error] : cases)
        EXPECT_EQ(failureOf(call).substr(0, error.size()), error);
    EXPECT_TRUE(directory.isEmpty());
}

template <class... T, class Call>
void expectInvalid(const Call& call, int line = __builtin_LINE())
{
    const auto failure = [&](auto made) { return failureOf([&] { call(*made); }).substr(0, 6); };
    EXPECT_EQ((Strings{failure(Scoped<T>(T::create()))...}), Strings(sizeof...(T), "40007 ")) << line;
}

TEST(PublicClasses, RefuseCallsBeforeInitAndNull)
{
    const PointInfo xyz = layoutXYZ();
    const auto points = MemoryPointSource::make(xyz, {{1}, {2}, {3}});
    const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
    const char* const path = nullptr;
    IO* const io = nullptr;
    expectInvalid<LASPointReader, TXTPointReader, MosaicFilter, SimpleFilterFilter, HilbertOrder, TimeOrder>(
        [&](auto& source) { source.createIterator({}, 1, xyz, nullptr); });
    expectInvalid<LASPointReader, MosaicFilter, HilbertOrder>([](auto& it) { it.getTotalWork({}, 1); });
    expectInvalid<TXTPointReader, QuantizeFilter>([](auto& source) { source.getBounds(); });
    expectInvalid<LASPointWriter, VX7PointWriter>([&](auto& it) { it.write({}, 1, xyz, nullptr); });
    expectInvalid<HilbertOrder, TimeOrder, MosaicFilter, NULLPointWriter>([](auto& it) { it.init(nullptr); });
    expectInvalid<SimpleFilterFilter>([](auto& filter) { filter.init(nullptr, "X", true); });
    expectInvalid<QuantizeFilter>([&](auto& filter) { filter.init(points.get(), nullptr); });
    expectInvalid<VX7PointReader>([&](auto& reader) { reader.init(io); });
    expectInvalid<LASPointReader>([&](auto& reader) { reader.init(path, false); });
    expectInvalid<TXTPointReader>([&](auto& reader) { reader.init(io, xyz, 0, false); });
    expectInvalid<VX7PointWriter>([&](auto& writer) { writer.init(points.get(), io); });
    expectInvalid<VX7PointWriter>([&](auto& writer) { writer.init(points.get(), path); });
    expectInvalid<LASPointWriter>([&](auto& writer) { writer.init(points.get(), path, -1); });
    expectInvalid<TXTPointWriter>([&](auto& writer) { writer.init(points.get(), path, xyz); });
    expectInvalid<SimpleFileOpener>([](auto& it) { it.openPointSource(nullptr); });
    expectInvalid<PersistentPointSourceManager>([&](auto& it) { it.init(path, opener.get()); });
    expectInvalid<PersistentPointSourceManager>([](auto& it) { it.init("", nullptr); });
    expectInvalid<FileIO::Imp>([](auto& file) { file.adopt(-1, nullptr, file.SEQUENTIAL); });
    expectInvalid<PersistentPointSourceWriter>([](auto& it) { it.add(""); });
    expectInvalid<PersistentPointSourceWriter>([&](auto& it) { it.init(opener.get()), it.add(path); });
    expectInvalid<PersistentPointSourceWriter>(
        [&](auto& it) { it.init(opener.get()), it.setOverview(path, 1); });
}

}} // namespace Quillmoran::Testing
