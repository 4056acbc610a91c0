#include <vxunpack/VX7PointReader.h>

#include "decode/container/WaveletDecoderInfo.h"
#include "support/ForwardWavelet.h"
#include "support/ReadPoints.h"
#include "support/SampleCloud.h"
#include "support/Test.h"
#include "support/VX7Chunks.h"
#include <vxunpack/VX7PointWriter.h>

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran::Testing { namespace {

template <class T, class S>
bool holds(const Points& points, std::size_t channel, const std::vector<S>& values)
{
    const std::vector<T> expected(values.begin(), values.end());
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(expected.data());
    return points.channels[channel] == Bytes(bytes, bytes + expected.size() * sizeof(T));
}

void expectCloud(const Points& points, const SampleCloud& cloud, const std::string& label)
{
    for (std::size_t axis = 0; axis < 3; ++axis)
        ASSERT_TRUE(holds<double>(points, axis, cloud.coordinates[axis])) << label;
    ASSERT_TRUE(holds<std::uint16_t>(points, 3, cloud.intensity)) << label;
    ASSERT_TRUE(holds<std::uint8_t>(points, 4, cloud.classId)) << label;
    ASSERT_TRUE(holds<std::int8_t>(points, 5, cloud.scanAngle)) << label;
    ASSERT_TRUE(holds<double>(points, 6, cloud.gpsTime)) << label;
    ASSERT_TRUE(holds<float>(points, 7, cloud.temperature)) << label;
}

// What lifting leaves of floating-point numbers.
template <class T>
Numbers rounded(const Numbers& numbers, int transform, std::size_t levels)
{
    const Lifting lifting = Lifting::of(transform);
    const std::vector<T> samples(numbers.begin(), numbers.end());
    const auto restored = compose(decompose(samples, lifting, levels), lifting);
    return Numbers(restored.begin(), restored.end());
}

// Queries boxes with points on their faces.
void expectBoxes(const VX7PointReader& reader, const SampleCloud& cloud, const Points& whole, Random& random)
{
    const auto& [x, y, z] = cloud.steps;
    const std::uint64_t count = x.size();
    for (int query = 0; query < 5 && count != 0; ++query) {
        const std::size_t a = random.below(count), b = std::min(a + random.below(60), count - 1);
        Bounds box = Bounds::Huge();
        box.x = {SampleCloud::offsets[0] + SampleCloud::scale * static_cast<double>(std::min(x[a], x[b])),
                 SampleCloud::offsets[0] + SampleCloud::scale * static_cast<double>(std::max(x[a], x[b]))};
        Points expected;
        expected.channels.resize(whole.channels.size());
        for (std::size_t i = 0; i < count; ++i) {
            if (x[i] < std::min(x[a], x[b]) || x[i] > std::max(x[a], x[b]))
                continue;
            ++expected.count;
            for (std::size_t c = 0; c < whole.channels.size(); ++c) {
                const std::size_t size = whole.channels[c].size() / count;
                const std::uint8_t* const sample = whole.channels[c].data() + i * size;
                expected.channels[c].insert(expected.channels[c].end(), sample, sample + size);
            }
        }
        ASSERT_TRUE(readAll(reader, box) == expected) << query;
    }
}

// All features of the format, chosen at random.
TEST(VX7PointReader, RestoresAllPointsOfEveryKindOfFile)
{
    for (std::uint64_t seed = 0; seed < 110; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::size_t count = seed < 20 ? seed : random.below(seed % 30 == 0 ? 40000 : 3000);
        const SampleCloud cloud = SampleCloud::make(count, seed);
        FilePlan plan = cloud.toFile();
        for (ChannelPlan& part : splitChannel("Narrow", FLOAT32, cloud.temperature))
            plan.channels.push_back(std::move(part));
        std::vector<std::int64_t> wide;
        for (std::size_t i = 0; i < count; ++i)
            wide.push_back(i / 40 % 4 == 3 ? 0
                                           : static_cast<std::int64_t>(random.next() >> random.below(64)));
        plan.channels.push_back(integerChannel("Wide", SINT64, wide, 10));
        const TransformType lifted[] = {61, 63, 71, 73}, lossless[] = {1, 3, 10, 11, 13};
        const TransformType code = lifted[seed % 4];
        plan.channels.push_back(deflatedChannel("Single", FLOAT32, cloud.coordinates[0], code));
        plan.channels.push_back(deflatedChannel("Double", FLOAT64, cloud.coordinates[0], code));
        plan.version = static_cast<std::uint8_t>(random.between(1, 4));
        plan.headerVersion = static_cast<std::uint8_t>(random.between(1, 2));
        plan.bandVersion = static_cast<std::uint8_t>(random.between(1, 3));
        plan.swapRanges = random.chance(0.5);
        plan.numLevels = static_cast<std::uint32_t>(random.between(1, 14));
        plan.extendedHeader = random.chance(0.3);
        const std::pair<std::string, int> fields[] = {
            {"@d|", 52}, {"@f|", 23}, {"@e|GPSTime", 11}, {"@e|Narrow", 8}, {"@s|", 1}};
        for (ChannelPlan& channel : plan.channels) {
            channel.subblockSize = static_cast<std::uint32_t>(random.between(8, 700));
            channel.rawPlanes = static_cast<int>(random.below(4));
            // Lifted exponents have wider kernels.
            if (channel.transform == 1 || channel.transform == 10)
                channel.transform = lossless[random.below(5)];
            for (const auto& [prefix, width] : fields)
                if (seed % 5 == 0 && channel.name.starts_with(prefix))
                    for (std::int64_t& part : channel.integers)
                        part |= random.between(0, 7) << width; // bits without a meaning
        }
        cloud.addIndex(plan, static_cast<std::uint8_t>(random.between(1, 2)),
                       1 + static_cast<std::uint32_t>(random.below(300)));
        const auto reader = openFile(buildFile(plan));
        ASSERT_EQ(reader->getNumPoints(), static_cast<std::int64_t>(count));
        const Points points = readAll(*reader);
        expectCloud(points, cloud, "");
        ASSERT_EQ(points.channels[8], points.channels[7]); // the temperature again
        ASSERT_TRUE(holds<std::int64_t>(points, 9, wide));
        ASSERT_TRUE(holds<float>(points, 10, rounded<float>(cloud.coordinates[0], code, plan.numLevels)));
        ASSERT_TRUE(holds<double>(points, 11, rounded<double>(cloud.coordinates[0], code, plan.numLevels)));
        expectBoxes(*reader, cloud, points, random);
    }
}

// Only the subblock headers of such files show their layout.
TEST(VX7PointReader, DetectsTheBandLayoutsOfOldWriters)
{
    const SampleCloud cloud = SampleCloud::make(900, 3);
    // The first band with two ranges is the high band of 129 samples, which are 65 and exactly one subblock.
    SampleCloud gaps = SampleCloud::make(129, 3);
    for (std::size_t i = 0; i < 129; i += 2) {
        gaps.steps[0][i] = 0;
        gaps.coordinates[0][i] = SampleCloud::offsets[0];
    }
    for (const bool swapped : {false, true}) {
        for (const std::uint8_t version : std::initializer_list<std::uint8_t>{1, 3, 4}) {
            FilePlan plan = cloud.toFile();
            plan.version = version;
            plan.bandVersion = 2;
            plan.swapRanges = swapped;
            plan.planeLengthsWithoutLifting = true;
            if (swapped)
                plan.channels[0].transform = 10; // the first band with two ranges
            expectCloud(readAll(*openFile(buildFile(plan))), cloud, "version=" + std::to_string(version));

            FilePlan sparse = gaps.toFile();
            sparse.version = version;
            sparse.swapRanges = swapped;
            sparse.numLevels = 2;
            sparse.channels[0].transform = 10;
            expectCloud(readAll(*openFile(buildFile(sparse))), gaps, "gaps " + std::to_string(version));

            // No band has two ranges.
            sparse.channels.resize(3);
            for (ChannelPlan& channel : sparse.channels)
                channel.integers.assign(129, 0);
            const auto zeros = readAll(*openFile(buildFile(sparse)));
            EXPECT_TRUE(holds<double>(zeros, 1, std::vector<double>(129, SampleCloud::offsets[1])));
        }
    }
}

TEST(VX7PointReader, DescribesItsFile)
{
    const SampleCloud cloud = SampleCloud::make(500, 1);
    FilePlan plan = cloud.toFile();
    plan.wkt = "LOCAL_CS[\"here\"]";
    plan.classNames = {std::string("Created"), std::nullopt, std::string("Ground")};
    const double count = 500;
    plan.metadata.add("PreCompressionPointCount", nullptr, METADATA_FLOAT64_ARRAY, &count, 1);
    VX7Chunks file = VX7Chunks::parse(buildFile(plan));
    file.find(CHUNK_WKT)->payload.back() = '?'; // instead of the NUL
    const auto reader = openFile(file.toBytes());

    EXPECT_STREQ(reader->getFileFormatString(), "VX7 4.0.0.4");
    EXPECT_STREQ(reader->getWKT(), "LOCAL_CS[\"here\"]");
    ASSERT_EQ(reader->getNumClassIdNames(), 3u);
    EXPECT_STREQ(reader->getClassIdNames()[0], "Created");
    EXPECT_EQ(reader->getClassIdNames()[1], nullptr);
    EXPECT_STREQ(reader->getClassIdNames()[2], "Ground");
    EXPECT_EQ(reader->getScale()[0], SampleCloud::scale);
    EXPECT_EQ(reader->getOffset()[1], SampleCloud::offsets[1]);
    const auto extent = std::minmax_element(cloud.coordinates[2].begin(), cloud.coordinates[2].end());
    EXPECT_EQ(reader->getBounds().z.min, *extent.first);
    EXPECT_EQ(reader->getBounds().z.max, *extent.second);
    Metadata metadata;
    reader->loadMetadata(metadata, false);
    EXPECT_TRUE(metadata.has("PreCompressionPointCount"));

    const PointInfo layout = reader->getPointInfo();
    ASSERT_EQ(layout.getNumChannels(), 8u); // the three parts of GPSTime are one
    EXPECT_STREQ(layout.getChannel(6).getName(), "GPSTime");
    EXPECT_EQ(layout.getChannel(6).getDataType(), FLOAT64);
    EXPECT_EQ(layout.getChannel(6).getBits(), 64);
    EXPECT_EQ(layout.getChannel(std::size_t{0}).getQuantization(), SampleCloud::scale);
    EXPECT_EQ(layout.getChannel(4).getBits(), 3);
}

TEST(VX7PointReader, DecodesTheLevelOfTheFraction)
{
    const SampleCloud cloud = SampleCloud::make(1001, 4);
    FilePlan plan = cloud.toFile();
    plan.numLevels = 4;
    for (ChannelPlan& channel : plan.channels)
        channel.transform =
            channel.transform == 1 ? 11 : channel.transform; // coarse levels have original points
    const auto reader = openFile(buildFile(plan));
    const auto read = [&](double fraction) { return readAll(*reader, Bounds::Huge(), fraction); };
    // Beyond 8 the fraction is finer than all levels: the coarsest one is thinned.
    for (const std::size_t step : {1, 2, 4, 8, 16}) {
        std::vector<double> picked;
        for (std::size_t i = 0; i < cloud.gpsTime.size(); i += step)
            picked.push_back(cloud.gpsTime[i]);
        EXPECT_TRUE(holds<double>(read(1 / static_cast<double>(step)), 6, picked)) << step;
    }
    EXPECT_EQ(read(1 / 3.0).count, 334u); // level 1, thinned by 2 / 3
    for (const double nothing : {0.0, -1.0, std::nan("")}) {
        EXPECT_EQ(read(nothing).count, 0u);
        EXPECT_EQ(reader->getTotalWork(Bounds::Huge(), nothing), 0);
    }
    for (const double everything : {2.0, static_cast<double>(INFINITY)})
        EXPECT_EQ(read(everything).count, 1001u);
    EXPECT_EQ(reader->getTotalWork(Bounds::Huge(), 0.2), 251);
}

TEST(VX7PointReader, IsExactWithAnyThreadsAndBlockSizes)
{
    const SampleCloud cloud = SampleCloud::make(40000, 8);
    FilePlan plan = cloud.toFile();
    cloud.addIndex(plan, 2, 100);
    const auto reader = openFile(buildFile(plan));
    Bounds box = Bounds::Huge();
    box.x = {SampleCloud::offsets[0] + 10, SampleCloud::offsets[0] + 50};
    const tbb::global_control allowThreads(tbb::global_control::max_allowed_parallelism, 8);
    for (const double fraction : {1.0, 0.7, 0.3}) {
        Points expected;
        tbb::task_arena single(1);
        single.execute([&] { expected = readAll(*reader, box, fraction); });
        ASSERT_GT(expected.count, 1000u);
        for (const int threads : {2, 3, 8}) {
            for (const std::size_t blockSize : {1, 7, 5000, 100000}) {
                if (blockSize == 1 && threads != 2)
                    continue;
                tbb::task_arena arena(threads);
                Points points;
                arena.execute([&] { points = readAll(*reader, box, fraction, blockSize); });
                ASSERT_EQ(points, expected) << "threads=" << threads << " block=" << blockSize;
            }
        }
    }
}

TEST(VX7PointReader, RefusesQueriesAfterAFailedInit)
{
    const Scoped<VX7PointReader> reader(VX7PointReader::create());
    Bytes file = buildFile(SampleCloud::make(100, 1).toFile());
    file.resize(file.size() / 2);
    const Scoped<ByteStore> store(ByteStore::create(file));
    EXPECT_THROW(reader->init(store.get()), Error);
    const std::string refusal = "40007 the reader is not open";
    Metadata metadata;
    EXPECT_EQ(failureOf([&] { readAll(*reader); }), refusal);
    EXPECT_EQ(failureOf([&] { reader->getTotalWork(Bounds::Huge(), 1); }), refusal);
    EXPECT_EQ(failureOf([&] { reader->loadMetadata(metadata, false); }), refusal);
}

TEST(VX7PointReader, RefusesUnavailableChannels)
{
    const SampleCloud cloud = SampleCloud::make(50, 2);
    FilePlan plan = cloud.toFile();
    plan.channels.push_back(plan.channels[6]); // a fraction without exponent and sign
    plan.channels.back().name = "@d|Lonely";
    // Parts with other kernels than their names require.
    for (const std::size_t deflated : {0, 1, 2}) {
        auto parts = splitChannel("Mixed" + std::to_string(deflated), FLOAT64, cloud.gpsTime);
        parts[deflated] = deflatedChannel(parts[deflated].name, FLOAT32, cloud.temperature);
        plan.channels.insert(plan.channels.end(), parts.begin(), parts.end());
    }
    plan.channels.push_back(integerChannel("Odd", static_cast<DataType>(0x402), cloud.classId, 10));
    for (ChannelPlan& part : splitChannel("Narrow", FLOAT32, cloud.temperature))
        plan.channels.push_back(part);
    const auto reader = openFile(buildFile(plan));
    const auto ask = [&](const char* name, DataType type) {
        const PointInfo layout = layoutXYZ({channel(name, type)});
        return failureOf(
            [&] { Scoped<PointIterator>(reader->createIterator(Bounds::Huge(), 1, layout, nullptr)); });
    };
    for (const std::string name : {"Red", "Lonely", "@e|GPSTime"})
        EXPECT_EQ(ask(name.c_str(), FLOAT64), "-1 could not find channel '" + name + "'");
    const std::pair<const char*, DataType> unsupported[] = {
        {"Mixed0", FLOAT64}, {"Mixed1", FLOAT64},    {"Mixed2", FLOAT64},    {"Odd", UINT8},
        {"Narrow", FLOAT64}, {"Intensity", INVALID}, {"Intensity", FLOAT32}, {"GPSTime", FLOAT32}};
    for (const auto& [name, type] : unsupported)
        EXPECT_EQ(ask(name, type), "-1 unsupported datatype") << name;
    EXPECT_EQ(ask("Narrow", FLOAT32), "no error");
    EXPECT_EQ(ask("Intensity", UINT32), "no error");
    const PointInfo noZ = layoutOf({channel("X", FLOAT64), channel("Y", FLOAT64)});
    EXPECT_EQ(failureOf([&] { reader->createIterator(Bounds::Huge(), 1, noZ, nullptr); }),
              "40007 must have x, y, and z channels");
}

TEST(VX7PointReader, ReportsProgressAndStopsWhenCancelled)
{
    const auto reader = openFile(buildFile(SampleCloud::make(50000, 3).toFile()));
    const PointInfo layout = reader->getPointInfo();
    PointData block;
    block.init(layout, 60000);

    ProgressLog patient;
    patient.setTotal(reader->getTotalWork(Bounds::Huge(), 1));
    const Scoped<PointIterator> whole(reader->createIterator(Bounds::Huge(), 1, layout, &patient));
    EXPECT_EQ(whole->getNextPoints(block), 50000u);
    EXPECT_EQ(patient.last(), 1.0);
    EXPECT_EQ(patient.activities, std::vector<std::string>{"reading VX7 file"});

    ProgressLog hasty(1);
    const Scoped<PointIterator> cancelled(reader->createIterator(Bounds::Huge(), 1, layout, &hasty));
    EXPECT_EQ(failureOf([&] { cancelled->getNextPoints(block); }), "40006 operation cancelled.");
}

TEST(WaveletDecoderInfo, HalvesRangesPerLevel)
{
    FilePlan plan = SampleCloud::make(1000, 6).toFile();
    for (ChannelPlan& channel : plan.channels)
        channel.subblockSize = 60;
    plan.numLevels = 6;
    // Boxes along a line: entry i is at x = i; some are elsewhere, and two have no points.
    plan.indexVersion = 1;
    plan.pointsPerEntry = 10;
    for (int i = 0; i < 102; ++i)
        plan.indexBoxes.push_back({{double(i), double(i)}, {0, 0}, {0, 0}});
    const auto place = [&](std::size_t entry, double x) { plan.indexBoxes[entry].x = {x, x}; };
    place(100, 250);
    place(101, 250);
    place(50, 300); // a gap of one subblock
    place(57, 300);
    place(60, 400); // and of more
    place(68, 400);
    const auto reader = openFile(buildFile(plan));
    const auto ranges = [&](std::uint32_t level, double from, double to) {
        Bounds box = Bounds::Huge();
        box.x = {from, to};
        std::string text;
        for (const auto& range : reader->getDecoderInfo().getPointRanges(level, box))
            text += std::to_string(range.start) + "+" + std::to_string(range.length) + " ";
        return text;
    };
    EXPECT_EQ(ranges(0, 3, 4), "30+20 ");
    EXPECT_EQ(ranges(1, 3, 4), "15+10 ");
    EXPECT_EQ(ranges(2, 3, 4), "8+5 ");
    EXPECT_EQ(ranges(4, 1, 1), "1+1 ");
    EXPECT_EQ(ranges(5, 1, 1), ""); // points 10 to 19 have no sample at this level
    EXPECT_EQ(ranges(0, 99, 200), "990+10 ");
    EXPECT_EQ(ranges(0, 200, 260), "");
    EXPECT_EQ(ranges(0, 300, 300), "500+80 ");
    EXPECT_EQ(ranges(0, 400, 400), "600+10 680+10 ");
    EXPECT_EQ(ranges(1, 400, 400), "300+45 ");
    EXPECT_EQ(ranges(3, -5, 500), "0+125 ");
    plan.indexBoxes.resize(2);
    EXPECT_EQ(readAll(*openFile(buildFile(plan))).count, 1000u); // an open query needs no index
    const auto& info = reader->getDecoderInfo();
    EXPECT_EQ(info.getLevel(0.3), 1u);
    EXPECT_EQ(info.getLevel(0.25), 2u);
    EXPECT_EQ(info.getLevel(1e-9), 5u);
    EXPECT_EQ(info.getLevel(7), 0u);
}

}} // namespace Quillmoran::Testing
