// Copies of files with fewer channels or another description: what is the same as in the source, and that the
// rest is complete.
#include "rewrite/VX7Rewriter.h"

#include "support/DigestChunk.h"
#include "support/RandomCloud.h"
#include "support/SampleCloud.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

Bytes rewrite(const Bytes& file, const RewriteOptions& options, ProgressDelegate* delegate = nullptr)
{
    const auto store = ByteStore::make();
    VX7Rewriter(*openFile(file), options).write(store.get(), delegate);
    return store->bytes();
}

// X, Y, Z and a random choice of the others.
PointInfo someOf(const PointInfo& layout, Random& random)
{
    PointInfo some;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        if (const std::string name = layout.getChannel(i).getName();
            name == "X" || name == "Y" || name == "Z" || random.chance(0.5))
            some.append(layout.getChannel(i));
    return some;
}

// The points of a box with the channels of `layout`.
Points pointsOf(const Bytes& file, const PointInfo& layout, const Bounds& box)
{
    const auto reader = openFile(file);
    const Scoped<PointIterator> iterator(reader->createIterator(box, 1, layout, nullptr));
    PointData block;
    block.init(layout, 10000);
    Points points;
    points.count = iterator->getNextPoints(block);
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const auto* const bytes = static_cast<const std::uint8_t*>(block.getChannel(i).getData());
        points.channels.emplace_back(
            bytes, bytes + points.count * DataTypeUtils::getSize(layout.getChannel(i).getDataType()));
    }
    return points;
}

// The bands without the numbers of their channels.
std::vector<Bytes> bandsOf(const Bytes& file)
{
    std::vector<Bytes> bands;
    for (VX7Chunks::Chunk& chunk : VX7Chunks::parse(file).chunks)
        if (chunk.id == CHUNK_SUBBAND)
            bands.push_back(std::move(chunk.payload)), bands.back()[1] = bands.back()[2] = 0;
    return bands;
}

void expectSamePoints(const Bytes& file, const Bytes& copy, const PointInfo& kept)
{
    const auto whole = openFile(file), part = openFile(copy);
    EXPECT_STREQ(part->getFileFormatString(), whole->getFileFormatString());
    ASSERT_EQ(part->getNumChannels(), kept.getNumChannels());
    for (std::size_t i = 0; i < kept.getNumChannels(); ++i)
        EXPECT_TRUE(part->getChannel(i).isNamed(kept.getChannel(i).getName()));
    Bounds lower = whole->getBounds();
    lower.x.max = (lower.x.min + lower.x.max) / 2;
    for (const Bounds& box : {Bounds::Huge(), lower})
        EXPECT_TRUE(pointsOf(copy, kept, box) == pointsOf(file, kept, box));
    for (const auto id : {CHUNK_WAVELET_HEADER, CHUNK_INDEX})
        EXPECT_EQ(VX7Chunks::parse(copy).find(id)->payload[0], VX7Chunks::parse(file).find(id)->payload[0]);

    const std::vector<Bytes> bands = bandsOf(copy), all = bandsOf(file);
    auto at = all.begin(); // the kept bands are in the order of the file
    for (const Bytes& band : bands) {
        at = std::find(at, all.end(), band);
        ASSERT_TRUE(at != all.end());
        ++at;
    }
}

TEST(VX7Rewriter, KeepsTheBandsIndexAndDigestsOfChannels)
{
    for (std::uint64_t seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        EncodeOptions options = randomOptions(random);
        if (seed % 3 == 0)
            options.pointsPerEntry = 4; // a tree of up to four levels
        const Bytes file = packWith(*makeRandomCloud(random, seed * 50, 8), options);
        EXPECT_TRUE(rewrite(file, {}) == file);
        const PointInfo kept = someOf(openFile(file)->getPointInfo(), random);
        const Bytes copy = rewrite(file, {kept, {}, {}});
        expectSamePoints(file, copy, kept);
        EXPECT_EQ(VX7Chunks::parse(copy).chunks.back().payload, DigestChunk::of(copy).payload());
    }
}

TEST(VX7Rewriter, CopiesFilesOfOtherWriters)
{
    for (unsigned i = 0; i < 24; ++i) {
        SCOPED_TRACE(i);
        const SampleCloud cloud = SampleCloud::make(i == 0 ? 0 : 1500, i);
        FilePlan plan = cloud.toFile();
        plan.version = static_cast<std::uint8_t>(1 + i % 4);
        plan.headerVersion = static_cast<std::uint8_t>(1 + i % 2);
        plan.bandVersion = static_cast<std::uint8_t>(1 + i / 4 % 3);
        plan.swapRanges = i % 5 == 4;
        plan.planeLengthsWithoutLifting = plan.version < 4 && plan.bandVersion > 1 && i % 3 == 0;
        plan.channels[4].name = "a name that is longer than the record holds";
        plan.extendedHeader = true;
        plan.classNames = {"never", std::nullopt, "ground"};
        plan.wkt = "LOCAL_CS[\"grid\"]";
        cloud.addIndex(plan, static_cast<std::uint8_t>(1 + i % 2), 5);
        Bytes file = buildFile(plan);
        if (i % 2 == 1)
            file = DigestChunk::of(file, 7).addTo(file);
        Random random(i);
        const PointInfo kept = someOf(openFile(file)->getPointInfo(), random);
        const Bytes copy = rewrite(file, {kept, {}, {}});
        expectSamePoints(file, copy, kept);
        const auto whole = openFile(file), part = openFile(copy);
        EXPECT_STREQ(part->getWKT(), whole->getWKT());
        ASSERT_EQ(part->getNumClassIdNames(), plan.version == 1 ? 0u : 3u);
        EXPECT_TRUE(plan.version == 1 || std::strcmp(part->getClassIdNames()[2], "ground") == 0);
        const VX7Chunks::Chunk last = VX7Chunks::parse(copy).chunks.back();
        EXPECT_EQ(last.id == DigestChunk::id, i % 2 == 1);
        EXPECT_TRUE(i % 2 == 0 || last.payload == DigestChunk::of(copy, 7).payload());
    }
}

TEST(VX7Rewriter, ReplacesTheDescription)
{
    Random random(5);
    const Bytes file = packWith(*makeRandomCloud(random, 300, 4));
    Metadata metadata;
    metadata.add("Owner", nullptr, METADATA_STRING, "a county", 0);
    const double decimals = 2;
    for (const char* channel : {"Z", "Gone"})
        metadata.add("TextDecimals", channel, METADATA_FLOAT64_ARRAY, &decimals, 1);
    const Bytes copy = rewrite(file, {{}, metadata, "LOCAL_CS[\"grid\"]"});
    EXPECT_STREQ(openFile(copy)->getWKT(), "LOCAL_CS[\"grid\"]");
    EXPECT_TRUE(readAll(*openFile(copy)) == readAll(*openFile(file))); // also compares the digests
    const auto keysOf = [](const Bytes& bytes) {
        Metadata records;
        openFile(bytes)->loadMetadata(records, false);
        Strings keys;
        for (std::size_t i = 0; i < records.getNumRecords(); ++i)
            keys.push_back(records.getKey(i) + std::string(" ") +
                           (records.getDescription(i) ? records.getDescription(i) : ""));
        return keys;
    };
    EXPECT_EQ(keysOf(copy), Strings({"Owner ", "TextDecimals Z", "TextDecimals Gone"}));
    const Bytes coordinates = rewrite(copy, {layoutXYZ(), {}, ""});
    EXPECT_EQ(openFile(coordinates)->getWKT(), nullptr);
    EXPECT_EQ(keysOf(coordinates), Strings({"Owner ", "TextDecimals Z"}));
}

TEST(VX7Rewriter, RefusesDamageAndStopsWhenAsked)
{
    Random random(7);
    EncodeOptions options;
    options.pointsPerEntry = 2;
    const Bytes file = packWith(*makeRandomCloud(random, 900, 3), options);
    const auto failure = [](const Bytes& bytes, ProgressDelegate* delegate = nullptr) {
        return failureOf([&] { rewrite(bytes, {layoutXYZ(), {}, {}}, delegate); });
    };
    EXPECT_EQ(failureOf([&] {
                  rewrite(file, {layoutOf({channel("X", FLOAT64)}), {}, {}});
              }),
              "40007 must have x, y, and z channels");
    VX7Chunks parts = VX7Chunks::parse(file);
    const std::size_t index = parts.find(CHUNK_INDEX)->position;
    for (const auto& [at, error] :
         {std::pair(index + 100, "the index: digest differs"),
          {parts.find(CHUNK_METADATA)->position + 14, "headers and metadata: digest differs"},
          {file.size() - 30, "the digests are damaged"}}) {
        Bytes changed = file;
        changed[at] ^= 1;
        EXPECT_EQ(failure(changed), std::string("40231 ") + error);
    }
    // Without digests, positions in the index are all that protects it: a child that is its parent, one in the
    // preamble, one after the end, and two that are the same.
    parts.chunks.pop_back();
    const Bytes plain = parts.toBytes();
    EXPECT_EQ(failure(plain), "no error");
    const std::size_t root = index + 5 + 54;
    for (const std::uint32_t child : {std::uint32_t(root), std::uint32_t(index), std::uint32_t(plain.size()),
                                      loadBigEndian<std::uint32_t>(&plain[root + 1 + 28 + 24])}) {
        Bytes changed = plain;
        storeBigEndian(&changed[root + 1 + 24], child);
        EXPECT_EQ(failure(changed).substr(0, 18), "40014 bad read -- ") << child;
    }
    ProgressLog log;
    EXPECT_EQ(failure(file, &log), "no error");
    EXPECT_DOUBLE_EQ(log.last(), 1);
    ProgressLog stopped(3);
    EXPECT_EQ(failure(file, &stopped), "40006 VX7 Write operation cancelled.");
}

}} // namespace Quillmoran::Testing
