#include <vxunpack/VX7PointReader.h>

#include "common/container/ChunkHeader.h"
#include "decode/container/WaveletDecoderInfo.h"
#include "platform/ByteOrder.h"
#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/ForwardWavelet.h"
#include "support/Random.h"
#include "support/ReadPoints.h"
#include "support/SampleCloud.h"
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/VX7PointWriter.h>

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran {
namespace {

using Testing::Bytes;
using Testing::ByteStore;
using Testing::failureOf;
using Testing::FilePlan;
using Testing::openFile;
using Testing::Points;
using Testing::Random;
using Testing::readAll;
using Testing::SampleCloud;

template <class T, class S>
std::vector<T> as(const std::vector<S>& values)
{
    std::vector<T> result;
    for (const S& value : values)
        result.push_back(static_cast<T>(value));
    return result;
}

template <class T>
bool sameBits(const std::vector<T>& a, const std::vector<T>& b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

void expectCloud(const Points& points, const SampleCloud& cloud, const std::string& label)
{
    for (std::size_t axis = 0; axis < 3; ++axis)
        ASSERT_TRUE(sameBits(points.values<double>(axis), cloud.coordinates[axis])) << label;
    ASSERT_EQ(points.values<std::uint16_t>(3), as<std::uint16_t>(cloud.intensity)) << label;
    ASSERT_EQ(points.values<std::uint8_t>(4), as<std::uint8_t>(cloud.classId)) << label;
    ASSERT_EQ(points.values<std::int8_t>(5), as<std::int8_t>(cloud.scanAngle)) << label;
    ASSERT_TRUE(sameBits(points.values<double>(6), cloud.gpsTime)) << label;
    ASSERT_TRUE(sameBits(points.values<float>(7), as<float>(cloud.temperature))) << label;
}

// All features of the format, chosen at random.
TEST(VX7PointReader, RestoresAllPointsOfEveryKindOfFile)
{
    for (std::uint64_t seed = 0; seed < 150; ++seed) {
        Random random(seed);
        const SampleCloud cloud = SampleCloud::make(seed < 20 ? seed : random.below(4000), seed);
        FilePlan plan = cloud.toFile();
        plan.version = static_cast<std::uint8_t>(random.between(1, 4));
        plan.headerVersion = static_cast<std::uint8_t>(random.between(1, 2));
        plan.bandVersion = static_cast<std::uint8_t>(random.between(1, 3));
        plan.swapRanges = random.chance(0.5);
        plan.numLevels = static_cast<std::uint32_t>(random.between(1, 14));
        plan.extendedHeader = random.chance(0.3);
        const TransformType lossless[] = {1, 3, 10, 11, 13};
        for (Testing::ChannelPlan& channel : plan.channels) {
            channel.subblockSize = static_cast<std::uint32_t>(random.between(8, 700));
            channel.rawPlanes = static_cast<int>(random.below(4));
            // Lifting would change the width of split parts and round deflated numbers.
            if (channel.transform == 1)
                channel.transform = lossless[random.below(5)];
        }
        cloud.addIndex(plan, static_cast<std::uint8_t>(random.between(1, 2)),
                       1 + static_cast<std::uint32_t>(random.below(300)));
        const auto reader = openFile(buildFile(plan));
        ASSERT_EQ(reader->getNumPoints(), static_cast<std::int64_t>(cloud.intensity.size()));
        expectCloud(readAll(*reader), cloud, "seed=" + std::to_string(seed));
    }
}

// Only the subblock headers of such files show their layout.
TEST(VX7PointReader, DetectsTheBandLayoutsOfOldWriters)
{
    const SampleCloud cloud = SampleCloud::make(900, 3);
    for (const bool swapped : {false, true}) {
        for (const std::uint8_t version : std::initializer_list<std::uint8_t>{1, 3}) {
            FilePlan plan = cloud.toFile();
            plan.version = version;
            plan.bandVersion = 2;
            plan.swapRanges = swapped;
            plan.planeLengthsWithoutLifting = true;
            if (swapped)
                plan.channels[0].transform = 10; // the first band with two ranges
            expectCloud(readAll(*openFile(buildFile(plan))), cloud, "version=" + std::to_string(version));
        }
    }
}

TEST(VX7PointReader, NeedsNoIndexForAnOpenQuery)
{
    const SampleCloud cloud = SampleCloud::make(200, 3);
    FilePlan plan = cloud.toFile();
    cloud.addIndex(plan, 2, 50);
    Bytes bytes = buildFile(plan);
    // The tree's count is unchanged, but its root has no nodes.
    std::size_t index = 28;
    while (bytes[index + 3] != CHUNK_INDEX)
        index += 12 + loadBigEndian<std::uint64_t>(bytes.data() + index + 4);
    ASSERT_EQ(bytes[index + 12 + 5 + 54], 4);
    bytes[index + 12 + 5 + 54] = 0;
    const auto reader = openFile(bytes);
    expectCloud(readAll(*reader), cloud, "empty root");
    Bounds box = reader->getBounds();
    box.x.max -= 1;
    EXPECT_EQ(readAll(*reader, box).count, 0u);
}

TEST(VX7PointReader, DescribesItsFile)
{
    const SampleCloud cloud = SampleCloud::make(500, 1);
    FilePlan plan = cloud.toFile();
    plan.wkt = "LOCAL_CS[\"here\"]";
    plan.classNames = {std::string("Created"), std::nullopt, std::string("Ground")};
    const double count = 500;
    plan.metadata.add("PreCompressionPointCount", nullptr, METADATA_FLOAT64_ARRAY, &count, 1);
    const auto reader = openFile(buildFile(plan));

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

TEST(VX7PointReader, ReturnsAllPointsOfABox)
{
    const SampleCloud cloud = SampleCloud::make(3000, 9);
    for (const std::uint8_t version : std::initializer_list<std::uint8_t>{1, 2}) {
        FilePlan plan = cloud.toFile();
        for (Testing::ChannelPlan& channel : plan.channels)
            channel.subblockSize = 16;
        cloud.addIndex(plan, version, 23);
        const auto reader = openFile(buildFile(plan));
        Random random(version);
        for (int query = 0; query < 60; ++query) {
            Bounds box = Bounds::Huge();
            Bounds::Range* const axes[3] = {&box.x, &box.y, &box.z};
            for (int axis = 0; axis < 3; ++axis) {
                // The faces of the box are on points and between them.
                const auto& values = cloud.coordinates[axis];
                double a = values[random.below(values.size())];
                double b = values[random.below(values.size())] + (random.chance(0.5) ? 0.005 : 0.0);
                if (random.chance(0.7))
                    *axes[axis] = {std::min(a, b), std::max(a, b)};
            }
            std::vector<double> expected;
            const double half = SampleCloud::scale / 2;
            for (std::size_t i = 0; i < cloud.intensity.size(); ++i) {
                bool inside = true;
                for (int axis = 0; axis < 3; ++axis)
                    inside &= cloud.coordinates[axis][i] >= axes[axis]->min - half &&
                              cloud.coordinates[axis][i] <= axes[axis]->max + half;
                if (inside)
                    expected.push_back(cloud.gpsTime[i]);
            }
            ASSERT_TRUE(sameBits(readAll(*reader, box).values<double>(6), expected))
                << "version=" << int{version} << " query=" << query;
        }
    }
}

TEST(VX7PointReader, DecodesTheLevelOfTheFraction)
{
    const SampleCloud cloud = SampleCloud::make(1001, 4);
    FilePlan plan = cloud.toFile();
    plan.numLevels = 4;
    for (Testing::ChannelPlan& channel : plan.channels)
        channel.transform =
            channel.transform == 1 ? 11 : channel.transform; // coarse levels have original points
    const auto reader = openFile(buildFile(plan));
    const auto everyNth = [&](std::size_t step) {
        std::vector<double> picked;
        for (std::size_t i = 0; i < cloud.gpsTime.size(); i += step)
            picked.push_back(cloud.gpsTime[i]);
        return picked;
    };
    const auto read = [&](double fraction) {
        return readAll(*reader, Bounds::Huge(), fraction).values<double>(6);
    };
    EXPECT_TRUE(sameBits(read(2.0), cloud.gpsTime));
    EXPECT_TRUE(sameBits(read(1 / 2.0), everyNth(2)));
    EXPECT_TRUE(sameBits(read(1 / 4.0), everyNth(4)));
    EXPECT_TRUE(sameBits(read(1 / 8.0), everyNth(8)));
    EXPECT_TRUE(sameBits(read(1 / 16.0), everyNth(16))); // coarser than all levels: the coarsest, thinned
    EXPECT_EQ(read(1 / 3.0).size(), 334u);               // level 1, thinned by 2 / 3
    for (const double nothing : {0.0, -1.0, std::nan("")})
        EXPECT_EQ(read(nothing).size(), 0u);
    EXPECT_EQ(read(INFINITY).size(), 1001u);
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

TEST(VX7PointReader, SupportsConcurrentIterators)
{
    const SampleCloud cloud = SampleCloud::make(3000, 12);
    const auto reader = openFile(buildFile(cloud.toFile()));
    const PointInfo layout = reader->getPointInfo();
    Scoped<PointIterator> a(reader->createIterator(Bounds::Huge(), 1.0, layout, nullptr));
    Scoped<PointIterator> b(reader->createIterator(Bounds::Huge(), 0.6, layout, nullptr));
    PointData block;
    block.init(layout, 10);
    ASSERT_EQ(a->getNextPoints(block), 10u);
    ASSERT_EQ(b->getNextPoints(block), 10u);
    EXPECT_EQ(block.getX()[9], cloud.coordinates[0][15]);
    ASSERT_EQ(a->getNextPoints(block), 10u);
    EXPECT_EQ(block.getX()[9], cloud.coordinates[0][19]);
}

TEST(VX7PointReader, RefusesQueriesUnlessOpen)
{
    const auto expectRefusal = [](VX7PointReader& reader) {
        const std::string refusal = "40007 the reader is not open";
        Metadata metadata;
        EXPECT_EQ(failureOf([&] { reader.createIterator(Bounds::Huge(), 1, PointInfo(), nullptr); }),
                  refusal);
        EXPECT_EQ(failureOf([&] { reader.getTotalWork(Bounds::Huge(), 1); }), refusal);
        EXPECT_EQ(failureOf([&] { reader.loadMetadata(metadata, false); }), refusal);
        EXPECT_EQ(failureOf([&] { reader.getDecoderInfo(); }), refusal);
    };
    const Scoped<VX7PointReader> reader(VX7PointReader::create());
    expectRefusal(*reader);
    Bytes file = buildFile(SampleCloud::make(100, 1).toFile());
    file.resize(file.size() / 2);
    const Scoped<ByteStore> store(ByteStore::create(file));
    EXPECT_THROW(reader->init(store.get()), Error);
    expectRefusal(*reader);

    const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
    EXPECT_EQ(failureOf([&] { writer->write(Bounds::Huge(), 1, PointInfo(), nullptr); }),
              "40007 the writer has no source");
}

TEST(VX7PointReader, RefusesUnavailableChannels)
{
    const SampleCloud cloud = SampleCloud::make(50, 2);
    FilePlan plan = cloud.toFile();
    plan.channels.push_back(plan.channels[6]); // a fraction without exponent and sign
    plan.channels.back().name = "@d|Lonely";
    // Parts with other kernels than their names require.
    for (const char* part : {"@d|Deflated", "@e|Deflated", "@s|Deflated"})
        plan.channels.push_back(Testing::deflatedChannel(part, FLOAT32, cloud.temperature));
    Testing::integerChannel("Odd", static_cast<DataType>(0x400 | 2), cloud.classId, 10);
    const auto reader = openFile(buildFile(plan));
    const auto ask = [&](const char* name, DataType type) {
        PointInfo layout;
        const char* const axes[] = {"X", "Y", "Z"};
        layout.init(reader->getPointInfo(), axes, 3);
        ChannelInfo wanted;
        wanted.init(name, type, 0, 0);
        layout.append(wanted);
        return failureOf(
            [&] { Scoped<PointIterator>(reader->createIterator(Bounds::Huge(), 1, layout, nullptr)); });
    };
    EXPECT_EQ(ask("Red", UINT16), "-1 could not find channel 'Red'");
    EXPECT_EQ(ask("Lonely", FLOAT64), "-1 could not find channel 'Lonely'");
    EXPECT_EQ(ask("@e|GPSTime", FLOAT64), "-1 could not find channel '@e|GPSTime'");
    EXPECT_EQ(ask("Deflated", FLOAT64), "-1 unsupported datatype");
    EXPECT_EQ(ask("Intensity", INVALID), "-1 unsupported datatype");
    EXPECT_EQ(ask("Intensity", FLOAT32), "-1 unsupported datatype");
    EXPECT_EQ(ask("Intensity", UINT32), "no error");
    EXPECT_EQ(ask("GPSTime", FLOAT32), "-1 unsupported datatype");
    PointInfo noZ;
    const char* const axes[] = {"X", "Y"};
    noZ.init(reader->getPointInfo(), axes, 2);
    EXPECT_EQ(failureOf([&] { reader->createIterator(Bounds::Huge(), 1, noZ, nullptr); }),
              "40007 must have x, y, and z channels");
}

class CancelAfter final : public ProgressDelegate
{
public:
    explicit CancelAfter(int reports) : m_left(reports) {}
    void reportProgress(double fraction, const char* message) override
    {
        EXPECT_STREQ(message, "reading VX7 file");
        m_last = fraction;
        --m_left;
    }
    bool getCancelled() override { return m_left <= 0; }
    double last() const { return m_last; }

private:
    int m_left;
    double m_last = 0;
};

TEST(VX7PointReader, ReportsProgressAndStopsWhenCancelled)
{
    const SampleCloud cloud = SampleCloud::make(50000, 3);
    const auto reader = openFile(buildFile(cloud.toFile()));
    const PointInfo layout = reader->getPointInfo();
    PointData block;
    block.init(layout, 60000);

    CancelAfter patient(100);
    patient.setTotal(reader->getTotalWork(Bounds::Huge(), 1));
    const Scoped<PointIterator> whole(reader->createIterator(Bounds::Huge(), 1, layout, &patient));
    EXPECT_EQ(whole->getNextPoints(block), 50000u);
    EXPECT_EQ(patient.last(), 1.0);

    CancelAfter hasty(1);
    const Scoped<PointIterator> cancelled(reader->createIterator(Bounds::Huge(), 1, layout, &hasty));
    EXPECT_EQ(failureOf([&] { cancelled->getNextPoints(block); }), "40006 operation cancelled.");
}

TEST(WaveletDecoderInfo, HalvesRangesPerLevel)
{
    const SampleCloud cloud = SampleCloud::make(1000, 6);
    FilePlan plan = cloud.toFile();
    for (Testing::ChannelPlan& channel : plan.channels)
        channel.subblockSize = 64;
    plan.numLevels = 6;
    // Boxes along a line: entry i is at x = i.
    plan.indexVersion = 1;
    plan.pointsPerEntry = 10;
    for (int i = 0; i < 100; ++i)
        plan.indexBoxes.push_back({{double(i), double(i)}, {0, 0}, {0, 0}});
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
    EXPECT_EQ(ranges(0, 99, 200), "990+10 ");
    EXPECT_EQ(ranges(0, 200, 300), "");
    EXPECT_EQ(ranges(3, -5, 200), "0+125 ");
    const auto& info = reader->getDecoderInfo();
    EXPECT_EQ(info.getLevel(0.3), 1u);
    EXPECT_EQ(info.getLevel(0.25), 2u);
    EXPECT_EQ(info.getLevel(1e-9), 5u);
    EXPECT_EQ(info.getLevel(7), 0u);
}

} // namespace
} // namespace Quillmoran
