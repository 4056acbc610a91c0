// The digests that the writer stores, and what readers compare with them. robustness/DamageTest damages files
// that have digests.
#include "support/DigestChunk.h"
#include "support/RandomCloud.h"
#include "support/SampleCloud.h"
#include "support/Test.h"

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran::Testing { namespace {

TEST(Digests, AreThoseOfTheSamplesAndChunks)
{
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        Random random(seed);
        const Bytes file = packWith(*makeRandomCloud(random, seed * 40, 6), randomOptions(random));
        EXPECT_EQ(VX7Chunks::parse(file).chunks.back().payload, DigestChunk::of(file).payload()) << seed;
    }
    // Blocks of 2^20 points, which the writer gets in parts.
    constexpr std::size_t count = (std::size_t{2} << 20) + 5;
    MemoryPointSource::Columns columns(4, std::vector<double>(count));
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t line = i / 1000;
        columns[0][i] = columns[3][i] = static_cast<double>(line);
    }
    const auto source = MemoryPointSource::make(layoutXYZ({channel("Line", UINT16)}), columns);
    const Bytes file = packWith(*source);
    const DigestChunk expected = DigestChunk::of(file);
    EXPECT_EQ(expected.samples.size(), 12u);
    EXPECT_EQ(VX7Chunks::parse(file).chunks.back().payload, expected.payload());
}

class VerifiedFile : public testing::Test
{
protected:
    static constexpr std::size_t count = 5000, numChannels = 8;
    static constexpr unsigned blockBits = 9;
    static constexpr std::size_t numBlocks = 10;

    VerifiedFile()
    {
        FilePlan plan = cloud.toFile();
        cloud.addIndex(plan, 2, 50);
        plan.wkt = "LOCAL_CS[\"grid\"]";
        plan.extendedHeader = true;
        plain = buildFile(plan);
        digests = DigestChunk::of(plain, blockBits);
    }

    // A file in which the digests of these blocks, each a channel and an index, differ from the samples.
    Bytes differing(const std::vector<std::pair<std::size_t, std::size_t>>& blocks) const
    {
        DigestChunk changed = digests;
        for (const auto& [channel, block] : blocks)
            changed.samples[channel * numBlocks + block] ^= 1;
        return changed.addTo(plain);
    }
    // The error of a query and the number of points before it.
    static std::string outcome(const Bytes& file, const Bounds& box = Bounds::Huge(), double fraction = 1,
                               const PointInfo* layout = nullptr)
    {
        const auto reader = openFile(file);
        const PointInfo wanted = layout ? *layout : reader->getPointInfo();
        std::size_t got = 0;
        const std::string failure = failureOf([&] {
            const Scoped<PointIterator> points(reader->createIterator(box, fraction, wanted, nullptr));
            PointData block;
            block.init(wanted, 100);
            while (const std::size_t some = points->getNextPoints(block))
                got += some;
        });
        return failure == "no error" ? std::to_string(got) + " points" : failure;
    }

    const SampleCloud cloud = SampleCloud::make(count, 3);
    Bytes plain;
    DigestChunk digests;
};

TEST_F(VerifiedFile, ReportsTheFirstBlockAndChannelThatDiffer)
{
    EXPECT_EQ(outcome(digests.addTo(plain)), "5000 points");
    const std::pair<std::vector<std::pair<std::size_t, std::size_t>>, const char*> cases[] = {
        {{{2, 0}}, "40231 channel Z, points 0 to 511: digest differs"},
        {{{6, 4}}, "40231 channel GPSTime, points 2048 to 2559: digest differs"}, // has three parts
        {{{7, 9}}, "40231 channel Temperature, points 4608 to 4999: digest differs"},
        {{{7, 9}, {6, 9}, {4, 9}}, "40231 channel ClassId, points 4608 to 4999: digest differs"},
    };
    const tbb::global_control allowThreads(tbb::global_control::max_allowed_parallelism, 4);
    for (const auto& each : cases) {
        const Bytes file = differing(each.first);
        const std::string error = each.second;
        for (const int threads : {1, 4})
            tbb::task_arena(threads).execute([&] { EXPECT_EQ(outcome(file), error) << threads; });
        const auto reader = openFile(file);
        reader->setVerifiesDigests(false);
        EXPECT_EQ(readAll(*reader), readAll(*openFile(plain))) << error;
    }
}

TEST_F(VerifiedFile, ComparesBlocksThatAQueryDecodesCompletely)
{
    const Bytes file = differing({{5, 4}}); // of ScanAngle, points 2048 to 2559
    const std::string error = "40231 channel ScanAngle, points 2048 to 2559: digest differs";
    const auto rows = [](double first, double last) { // 200 points each, in the order of y
        Bounds box = Bounds::Huge();
        box.y = {SampleCloud::offsets[1] + first * 0.6 - 0.1, SampleCloud::offsets[1] + last * 0.6 + 0.1};
        return box;
    };
    EXPECT_EQ(outcome(file, rows(9, 13)), error); // points 1800 to 2799
    EXPECT_EQ(outcome(file, rows(0, 11)), "2400 points");
    EXPECT_EQ(outcome(file, rows(12, 24)), "2600 points");
    EXPECT_EQ(outcome(file, Bounds::Huge(), 0.6), error) << "all points are decoded";
    EXPECT_EQ(outcome(file, Bounds::Huge(), 0.5), "2500 points");
    const PointInfo others = layoutXYZ({channel("Intensity", UINT16)});
    EXPECT_EQ(outcome(file, Bounds::Huge(), 1, &others), "5000 points");
    const PointInfo wide = layoutXYZ({channel("ScanAngle", SINT32)});
    EXPECT_EQ(outcome(file, Bounds::Huge(), 1, &wide), error);
    EXPECT_EQ(outcome(digests.addTo(plain), Bounds::Huge(), 1, &wide), "5000 points");
}

// The index leaves out the points from 1000 to 1999, so that the box has two ranges.
TEST_F(VerifiedFile, ComparesBlocksOfSeveralRanges)
{
    FilePlan plan = cloud.toFile();
    cloud.addIndex(plan, 2, 50);
    for (std::size_t entry = 20; entry < 40; ++entry)
        plan.indexBoxes[entry].x = {600000, 600000};
    plain = buildFile(plan);
    digests = DigestChunk::of(plain, blockBits);
    Bounds box = Bounds::Huge();
    box.x.max = SampleCloud::offsets[0] + 70;
    const std::string expected = outcome(plain, box);
    EXPECT_EQ(outcome(digests.addTo(plain), box), expected);
    for (const std::size_t block : {1, 2, 3}) // decoded in part, or not at all
        EXPECT_EQ(outcome(differing({{3, block}}), box), expected) << block;
    EXPECT_EQ(outcome(differing({{3, 0}}), box), "40231 channel Intensity, points 0 to 511: digest differs");
    EXPECT_EQ(outcome(differing({{3, 4}}), box),
              "40231 channel Intensity, points 2048 to 2559: digest differs");
}

TEST_F(VerifiedFile, ReportsDamageOfOtherParts)
{
    const Bytes file = digests.addTo(plain);
    const VX7Chunks chunks = VX7Chunks::parse(file);
    const auto at = [&](std::uint32_t id) { return VX7Chunks(chunks).find(id)->position; };
    Bounds box = Bounds::Huge();
    box.x.min = SampleCloud::offsets[0] + 10;
    const std::string inBox = outcome(plain, box), all = "5000 points";
    const std::string described = "40231 headers and metadata: digest differs",
                      damaged = "40231 the digests are damaged";
    const struct
    {
        std::size_t at; // of the byte that is changed
        std::string whole, inBox;
        std::uint8_t bits = 1;
    } cases[] = {
        {at(CHUNK_WAVELET_HEADER) + 13 + 38, described, described}, // the largest X
        {at(CHUNK_METADATA) + 7, described, described},             // the number of records
        {at(CHUNK_WKT) + 6, described, described},
        {at(CHUNK_EXTENDED_HEADER) + 12, described, described}, // a name
        {at(CHUNK_INDEX) + 5 + 54 + 30, all, "40231 the index: digest differs"},
        {at(DigestChunk::id) - 12, all, inBox},         // the id: other chunks are ignored
        {at(DigestChunk::id) - 1, damaged, damaged, 4}, // the length
        {at(DigestChunk::id) - 8, all, inBox},          // a length above that of the file
        {at(DigestChunk::id), damaged, damaged},
        {at(DigestChunk::id) + 1, damaged, damaged},
        {at(DigestChunk::id) + 12 + 8, damaged, damaged},
        {file.size() - 1, damaged, damaged},
    };
    for (const auto& each : cases) {
        Bytes bytes = file;
        bytes[each.at] ^= each.bits;
        EXPECT_EQ(outcome(bytes), each.whole) << each.at;
        EXPECT_EQ(outcome(bytes, box), each.inBox) << each.at;
    }
    Bytes cut = file;
    cut.resize(cut.size() - 3);
    EXPECT_EQ(outcome(cut), damaged);

    // Digests that are consistent, but not of this file.
    const auto changed = [&](const std::function<void(DigestChunk&)>& change) {
        DigestChunk chunk = digests;
        change(chunk);
        return outcome(chunk.addTo(plain));
    };
    EXPECT_EQ(changed([](auto& chunk) { chunk.version = 2; }), all) << "of a newer writer";
    EXPECT_EQ(changed([](auto& chunk) { chunk.numPoints ^= 1; }), damaged);
    EXPECT_EQ(changed([](auto& chunk) { chunk.numChannels = 0; }), damaged);
    EXPECT_EQ(changed([](auto& chunk) { chunk.samples.pop_back(); }), damaged);
    EXPECT_EQ(changed([](auto& chunk) { chunk.blockBits = 63; }), damaged);
    EXPECT_EQ(changed([](auto& chunk) { chunk.samples.clear(); }), damaged);
}

}} // namespace Quillmoran::Testing
