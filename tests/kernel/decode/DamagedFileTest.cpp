// Damaged files: each invalid field has its own error. robustness/DamageTest tests random damage.
#include "support/ReadPoints.h"
#include "support/SampleCloud.h"
#include "support/Test.h"
#include "support/VX7Chunks.h"

namespace Quillmoran::Testing { namespace {

// Opens the file and decodes everything.
std::string outcome(const Bytes& bytes)
{
    std::size_t count = 0;
    const std::string failure = failureOf([&] {
        const auto reader = openFile(bytes);
        Metadata metadata;
        reader->loadMetadata(metadata, false);
        count = readAll(*reader, Bounds::Huge(), 1, 64).count;
    });
    return failure == "no error" ? std::to_string(count) + " points" : failure;
}

void set(Bytes& bytes, std::size_t at, std::size_t size, std::uint64_t value)
{
    for (std::size_t i = 0; i < size; ++i)
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * (size - 1 - i)));
}

enum Edit
{
    SET,    // `size` bytes to `value`
    RESIZE, // the payload of the chunk to `at` bytes; the lengths around it stay consistent
    CUT     // the file
};

constexpr unsigned wholeFile = 0;
constexpr std::uint64_t minusOne = UINT64_MAX;

struct Damage
{
    Edit edit;
    unsigned chunk; // the first chunk with this id, or wholeFile
    int at;         // position in the payload of the chunk, or in the file
    std::string outcome;
    std::size_t size = 0;
    std::uint64_t value = 0;
};

class SmallFile
{
public:
    explicit SmallFile(std::uint8_t indexVersion, std::uint8_t bandVersion = 3)
    {
        const SampleCloud cloud = SampleCloud::make(100, 5);
        FilePlan plan = cloud.toFile();
        plan.numLevels = 2;
        plan.bandVersion = bandVersion;
        plan.wkt = "LOCAL_CS";
        plan.classNames = {std::string("a"), std::nullopt, std::string("Ground")};
        plan.extendedHeader = true;
        const double value = 100;
        plan.metadata.add("PreCompressionPointCount", "count", METADATA_FLOAT64_ARRAY, &value, 1);
        cloud.addIndex(plan, indexVersion, 10);
        bytes = buildFile(plan);
    }

    VX7Chunks::Chunk chunk(unsigned id) const { return *VX7Chunks::parse(bytes).find(id); }

    Bytes damaged(const Damage& damage) const
    {
        VX7Chunks file = VX7Chunks::parse(bytes);
        VX7Chunks::Chunk* const chunk = file.find(damage.chunk);
        if (damage.edit == RESIZE) {
            chunk->payload.resize(static_cast<std::size_t>(damage.at));
            return file.toBytes();
        }
        const std::size_t at = (chunk ? chunk->position : 0) + static_cast<std::size_t>(damage.at);
        Bytes changed = bytes;
        if (damage.edit == SET)
            set(changed, at, damage.size, damage.value);
        else
            changed.resize(at);
        return changed;
    }

    void expectOutcomes(const std::vector<Damage>& damages) const
    {
        for (const Damage& damage : damages)
            EXPECT_EQ(outcome(damaged(damage)), damage.outcome)
                << "edit=" << damage.edit << " chunk=" << damage.chunk << " at=" << damage.at;
    }

    Bytes bytes;
};

TEST(DamagedFile, ReportsEachInvalidField)
{
    const SmallFile file(2);
    ASSERT_EQ(outcome(file.bytes), "100 points");
    const int firstRecord = 13;
    const auto bandLength = file.chunk(CHUNK_SUBBAND).payload.size();
    file.expectOutcomes({
        {CUT, wholeFile, 7, "40209 bad read -- file header"},
        {CUT, wholeFile, 15, "40209 bad read -- file length"},
        {CUT, wholeFile, 19, "40201 bad read -- chunk id"},
        {CUT, wholeFile, 27, "40201 bad read -- chunk length"},
        {CUT, wholeFile, static_cast<int>(file.bytes.size()) - 1, "40219 bad read -- channel name"},
        {SET, wholeFile, 0, "40211 not a Vexil file", 4, 0x7678696d},
        {SET, wholeFile, 4, "40211 not a LiDAR file", 1, 3},
        {SET, wholeFile, 5, "40211 unsupported version", 1, 1},
        {SET, wholeFile, 6, "40211 unsupported version", 1, 1},
        {SET, wholeFile, 7, "40211 unsupported version", 1, 0},
        {SET, wholeFile, 7, "40211 unsupported version", 1, 5},
        {SET, wholeFile, 8, "100 points", 8, minusOne}, // only a bound, and unsigned
        {SET, wholeFile, 8, "40209 chunk length error", 8, 11},
        {SET, wholeFile, 8, "40209 chunk length error", 8, file.bytes.size() - 17},
        {SET, wholeFile, 16, "40209 unsupported group type", 4, 2},
        {SET, wholeFile, 20, "40209 chunk length error", 8, minusOne},

        {RESIZE, CHUNK_WAVELET_HEADER, 0, "40203 bad read -- header version"},
        {RESIZE, CHUNK_WAVELET_HEADER, 12, "40203 bad read -- wavelet header"},
        {RESIZE, CHUNK_WAVELET_HEADER, firstRecord + 38, "40203 chunk length error"},
        {RESIZE, CHUNK_WAVELET_HEADER, firstRecord + 54, "40203 chunk length error"}, // has a scale
        {CUT, CHUNK_WAVELET_HEADER, firstRecord + 20, "40203 bad read -- channel info"},
        {CUT, CHUNK_WAVELET_HEADER, firstRecord + 54, "40203 bad read -- channel info"},
        {SET, CHUNK_WAVELET_HEADER, 0, "40211 unsupported header version", 1, 3},
        {SET, CHUNK_WAVELET_HEADER, 1, "40203 bad read -- wavelet header", 8, minusOne},
        {SET, CHUNK_WAVELET_HEADER, 9, "40207 bad channel order", 2, 0xFFFF},   // levels
        {SET, CHUNK_WAVELET_HEADER, 11, "40203 chunk length error", 2, 0xFFFF}, // channels
        {SET, CHUNK_WAVELET_HEADER, firstRecord + 18, "-1 bad transform type", 1, 4},
        {SET, CHUNK_WAVELET_HEADER, firstRecord + 19, "40203 bad read -- channel info", 4, 0},
        // There are no headers for a huge number of points; the error must be reported quickly.
        {SET, CHUNK_WAVELET_HEADER, 1, "40207 bad read -- subblock header", 8, INT64_MAX},

        {RESIZE, CHUNK_INDEX, 5 + 53, "40014 bad read -- count"},
        {SET, CHUNK_INDEX, 5 + 54, "40014 bad read -- node count", 1, 11},
        {CUT, CHUNK_INDEX, 5 + 54, "40014 bad read -- node count"},

        {RESIZE, CHUNK_SUBBAND, 0, "40207 bad read -- header version"},
        {RESIZE, CHUNK_SUBBAND, 4, "40207 bad read -- subband header"},
        {RESIZE, CHUNK_SUBBAND, 20, "40207 bad read -- subband lengths"},
        {RESIZE, CHUNK_SUBBAND, static_cast<int>(bandLength) - 1, "40207 chunk length error"},
        {SET, CHUNK_SUBBAND, 0, "40211 unsupported subband version", 1, 4},
        {SET, CHUNK_SUBBAND, 1, "40207 bad channel order", 2, 1},
        {SET, CHUNK_SUBBAND, 3, "40207 bad subband order", 2, 1},
        {SET, CHUNK_SUBBAND, 5, "40207 chunk length error", 8, minusOne},
        {SET, CHUNK_SUBBAND, 13, "40207 chunk length error", 8, bandLength},

        {RESIZE, CHUNK_METADATA, 6, "40008 bad read -- numRecords"},
        {SET, CHUNK_METADATA, 0, "40008 unsupported version", 4, 1},
        {SET, CHUNK_METADATA, 4, "40008 bad read -- key length", 4, 2}, // never past the chunk
        {SET, CHUNK_METADATA, 8, "40008 bad read -- key data", 4, 0xFFFFFFFF},

        {RESIZE, CHUNK_WKT, 4, "40214 wkt chunk is the wrong size"},
        {CUT, CHUNK_WKT, 0, "40214 bad read -- version"},
        {CUT, CHUNK_WKT, 4, "40214 bad write -- wkt length"},
        {CUT, CHUNK_WKT, 7, "40214 bad write -- wkt data"},
        {SET, CHUNK_WKT, 0, "40211 unsupported wkt version", 1, 2},
        {SET, CHUNK_WKT, 1, "40214 wkt chunk is the wrong size", 4, 8}, // and a NUL
        {SET, CHUNK_WKT, 1, "40214 wkt chunk is the wrong size", 4, 0xFFFFFFFF},

        {CUT, CHUNK_CLASS_NAMES, 0, "40216 bad read -- version"},
        {CUT, CHUNK_CLASS_NAMES, 4, "40216 bad read -- count"},
        {CUT, CHUNK_CLASS_NAMES, 8, "40216 bad write -- name length"},
        {CUT, CHUNK_CLASS_NAMES, 10, "40216 bad write -- name data"},
        {SET, CHUNK_CLASS_NAMES, 0, "40211 unsupported class names version", 1, 0},
        {SET, CHUNK_CLASS_NAMES, 1, "40216 class names chunk is the wrong size", 4, 0xFFFFFFFF},
        {SET, CHUNK_CLASS_NAMES, 1, "40216 class names chunk is the wrong size", 4, 2},
        {SET, CHUNK_CLASS_NAMES, 5, "40216 class names chunk is the wrong size", 4, 0x7FFFFFFF},

        {CUT, CHUNK_EXTENDED_HEADER, 0, "40220 bad read -- extened header version"},
        {CUT, CHUNK_EXTENDED_HEADER, 2, "40219 bad read -- channel name length"},
        {SET, CHUNK_EXTENDED_HEADER, 0, "40211 unsupported extended header version", 1, 2},
        {SET, CHUNK_EXTENDED_HEADER, -12, "100 points", 4, 99}, // left unread
        {SET, CHUNK_EXTENDED_HEADER, -8, "40219 chunk length error", 8, minusOne},
    });

    // Newer versions may append fields.
    for (const unsigned chunk : {CHUNK_WAVELET_HEADER, CHUNK_INDEX, CHUNK_SUBBAND}) {
        const auto length = static_cast<int>(file.chunk(chunk).payload.size());
        file.expectOutcomes({{RESIZE, chunk, length + 3, "100 points"}});
    }

    SmallFile(1).expectOutcomes({
        {RESIZE, CHUNK_INDEX, 0, "40205 bad read -- header version"},
        {RESIZE, CHUNK_INDEX, 4, "40205 bad read -- index header"},
        {RESIZE, CHUNK_INDEX, 8, "40014 bad read -- count"},
        {CUT, CHUNK_INDEX, 40, "40014 bad read -- index bounds"},
        {SET, CHUNK_INDEX, 0, "40211 unsupported index version", 1, 3},
        {SET, CHUNK_INDEX, 5, "40014 bad read -- index bounds", 4, 0xFFFFFFFF},
    });
}

TEST(DamagedFile, ReportsABadChunkHeader)
{
    const SmallFile file(2);
    const std::pair<unsigned, std::string> chunks[] = {
        {CHUNK_WAVELET_HEADER, "40203"}, {CHUNK_INDEX, "40205"}, {CHUNK_SUBBAND, "40207"},
        {CHUNK_METADATA, "40212"},       {CHUNK_WKT, "40214"},   {CHUNK_CLASS_NAMES, "40216"}};
    for (const auto& [id, code] : chunks) {
        const std::size_t left = file.bytes.size() - file.chunk(id).position; // in the group
        file.expectOutcomes({{SET, id, -12, code + " bad chunk order", 4, 99},
                             {SET, id, -8, code + " chunk length error", 8, minusOne},
                             {SET, id, -8, code + " chunk length error", 8, left + 1},
                             {CUT, id, -9, "40201 bad read -- chunk id"},
                             {CUT, id, -1, "40201 bad read -- chunk length"}});
    }
}

TEST(DamagedFile, ReportsAnErrorAtEveryLength)
{
    for (const std::uint8_t bandVersion : {std::uint8_t{1}, std::uint8_t{3}}) {
        const SmallFile file(1, bandVersion);
        for (int size = 0; size < static_cast<int>(file.bytes.size()); ++size) {
            const std::string result = outcome(file.damaged({CUT, wholeFile, size, ""}));
            ASSERT_EQ(result.find("points"), std::string::npos) << "size=" << size << " " << result;
        }
    }
}

// A file of several blocks, one of which fails. Its chains must not be used again.
TEST(DamagedFile, ReturnsNoPointsAfterAnError)
{
    FilePlan plan = SampleCloud::make(60000, 5).toFile();
    plan.channels.resize(3);
    const Bytes whole = buildFile(plan);
    int failures = 0;
    for (std::size_t at = whole.size() / 2; at + 40 < whole.size(); at += whole.size() / 80) {
        Bytes bytes = whole;
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), 40, std::uint8_t{0xFF});
        Scoped<PointIterator> points;
        PointData block;
        const std::string failure = failureOf([&] {
            const auto reader = openFile(bytes);
            block.init(reader->getPointInfo(), 1000);
            points.reset(reader->createIterator(Bounds::Huge(), 1, reader->getPointInfo(), nullptr));
            while (points->getNextPoints(block) != 0) {
            }
        });
        if (failure == "no error" || !points)
            continue;
        ++failures;
        EXPECT_EQ(points->getNextPoints(block), 0u) << "at=" << at;
    }
    EXPECT_GT(failures, 0);
}

// Consistent lengths at the end of their range.
TEST(DamagedFile, ReportsAbsurdLengths)
{
    SmallFile file(2);
    set(file.bytes, 8, 8, minusOne);
    set(file.bytes, 20, 8, INT64_MAX);
    set(file.bytes, file.chunk(CHUNK_WAVELET_HEADER).position - 8, 8, INT64_MAX - 12);
    EXPECT_EQ(outcome(file.bytes), "40201 bad read -- chunk id");
}

// Eight channels whose few bytes announce one subblock of 2^24 wide samples.
TEST(DamagedFile, RefusesMoreMemoryThanItsSizeJustifies)
{
    const auto decodeBlock = [](std::int64_t sample, std::uint32_t size) {
        FilePlan plan = SampleCloud::make(4, 7).toFile();
        plan.numLevels = 1;
        plan.channels.resize(3);
        for (int i = 0; i < 5; ++i)
            plan.channels.push_back(integerChannel("c" + std::to_string(i), SINT64, {}, 10));
        for (ChannelPlan& channel : plan.channels) {
            channel.integers.assign(4, 0);
            channel.subblockSize = size;
            if (channel.type == SINT64)
                channel.integers[3] = sample;
        }
        Bytes bytes = buildFile(plan);
        set(bytes, VX7Chunks::parse(bytes).find(CHUNK_WAVELET_HEADER)->position + 1, 8, size); // points
        return failureOf([&] {
            const auto reader = openFile(bytes);
            const PointInfo& layout = reader->getPointInfo();
            const Scoped<PointIterator> points(reader->createIterator(Bounds::Huge(), 1, layout, nullptr));
            PointData block;
            block.init(layout, 1000);
            EXPECT_EQ(points->getNextPoints(block), 1000u);
        });
    };
    EXPECT_EQ(decodeBlock(std::int64_t{1} << 40, 1 << 24), "40203 bad read -- channel info");
    EXPECT_EQ(decodeBlock(0, 1 << 24), "no error"); // zeros need no memory
    EXPECT_EQ(decodeBlock(0, (1 << 24) + 1), "40203 bad read -- channel info");
}

// Thousands of levels with one sample each. Tens of thousands of channels: with blocks of 16,384 points the
// points would use gigabytes, and linear search of names would take minutes.
TEST(DamagedFile, DecodesManyLevelsAndChannels)
{
    FilePlan plan = SampleCloud::make(9, 3).toFile();
    plan.channels.resize(3);
    plan.numLevels = 3000;
    EXPECT_EQ(outcome(buildFile(plan)), "9 points");
    plan.numLevels = 1;
    for (int i = 0; i < 60000; ++i)
        plan.channels.push_back(
            integerChannel("c" + std::to_string(i), UINT8, std::vector<std::int64_t>(9), 10));
    EXPECT_EQ(outcome(buildFile(plan)), "9 points");
}

}} // namespace Quillmoran::Testing
