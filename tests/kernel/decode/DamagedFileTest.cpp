// Damaged files: each invalid field has its own error. robustness/DamageTest tests random damage.
#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/SampleCloud.h"
#include <vxunpack/Base.h>
#include <vxunpack/PointWriter.h>
#include <vxunpack/VX7PointReader.h>

#include <functional>
#include <gtest/gtest.h>
#include <map>

namespace Quillmoran {
namespace {

using Testing::Bytes;
using Testing::ByteStore;
using Testing::FilePlan;
using Testing::SampleCloud;

// Opens the file and decodes everything, as the program does.
std::string outcome(const Bytes& bytes)
{
    try {
        const Scoped<ByteStore> store(ByteStore::create(bytes));
        const Scoped<VX7PointReader> reader(VX7PointReader::create());
        reader->init(store.get());
        const Scoped<NULLPointWriter> writer(NULLPointWriter::create());
        writer->init(reader.get());
        const auto count = writer->write(Bounds::Huge(), 1.0, reader->getPointInfo(), nullptr);
        return std::to_string(count) + " points";
    } catch (const Error& error) {
        return std::to_string(error.error()) + " " + error.what();
    }
}

std::uint64_t get(const Bytes& bytes, std::size_t at, std::size_t size)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i)
        value = value << 8 | bytes[at + i];
    return value;
}

void set(Bytes& bytes, std::size_t at, std::size_t size, std::uint64_t value)
{
    for (std::size_t i = 0; i < size; ++i)
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * (size - 1 - i)));
}

// A small file. payload(id, n) is the position of the payload of the n-th chunk with an id.
class SmallFile
{
public:
    explicit SmallFile(std::uint8_t indexVersion = 2, std::uint8_t bandVersion = 3)
    {
        cloud = SampleCloud::make(100, 5);
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
        std::size_t at = 28;
        while (at < bytes.size()) {
            const auto id = static_cast<unsigned>(get(bytes, at, 4));
            m_payloads[id].push_back(at + 12);
            at += 12 + get(bytes, at + 4, 8);
        }
    }

    std::size_t payload(unsigned id, std::size_t n = 0) const { return m_payloads.at(id).at(n); }
    std::size_t length(unsigned id, std::size_t n = 0) const { return get(bytes, payload(id, n) - 8, 8); }

    std::string with(std::size_t at, std::size_t size, std::uint64_t value) const
    {
        Bytes changed = bytes;
        set(changed, at, size, value);
        return outcome(changed);
    }
    // Shortens a payload to `size` bytes; the rest of the file stays consistent.
    std::string shortened(unsigned id, std::size_t size, std::size_t n = 0) const
    {
        Bytes changed = bytes;
        const std::size_t at = payload(id, n);
        const std::size_t cut = length(id, n) - size;
        const auto first = changed.begin() + static_cast<std::ptrdiff_t>(at + size);
        changed.erase(first, first + static_cast<std::ptrdiff_t>(cut));
        set(changed, at - 8, 8, size);
        set(changed, 8, 8, get(changed, 8, 8) - cut);
        set(changed, 20, 8, get(changed, 20, 8) - cut);
        return outcome(changed);
    }
    std::string truncated(std::size_t size) const
    {
        return outcome(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)));
    }

    Bytes bytes;
    SampleCloud cloud;

private:
    std::map<unsigned, std::vector<std::size_t>> m_payloads;
};

constexpr std::uint64_t minusOne = UINT64_MAX;

TEST(DamagedFile, ReportsABadPreambleAndGroup)
{
    const SmallFile file;
    ASSERT_EQ(outcome(file.bytes), "100 points");
    EXPECT_EQ(file.truncated(0), "40209 bad read -- file header");
    EXPECT_EQ(file.truncated(7), "40209 bad read -- file header");
    EXPECT_EQ(file.truncated(15), "40209 bad read -- file length");
    EXPECT_EQ(file.truncated(19), "40201 bad read -- chunk id");
    EXPECT_EQ(file.truncated(27), "40201 bad read -- chunk length");
    EXPECT_EQ(file.with(0, 4, 0x7678696d), "40211 not a Vexil file");
    EXPECT_EQ(file.with(4, 1, 3), "40211 not a LiDAR file");
    EXPECT_EQ(file.with(5, 1, 1), "40211 unsupported version");
    EXPECT_EQ(file.with(7, 1, 0), "40211 unsupported version");
    EXPECT_EQ(file.with(7, 1, 5), "40211 unsupported version");
    EXPECT_EQ(file.with(8, 8, minusOne), "100 points"); // only a bound, and unsigned
    EXPECT_EQ(file.with(8, 8, 11), "40209 chunk length error");
    EXPECT_EQ(file.with(16, 4, 2), "40209 unsupported group type");
    EXPECT_EQ(file.with(20, 8, minusOne), "40209 chunk length error");
    EXPECT_EQ(file.with(20, 8, file.bytes.size()), "40209 chunk length error");
}

TEST(DamagedFile, ReportsABadChunkHeader)
{
    const SmallFile file;
    const std::pair<unsigned, const char*> chunks[] = {{2, "40203"}, {3, "40205"}, {4, "40207"},
                                                       {5, "40212"}, {6, "40214"}, {7, "40216"}};
    for (const auto& [id, code] : chunks) {
        const std::size_t at = file.payload(id);
        EXPECT_EQ(file.with(at - 12, 4, 99), code + std::string(" bad chunk order")) << id;
        EXPECT_EQ(file.with(at - 8, 8, minusOne), code + std::string(" chunk length error")) << id;
        EXPECT_EQ(file.with(at - 8, 8, INT64_MAX), code + std::string(" chunk length error")) << id;
        EXPECT_EQ(file.truncated(at - 9), "40201 bad read -- chunk id") << id;
        EXPECT_EQ(file.truncated(at - 1), "40201 bad read -- chunk length") << id;
    }
    EXPECT_EQ(file.with(file.payload(8) - 12, 4, 99), "100 points"); // left unread
    EXPECT_EQ(file.with(file.payload(8) - 8, 8, minusOne), "40219 chunk length error");
}

TEST(DamagedFile, ReportsABadWaveletHeader)
{
    const SmallFile file;
    const std::size_t at = file.payload(2);
    EXPECT_EQ(file.shortened(2, 0), "40203 bad read -- header version");
    EXPECT_EQ(file.shortened(2, 12), "40203 bad read -- wavelet header");
    EXPECT_EQ(file.shortened(2, 13 + 38), "40203 chunk length error");
    EXPECT_EQ(file.shortened(2, 13 + 54), "40203 chunk length error"); // the record has offset and scale
    EXPECT_EQ(file.with(at, 1, 3), "40211 unsupported header version");
    EXPECT_EQ(file.with(at + 1, 8, minusOne), "40203 bad read -- wavelet header");
    EXPECT_EQ(file.with(at + 11, 2, 0xFFFF), "40203 chunk length error"); // channels
    EXPECT_EQ(file.with(at + 9, 2, 0xFFFF), "40207 bad channel order");   // levels
    EXPECT_EQ(file.with(at + 13 + 18, 1, 4), "-1 bad transform type");
    EXPECT_EQ(file.with(at + 13 + 19, 4, 0), "40203 bad read -- channel info");
    EXPECT_EQ(file.truncated(at + 13 + 20), "40203 bad read -- channel info");
    // There are no headers for a huge number of points; any error must be reported quickly.
    EXPECT_EQ(file.with(at + 1, 8, INT64_MAX).substr(0, 6), "40207 ");
}

TEST(DamagedFile, ReportsABadIndex)
{
    const SmallFile memory(1);
    EXPECT_EQ(memory.shortened(3, 0), "40205 bad read -- header version");
    EXPECT_EQ(memory.with(memory.payload(3), 1, 3), "40211 unsupported index version");
    EXPECT_EQ(memory.shortened(3, 4), "40205 bad read -- index header");
    EXPECT_EQ(memory.shortened(3, 8), "40014 bad read -- count");
    EXPECT_EQ(memory.with(memory.payload(3) + 5, 4, 0xFFFFFFFF), "40014 bad read -- index bounds");
    EXPECT_EQ(memory.truncated(memory.payload(3) + 40), "40014 bad read -- index bounds");
    const SmallFile disk(2);
    EXPECT_EQ(disk.shortened(3, 5 + 53), "40014 bad read -- count");
    EXPECT_EQ(disk.with(disk.payload(3) + 5 + 54, 1, 11), "40014 bad read -- node count");
    EXPECT_EQ(disk.truncated(disk.payload(3) + 5 + 54), "40014 bad read -- node count");
}

TEST(DamagedFile, ReportsABadSubband)
{
    const SmallFile file;
    const std::size_t at = file.payload(4, 1);
    EXPECT_EQ(file.shortened(4, 0), "40207 bad read -- header version");
    EXPECT_EQ(file.shortened(4, 4), "40207 bad read -- subband header");
    EXPECT_EQ(file.shortened(4, 20), "40207 bad read -- subband lengths");
    EXPECT_EQ(file.with(at, 1, 4), "40211 unsupported subband version");
    EXPECT_EQ(file.with(at + 1, 2, 1), "40207 bad channel order");
    EXPECT_EQ(file.with(at + 3, 2, 0), "40207 bad subband order");
    EXPECT_EQ(file.with(at + 5, 8, minusOne), "40207 chunk length error");
    EXPECT_EQ(file.with(at + 13, 8, file.length(4, 1)), "40207 chunk length error");
    EXPECT_EQ(file.shortened(4, file.length(4, 1) - 1, 1), "40207 chunk length error");
}

TEST(DamagedFile, ReportsBadTextsAndMetadata)
{
    const SmallFile file;
    const std::size_t wkt = file.payload(6), names = file.payload(7), records = file.payload(5);
    EXPECT_EQ(file.with(wkt, 1, 2), "40211 unsupported wkt version");
    EXPECT_EQ(file.with(wkt + 1, 4, 0xFFFFFFFF), "40214 wkt chunk is the wrong size");
    EXPECT_EQ(file.shortened(6, 4), "40214 wkt chunk is the wrong size");
    EXPECT_EQ(file.truncated(wkt), "40214 bad read -- version");
    EXPECT_EQ(file.truncated(wkt + 4), "40214 bad write -- wkt length");
    EXPECT_EQ(file.truncated(wkt + 7), "40214 bad write -- wkt data");
    EXPECT_EQ(file.with(names, 1, 0), "40211 unsupported class names version");
    EXPECT_EQ(file.with(names + 1, 4, 0xFFFFFFFF), "40216 class names chunk is the wrong size");
    EXPECT_EQ(file.with(names + 1, 4, 2), "40216 class names chunk is the wrong size");
    EXPECT_EQ(file.with(names + 5, 4, 0x7FFFFFFF), "40216 class names chunk is the wrong size");
    EXPECT_EQ(file.truncated(names), "40216 bad read -- version");
    EXPECT_EQ(file.truncated(names + 4), "40216 bad read -- count");
    EXPECT_EQ(file.truncated(names + 8), "40216 bad write -- name length");
    EXPECT_EQ(file.truncated(names + 10), "40216 bad write -- name data");
    EXPECT_EQ(file.with(records, 4, 1), "40008 unsupported version");
    EXPECT_EQ(file.with(records + 4, 4, 2), "40008 bad read -- key length"); // never past the chunk
    EXPECT_EQ(file.with(records + 8, 4, 0xFFFFFFFF), "40008 bad read -- key data");
    EXPECT_EQ(file.shortened(5, 6), "40008 bad read -- numRecords");
    EXPECT_EQ(file.with(file.payload(8), 1, 2), "40211 unsupported extended header version");
    EXPECT_EQ(file.truncated(file.payload(8)), "40220 bad read -- extened header version");
    EXPECT_EQ(file.truncated(file.payload(8) + 2), "40219 bad read -- channel name length");
    EXPECT_EQ(file.truncated(file.bytes.size() - 1), "40219 bad read -- channel name");
}

TEST(DamagedFile, ReportsAnErrorAtEveryLength)
{
    for (const std::uint8_t bandVersion : std::initializer_list<std::uint8_t>{1, 3}) {
        const SmallFile file(1, bandVersion);
        for (std::size_t size = 0; size < file.bytes.size(); ++size) {
            const std::string result = file.truncated(size);
            ASSERT_EQ(result.find("points"), std::string::npos) << "size=" << size << " " << result;
        }
    }
}

// A file of several blocks, the first of which fails. Its chains must not be used again.
TEST(DamagedFile, ReturnsNoPointsAfterAnError)
{
    FilePlan plan = SampleCloud::make(60000, 5).toFile();
    plan.channels.resize(3);
    const Bytes whole = buildFile(plan);
    int failures = 0;
    for (std::size_t at = whole.size() / 2; at < whole.size(); at += whole.size() / 80) {
        Bytes bytes = whole;
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                    std::min<std::size_t>(40, bytes.size() - at), std::uint8_t{0xFF});
        Scoped<PointIterator> points;
        PointData block;
        try {
            const Scoped<ByteStore> store(ByteStore::create(bytes));
            const Scoped<VX7PointReader> reader(VX7PointReader::create());
            reader->init(store.get());
            points.reset(reader->createIterator(Bounds::Huge(), 1, reader->getPointInfo(), nullptr));
            block.init(reader->getPointInfo(), 1000);
            while (points->getNextPoints(block) != 0) {
            }
        } catch (const Error&) {
            if (block.getNumSamples() == 0)
                continue;
            ++failures;
            EXPECT_EQ(points->getNextPoints(block), 0u) << "at=" << at;
        }
    }
    EXPECT_GT(failures, 0);
}

// Consistent lengths at the end of their range.
TEST(DamagedFile, ReportsAbsurdLengths)
{
    SmallFile file;
    set(file.bytes, 8, 8, minusOne);
    set(file.bytes, 20, 8, INT64_MAX);
    set(file.bytes, file.payload(2) - 8, 8, INT64_MAX - 12);
    EXPECT_EQ(outcome(file.bytes), "40201 bad read -- chunk id");
}

// Thousands of levels with one sample each; only the first few have more.
TEST(DamagedFile, DecodesMoreLevelsThanThePointsHave)
{
    SampleCloud cloud = SampleCloud::make(9, 3);
    FilePlan plan = cloud.toFile();
    plan.channels.resize(3);
    plan.numLevels = 3000;
    EXPECT_EQ(outcome(buildFile(plan)), "9 points");
}

// Eight channels whose few bytes announce one subblock of 2^24 wide samples.
TEST(DamagedFile, RefusesMoreMemoryThanItsSizeJustifies)
{
    const auto decodeBlock = [](std::int64_t sample) {
        FilePlan plan = SampleCloud::make(4, 7).toFile();
        plan.numLevels = 1;
        plan.channels.resize(3);
        for (Testing::ChannelPlan& channel : plan.channels)
            channel.integers.assign(4, 0);
        for (int i = 0; i < 5; ++i)
            plan.channels.push_back(
                Testing::integerChannel("c" + std::to_string(i), SINT64, {0, 0, 0, sample}, 10));
        for (Testing::ChannelPlan& channel : plan.channels) {
            channel.subblockSize = 1 << 24;
            channel.droppedPlanes = channel.type == SINT64 ? 40 : 0; // one plane is left, for speed
        }
        Bytes bytes = buildFile(plan);
        constexpr std::size_t numPoints = 16 + 12 + 12 + 1; // after preamble, chunk headers and version
        set(bytes, numPoints, 8, 1 << 24);
        return Testing::failureOf([&] {
            const Scoped<ByteStore> store(ByteStore::create(bytes));
            const Scoped<VX7PointReader> reader(VX7PointReader::create());
            reader->init(store.get());
            const PointInfo& layout = reader->getPointInfo();
            const Scoped<PointIterator> points(reader->createIterator(Bounds::Huge(), 1, layout, nullptr));
            PointData block;
            block.init(layout, 1000);
            EXPECT_EQ(points->getNextPoints(block), 1000u);
        });
    };
    EXPECT_EQ(decodeBlock(std::int64_t{1} << 40), "40203 bad read -- channel info");
    EXPECT_EQ(decodeBlock(0), "no error"); // zeros need no memory
}

// With blocks of 16,384 points the points would use gigabytes, and linear search of names would take minutes.
TEST(DamagedFile, DecodesTensOfThousandsOfChannels)
{
    FilePlan plan = SampleCloud::make(2, 7).toFile();
    plan.numLevels = 1;
    plan.channels.resize(3);
    for (int i = 0; i < 60000; ++i)
        plan.channels.push_back(Testing::integerChannel("c" + std::to_string(i), UINT8, {0, 0}, 10));
    EXPECT_EQ(outcome(buildFile(plan)), "2 points");
}

} // namespace
} // namespace Quillmoran
