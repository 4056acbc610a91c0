#include <vxunpack/VX7PointWriter.h>

#include "decode/container/WaveletDecoderInfo.h"
#include "encode/planning/PlanChooser.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/Test.h"
#include <vxunpack/ProgressDelegate.h>

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran::Testing { namespace {

// Changes the source after its first block.
struct Meddler final : ProgressDelegate
{
    std::function<void()> act;
    void reportProgress(double, const char*) override { act(); }
    bool getCancelled() override { return false; }
};

TEST(VX7PointWriter, RestoresAnyPointsWithAnyOptions)
{
    for (std::uint64_t seed = 0; seed < 240; ++seed) {
        SCOPED_TRACE("seed=" + std::to_string(seed));
        Random random(seed);
        const std::size_t count = seed < 40 ? seed : random.below(seed % 4 == 0 ? 5000 : 700);
        const auto source = makeRandomCloud(random, count, 6);
        const EncodeOptions options = seed % 3 == 0 ? EncodeOptions() : randomOptions(random);
        const auto reader = openFile(packWith(*source, options));
        const PointInfo expected = source->getPointInfo(), layout = reader->getPointInfo();
        ASSERT_EQ(layout.getNumChannels(), expected.getNumChannels());
        for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
            EXPECT_STREQ(layout.getChannel(i).getName(), expected.getChannel(i).getName());
            EXPECT_EQ(layout.getChannel(i).getDataType(), expected.getChannel(i).getDataType());
        }
        ASSERT_EQ(reader->getNumPoints(), source->getNumPoints());
        ASSERT_TRUE(readAll(*source) == readAll(*reader));
    }
}

constexpr double surveyScale[3] = {0.01, 0.01, 0.02};
constexpr double surveyOffset[3] = {500000, 4100000, -50};

Scoped<MemoryPointSource> makeSurvey(std::size_t count)
{
    Random random(11);
    MemoryPointSource::Columns columns(6);
    for (std::int64_t i = 0; i < static_cast<std::int64_t>(count); ++i) {
        const std::int64_t steps[3] = {i % 500 * 30 + random.between(-9, 9),
                                       i / 500 * 40 + random.between(-9, 9), i / 50 + random.between(-5, 5)};
        for (std::size_t axis = 0; axis < 3; ++axis)
            columns[axis].push_back(static_cast<double>(steps[axis]) * surveyScale[axis] +
                                    surveyOffset[axis]);
        columns[3].push_back(static_cast<double>(100 + random.below(60)));
        columns[4].push_back(2);
        columns[5].push_back(245379.5 + static_cast<double>(i) * 0x1p-16);
    }
    auto source = MemoryPointSource::make(
        layoutXYZ({channel("Intensity", UINT16), channel("ClassId", UINT8), channel("GPSTime", FLOAT64)}),
        columns);
    source->setQuantization(surveyScale, surveyOffset);
    return source;
}

const double* samplesOf(MemoryPointSource& source, const char* channel)
{
    return static_cast<const double*>(source.column(channel).getData());
}

TEST(VX7PointWriter, WritesAnIndexOfAllPointsOfABox)
{
    constexpr std::size_t count = 66000; // entries that cross the end of a block of 65,536 points
    const auto source = makeSurvey(count);
    const double* const axes[3] = {samplesOf(*source, "X"), samplesOf(*source, "Y"), samplesOf(*source, "Z")};
    const double half[3] = {0.005, 0.005, 0.01}; // of the scale
    for (const std::uint8_t version : {std::uint8_t{1}, std::uint8_t{2}}) {
        EncodeOptions options;
        options.pointsPerEntry = 23;
        options.all.subblockSize = 16; // so that ranges are not joined
        options.versions.index = version;
        const auto reader = openFile(packWith(*source, options));
        Random random(version);
        for (int query = 0; query < 60; ++query) {
            Bounds box = Bounds::Huge();
            Bounds::Range* const ranges[3] = {&box.x, &box.y, &box.z};
            const std::size_t i = query == 0 ? 65530 : random.below(count);
            const std::size_t j = query == 0 ? i : std::min(count - 1, i + random.below(3000));
            for (int axis = 0; axis < 3; ++axis) {
                // The faces of the box are on points and between them.
                const double a = axes[axis][i], b = axes[axis][j] + (random.chance(0.5) ? half[axis] : 0);
                if (random.chance(0.7))
                    *ranges[axis] = {std::min(a, b), std::max(a, b)};
            }
            Numbers expected; // queries widen the box
            for (std::size_t point = 0; point < count; ++point) {
                bool inside = true;
                for (int axis = 0; axis < 3; ++axis)
                    inside &= axes[axis][point] >= ranges[axis]->min - half[axis] &&
                              axes[axis][point] <= ranges[axis]->max + half[axis];
                if (inside)
                    expected.push_back(samplesOf(*source, "GPSTime")[point]);
            }
            ASSERT_EQ(readAll(*reader, box).values<double>(5), expected) << int{version} << " " << query;
        }
    }
}

TEST(VX7PointWriter, IndexesPointsWithoutUsualCoordinates)
{
    const double largest = std::numeric_limits<double>::max();
    std::vector<std::pair<MemoryPointSource::Columns, std::size_t>> clouds;
    for (const double end : {1e300, largest, infinity})
        clouds.push_back({{{-end, 0, end}, {1, 2, 3}, {end, end, end}}, 1});
    for (const double finite : {1.0, nan}) // these are in no box
        clouds.push_back({{{1, nan, nan}, {finite, finite, finite}, {nan, 2, nan}}, 0});
    for (const auto& [columns, numInside] : clouds)
        for (const std::uint8_t version : {std::uint8_t{1}, std::uint8_t{2}}) {
            const auto source = MemoryPointSource::make(layoutXYZ(), columns);
            EncodeOptions options;
            options.pointsPerEntry = 1;
            options.versions.index = version;
            const auto reader = openFile(packWith(*source, options));
            const Points points = readAll(*reader);
            EXPECT_EQ(points.count, 3u);
            EXPECT_TRUE(points == readAll(*source));
            EXPECT_EQ(readAll(*reader, {{1, infinity}, {0, 9}, {0, infinity}}).count, numInside);
        }
}

// Several blocks, bands of more than 128 KiB, and levels that get one sample at a time.
TEST(VX7PointWriter, WritesTheSameBytesOnAnyNumberOfThreads)
{
    Random random(0); // X is noise
    const auto source = makeRandomCloud(random, 150000, 6);
    EncodeOptions options;
    options.numLevels = 18;
    options.all.smooth = true;
    Bytes first;
    for (const int threads : {1, 2, 5}) {
        const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                                        static_cast<std::size_t>(threads));
        tbb::task_arena arena(threads);
        Bytes bytes;
        arena.execute([&] { bytes = packWith(*source, options); });
        if (first.empty())
            first = bytes;
        EXPECT_TRUE(bytes == first) << threads;
    }
    EXPECT_TRUE(readAll(*openFile(first)) == readAll(*source));
    EXPECT_TRUE(openFile(first)->getBounds() == source->getBounds());
}

TEST(VX7PointWriter, KeepsTheDescriptionOfTheSource)
{
    const auto source = makeSurvey(3000);
    const char* const names[] = {"a", nullptr, ""};
    source->setWKT("LOCAL_CS[\"here\"]");
    source->setClassIdNames(names, 3);
    source->metadata().add("Key", "of a record", METADATA_STRING, "value", 0);
    // A part of the points records the number of all points. Averages have other decimals than samples.
    for (const double fraction : {1.0, 0.5}) {
        EncodeOptions options;
        options.all.smooth = fraction < 1;
        const auto reader = openFile(packWith(*source, options, {Bounds::Huge(), fraction}));
        EXPECT_EQ(reader->getNumPoints(), 3000 * fraction);
        EXPECT_STREQ(reader->getWKT(), source->getWKT());
        ASSERT_EQ(reader->getNumClassIdNames(), 3u);
        EXPECT_EQ(reader->getClassIdNames()[1], nullptr);
        EXPECT_STREQ(reader->getClassIdNames()[2], "");
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(reader->getScale()[axis], surveyScale[axis]);
            EXPECT_EQ(reader->getOffset()[axis], surveyOffset[axis]);
        }
        EXPECT_TRUE(fraction < 1 || reader->getBounds() == source->getBounds());
        Metadata records;
        reader->loadMetadata(records, false);
        EXPECT_TRUE(records.has("Key"));
        EXPECT_EQ(records.has("TextDecimals"), fraction == 1);
        const int key = records.getKeyIndex("PreCompressionPointCount");
        ASSERT_GE(key, 0);
        EXPECT_STREQ(static_cast<const char*>(records.getValue(static_cast<std::size_t>(key))), "3000");
    }
}

TEST(VX7PointWriter, ChoosesTheCodingByTheSamples)
{
    const auto source = makeSurvey(20000);
    const Scoped<ByteStore> store(ByteStore::create());
    const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
    writer->init(source.get(), store.get());
    writer->write(Bounds::Huge(), 1.0, source->getPointInfo(), nullptr);
    const auto& summary = writer->getSummary();
    ASSERT_EQ(summary.size(), 6u);
    EXPECT_LT(summary[4].size, 200);           // a constant class
    EXPECT_LT(summary[5].size, 4000);          // equidistant times
    EXPECT_LT(summary[3].size, 20000 * 7 / 8); // 60 values: 6 bits and a little more
    EXPECT_LT(store->size(), 20000 * 5);
    for (const auto& channel : summary)
        EXPECT_FALSE(TransformUtils::hasUpdate(channel.transform)) << channel.name;

    // No channel is larger if size is preferred; most are smaller than in any one coding of the trials.
    EncodeOptions options;
    options.prefer = Preference::Size;
    writer->setOptions(options);
    const auto balanced = summary;
    writer->write(Bounds::Huge(), 1.0, source->getPointInfo(), nullptr);
    for (std::size_t i = 0; i < balanced.size(); ++i)
        EXPECT_LE(summary[i].size, balanced[i].size) << i;
    EXPECT_GT(summary[0].subblockSize, 4096u);
    EXPECT_TRUE(readAll(*openFile(packWith(*source, options))) == readAll(*source));
}

// Writes a file with this transform for a channel, and compares what is read. Returns the failure.
std::string packAs(PointSource& source, const char* channel, int code, const EncodeOptions& others = {})
{
    return failureOf([&] {
        EncodeOptions options = others;
        options.byChannel[channel].transform = static_cast<TransformType>(code);
        const auto reader = openFile(packWith(source, options));
        EXPECT_TRUE(readAll(*reader) == readAll(source)) << channel << " " << code;
        const auto& records = reader->getDecoderInfo().getChannels();
        const auto& record = records[*reader->getDecoderInfo().getChannel(channel)];
        EXPECT_EQ(record.getTransformType(), code);
    });
}

Scoped<MemoryPointSource> makeColumn(DataType type, const std::vector<double>& samples)
{
    const std::vector<double> zeros(samples.size());
    return MemoryPointSource::make(layoutXYZ({channel("T", type)}), {zeros, zeros, zeros, samples});
}

TEST(VX7PointWriter, UsesGivenTransformsOrRefusesThem)
{
    const auto survey = makeSurvey(2000);
    const auto packed = [&](const char* channel, int code) { return packAs(*survey, channel, code); };
    for (const int code : {1, 3, 10, 11, 13, 81, 83, 90, 91, 93})
        EXPECT_EQ(packed("Intensity", code), "no error") << code;
    for (const int code : {61, 70, 71, 73, 1, 13})
        EXPECT_EQ(packed("GPSTime", code), "no error") << code;
    EXPECT_EQ(packed("Intensity", 70), "40007 transform 70 does not suit channel 'Intensity'");
    EXPECT_EQ(packed("GPSTime", 91), "40007 transform 91 does not suit channel 'GPSTime'");
    EXPECT_EQ(packed("X", 71), "40007 transform 71 does not suit channel 'X'"); // hundredths would be rounded
    EXPECT_EQ(packed("X", 12), "-1 bad transform type");
    EXPECT_EQ(packed("Height", 10), "40007 there is no channel 'Height' to choose a coding for");

    // A transform for all channels is used for those that support it.
    EncodeOptions options;
    options.all.transform = 70;
    const auto reader = openFile(packWith(*survey, options));
    EXPECT_TRUE(readAll(*reader) == readAll(*survey));
    const auto& records = reader->getDecoderInfo().getChannels();
    EXPECT_EQ(records[0].getTransformType(), 70);
    EXPECT_TRUE(reader->getBounds() == survey->getBounds());
    EXPECT_TRUE(TransformUtils::isInteger(records[3].getTransformType()));
}

// The declared scale is kept even if there are no points, or if deflate makes coordinates smaller.
TEST(VX7PointWriter, KeepsTheScaleOfCoordinates)
{
    Random random(2);
    for (const std::size_t count : {0, 4000}) {
        std::vector<double> samples(count);
        for (std::size_t i = 0; i < count; ++i)
            samples[i] = i < 50 ? static_cast<double>(random.between(0, 1 << 20)) * 0.25 : samples[i - 50];
        const auto source =
            MemoryPointSource::make(layoutOf({channel("X", FLOAT64, 0.25), channel("Y", FLOAT64, 0.25),
                                              channel("Z", FLOAT64, 0.25), channel("T", FLOAT64, 0.25)}),
                                    {samples, samples, samples, samples});
        EncodeOptions options;
        options.byChannel["Z"].subblockSize = 32;
        const auto reader = openFile(packWith(*source, options));
        ASSERT_NE(reader->getScale(), nullptr);
        EXPECT_EQ(reader->getScale()[0], 0.25);
        EXPECT_EQ(reader->getOffset()[0], 0);
        const auto& records = reader->getDecoderInfo().getChannels();
        EXPECT_EQ(records[2].getSubblockSize(), 32u);
        EXPECT_EQ(TransformUtils::isInteger(records[3].getTransformType()), count == 0);
    }
}

// Floating-point lifting is refused unless it restores the samples, which packAs() compares.
TEST(VX7PointWriter, LiftsOnlySamplesThatStayExact)
{
    Random random(6);
    EncodeOptions twoLevels;
    twoLevels.numLevels = 2;
    for (const DataType type : {FLOAT32, FLOAT64}) {
        const int significand = type == FLOAT32 ? 24 : 53;
        for (const int code : {61, 63, 71, 73}) {
            int widest = 0;
            for (int bits = 1; bits <= significand; ++bits) {
                std::vector<double> samples(64, 0.25);
                for (double& sample : samples)
                    sample *= std::ldexp(1, random.chance(0.5) ? bits : 0) - 1;
                if (packAs(*makeColumn(type, samples), "T", code, twoLevels) == "no error")
                    widest = bits;
            }
            // A step adds 4 bits, or 7 if of order 3; with updates twice per level.
            const int added = (code % 10 == 1 ? 4 : 7) * (code < 70 ? 4 : 1);
            EXPECT_EQ(widest, std::max(significand - added, 0)) << code;
        }
    }
    std::vector<double> tenths, offGrid; // of a scale that is no power of two, and with an offset
    for (const int steps : {0, -1, 9, -6, 2, 0, -3}) {
        tenths.push_back(steps * 0.1);
        offGrid.push_back(steps * 0.25 + 0.1);
    }
    for (const int code : {61, 71, 73})
        for (const auto& samples : {tenths, offGrid})
            EXPECT_EQ(packAs(*makeColumn(FLOAT64, samples), "T", code),
                      "40007 transform " + std::to_string(code) + " does not suit channel 'T'");
}

// Predictions of the third order exceed the range of samples that alternate.
TEST(VX7PointWriter, CodesExtremesOfEveryRange)
{
    for (const double high : {8190.0, 8192.0, 26214.0, 26216.0, 32000.0, 32766.0, 32768.0}) {
        Random random(3);
        std::vector<double> samples(3000);
        for (double& sample : samples)
            sample = random.chance(0.5) ? high : 0;
        for (const double shift : {0.0, -high, high / 2}) {
            for (double& sample : samples)
                sample += shift;
            const auto source = makeColumn(SINT32, samples);
            EncodeOptions options;
            EXPECT_TRUE(readAll(*openFile(packWith(*source, options))) == readAll(*source)) << high << shift;
            options.all.smooth = true;
            EXPECT_TRUE(readAll(*openFile(packWith(*source, options))) == readAll(*source)) << high << shift;
            // The arithmetic coder holds 15 bits. Predictions may add a quarter, and updates much more.
            EXPECT_EQ(packAs(*source, "T", 93) == "no error", high < 26214.4) << high << shift;
            EXPECT_EQ(packAs(*source, "T", 83) == "no error", high < 8192) << high << shift;
        }
    }
}

// The survey of the first pass must hold for the second one.
TEST(VX7PointWriter, RefusesASourceThatChanges)
{
    for (const bool moved : {false, true}) {
        const auto source = makeSurvey(66000); // more than a block, which is read once
        Meddler meddler;
        meddler.act = [&] {
            if (moved) // out of the box
                static_cast<double*>(source->column("X").getData())[500] = 1e6;
            else
                static_cast<std::uint16_t*>(source->column("Intensity").getData())[500] = 4000;
        };
        const Query query = {{{0, 9e5}, {0, 9e9}, {-9e9, 9e9}}};
        EXPECT_EQ(failureOf([&] { packWith(*source, {}, query, &meddler); }),
                  "40007 the source has changed while it was read");
    }
}

// As many levels as leave 512 points, and boxes of 64 points or, in larger files, at least 16 boxes.
TEST(VX7PointWriter, ChoosesLevelsAndBoxesByTheNumberOfPoints)
{
    const std::tuple<std::size_t, std::uint32_t, std::uint32_t> cases[] = {
        {1, 1, 64}, {1023, 1, 64}, {1024, 2, 64}, {2047, 2, 64}, {2048, 3, 128}, {4096, 4, 256}};
    for (const auto& [count, levels, pointsPerEntry] : cases) {
        const auto reader = openFile(packWith(*makeSurvey(count)));
        EXPECT_EQ(reader->getDecoderInfo().getNumLevels(), levels) << count;
        EXPECT_EQ(reader->getDecoderInfo().getPointsPerEntry(), pointsPerEntry) << count;
        EXPECT_EQ(reader->getWKT(), nullptr);
    }
}

TEST(VX7PointWriter, RefusesNamesThatItCannotStore)
{
    const auto failure = [](const char* a, const char* b) {
        const auto source = MemoryPointSource::make(layoutXYZ({channel(a, UINT8), channel(b, UINT8)}),
                                                    {{1}, {1}, {1}, {1}, {1}});
        return failureOf([&] { packWith(*source); });
    };
    EXPECT_EQ(failure("@d|A", "B"), "40007 a channel cannot be called '@d|A'");
    EXPECT_EQ(failure("@home", "B"), "no error");
    EXPECT_EQ(failure("A", "A"), "40007 two channels are called 'A'");
    EXPECT_EQ(failure("", "A"), "40007 a channel cannot be called ''");
}

TEST(VX7PointWriter, RefusesOptionsOutOfRange)
{
    const auto failure = [](auto change) {
        EncodeOptions options;
        change(options);
        return failureOf([&] { Scoped<VX7PointWriter>(VX7PointWriter::create())->setOptions(options); });
    };
    const auto limits = [](const std::string& what, const std::string& range) {
        return "40007 the " + what + " must be " + range;
    };
    const ChannelChoice smallest{13, false, false, 16}, largest{93, false, false, 1048576};
    EXPECT_EQ(failure([&](auto& o) { o = {{1, 1, 1, 1}, smallest, {}, 1, 1, 0}; }), "no error");
    EXPECT_EQ(failure([&](auto& o) { o = {{4, 2, 2, 3}, largest, {}, 64, INT32_MAX, 64}; }), "no error");
    EXPECT_EQ(failure([](auto& o) { o.versions.file = 5; }), limits("file version", "1 to 4"));
    const std::string version = "version of the ";
    EXPECT_EQ(failure([](auto& o) { o.versions.header = 3; }), limits(version + "wavelet header", "1 to 2"));
    EXPECT_EQ(failure([](auto& o) { o.versions.index = 0; }), limits(version + "index", "1 to 2"));
    EXPECT_EQ(failure([](auto& o) { o.versions.band = 0; }), limits(version + "subbands", "1 to 3"));
    const std::string subblock = limits("subblock size", "16 to 1048576");
    EXPECT_EQ(failure([](auto& o) { o.all.subblockSize = 15; }), subblock);
    EXPECT_EQ(failure([](auto& o) { o.all.subblockSize = 1048577; }), subblock);
    const std::string levels = limits("number of levels", "1 to 64");
    EXPECT_EQ(failure([](auto& o) { o.numLevels = 0; }), levels);
    EXPECT_EQ(failure([](auto& o) { o.numLevels = 65; }), levels);
    const std::string points = limits("number of points per index entry", "1 to 2147483647");
    EXPECT_EQ(failure([](auto& o) { o.pointsPerEntry = 0; }), points);
    EXPECT_EQ(failure([](auto& o) { o.pointsPerEntry = 1u << 31; }), points);
    const std::string planes = limits("number of raw planes", "0 to 64");
    EXPECT_EQ(failure([](auto& o) { o.rawPlanes = -1; }), planes);
    EXPECT_EQ(failure([](auto& o) { o.rawPlanes = 65; }), planes);
    EXPECT_EQ(failure([](auto& o) { o.byChannel["X"].transform = 99; }), "-1 bad transform type");
}

}} // namespace Quillmoran::Testing
