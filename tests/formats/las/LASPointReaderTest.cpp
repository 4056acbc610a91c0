#include <vxunpack/LASPointReader.h>

#include "las/laszip/LASzipCoding.h"
#include "las/laszip/LASzipTableCode.h"
#include "platform/ByteOrder.h"
#include "support/LASClouds.h"
#include "support/ProgressLog.h"
#include "support/Test.h"
#include <vxunpack/LASPointWriter.h>

#include <filesystem>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran::Testing { namespace {

class LASReading : public testing::Test
{
protected:
    Scoped<LASPointReader> open(const LASBytes& bytes, bool openFullWaveform = false)
    {
        writeFile(path, bytes);
        Scoped<LASPointReader> reader(LASPointReader::create());
        reader->init(path.c_str(), openFullWaveform);
        return reader;
    }
    // The error of reading the header, the metadata and all points.
    std::string failureOfReading(const LASBytes& bytes)
    {
        std::string message = failureOf([&] {
            const auto reader = open(bytes);
            Metadata metadata;
            reader->loadMetadata(metadata, false);
            readLASPoints(*reader);
        });
        const std::string prefix = "40606 Failed to create LASReader for path = '" + path + "': ";
        return message.rfind(prefix, 0) == 0 ? message.substr(prefix.size()) : message;
    }
    static LASBytes with(LASBytes bytes, std::size_t at, const LASBytes& value)
    {
        std::copy(value.begin(), value.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
        return bytes;
    }
    static LASBytes cut(const LASBytes& bytes, std::size_t length)
    {
        return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)};
    }

    // A compressed file, and where its points, its chunk table and the code after the first point are.
    struct Compressed
    {
        LASBytes bytes;
        std::size_t points, table, code;
    };
    Compressed compress(const LASFile& file)
    {
        const auto source = open(file.build());
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        const std::string compressed = directory / "file.laz";
        writer->init(source.get(), compressed.c_str(), 10 * file.versionMajor + file.versionMinor);
        writer->setWriteLAZ(true);
        writer->write(Bounds::Huge(), 1, source->getPointInfo(), nullptr);
        const std::string bytes = readFile(compressed);
        const std::size_t points = LASFile::load(compressed).pointDataOffset;
        const auto table = loadLittleEndian<std::uint64_t>(&bytes[points]);
        return {{bytes.begin(), bytes.end()}, points, table, points + 8 + LASFile::recordBytes(file.format)};
    }

    // The points in chunks of these sizes, which LASzip's interface does not write.
    LASBytes withVariableChunks(LASFile file, const std::vector<std::size_t>& sizes)
    {
        const std::vector<LASFilePoint> points = std::exchange(file.points, {});
        LASFile none = file;
        none.describePoints();
        const LASBytes whole = compress(none).bytes;
        const std::size_t begin = LASFile::parse(whole).pointDataOffset;
        LASBytes bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(begin) + 8);
        std::vector<LASzipTableEntry> table;
        for (auto first = points.begin(); const std::size_t size : sizes) {
            LASFile part = file;
            part.points.assign(first, first + static_cast<std::ptrdiff_t>(size));
            part.describePoints();
            const Compressed chunk = compress(part);
            bytes.insert(bytes.end(), chunk.bytes.begin() + static_cast<std::ptrdiff_t>(chunk.points + 8),
                         chunk.bytes.begin() + static_cast<std::ptrdiff_t>(chunk.table));
            table.push_back({static_cast<std::uint32_t>(size),
                             static_cast<std::uint32_t>(chunk.table - chunk.points - 8)});
            first += static_cast<std::ptrdiff_t>(size);
        }
        storeLittleEndian(&bytes[begin], static_cast<std::uint64_t>(bytes.size()));
        bytes.insert(bytes.end(), 8, 0);
        storeLittleEndian(&bytes[bytes.size() - 4], static_cast<std::uint32_t>(table.size()));
        const LASBytes code = LASzipTableCode::encode(table, true);
        bytes.insert(bytes.end(), code.begin(), code.end());
        const std::size_t record = LASFile::parse(whole).headerSize; // the only one
        storeLittleEndian(&bytes[record + 54 + 12], LASzipCoding::variableChunks);
        constexpr std::size_t countAt = 247;
        storeLittleEndian(&bytes[countAt], static_cast<std::uint64_t>(points.size()));
        return bytes;
    }

    // What a query of a file delivers: the samples of each block, and the error.
    struct Outcome
    {
        LASBytes samples;
        std::string error;
        bool operator==(const Outcome&) const = default;
    };
    Outcome query(const LASBytes& bytes, int threads, const Bounds& box = Bounds::Huge(),
                  ProgressDelegate* delegate = nullptr)
    {
        Outcome result;
        writeFile(path, bytes);
        tbb::task_arena(threads).execute([&] {
            result.error = failureOf([&] {
                const Scoped<LASPointReader> reader(LASPointReader::create());
                reader->init(path.c_str(), false);
                const PointInfo& layout = reader->getPointInfo();
                const Scoped<PointIterator> iterator(reader->createIterator(box, 1, layout, delegate));
                PointData block;
                block.init(layout, 1000);
                while (const std::size_t count = iterator->getNextPoints(block))
                    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
                        const ChannelData& channel = block.getChannel(i);
                        const auto* const samples = static_cast<const std::uint8_t*>(channel.getData());
                        result.samples.insert(result.samples.end(), samples,
                                              samples +
                                                  count * DataTypeUtils::getSize(channel.getDataType()));
                    }
            });
        });
        return result;
    }

    TemporaryDirectory directory;
    std::string path = directory / "file.las";
};

TEST_F(LASReading, ReadsEveryFieldOfEveryFormat)
{
    for (int format = 0; format <= 10; ++format) {
        LASFile file = randomLASFile(format, format >= 6 ? 4 : 3, 3000, 7);
        file.scale = {0.01, 0.5, 0.125};
        const auto reader = open(file.build(), true);
        EXPECT_TRUE(readLASPoints(*reader) == file.points) << "format " << format;
        // Longer records and headers, and a gap before the points.
        file.recordLength = static_cast<std::uint16_t>(LASFile::recordBytes(format) + 5);
        file.headerSize = 390;
        file.pointDataOffset = 1000;
        EXPECT_TRUE(readLASPoints(*open(file.build(), true)) == file.points) << "format " << format;
    }
}

TEST_F(LASReading, DescribesTheFile)
{
    LASFile file = randomLASFile(8, 4, 10, 1);
    file.globalEncoding = 1;
    file.scale[2] = 0.5;
    const auto reader = open(file.build());
    EXPECT_STREQ(reader->getFileFormatString(), "LAS 1.4");
    EXPECT_EQ(reader->getBounds(),
              (Bounds{{file.min[0], file.max[0]}, {file.min[1], file.max[1]}, {file.min[2], file.max[2]}}));
    std::string channels;
    for (std::size_t i = 0; i < reader->getNumChannels(); ++i) {
        const ChannelInfo& channel = reader->getChannel(i);
        channels += std::string(channel.getName()) + ' ' + DataTypeUtils::toString(channel.getDataType()) +
                    ' ' + std::to_string(channel.getBits()) + '\n';
    }
    EXPECT_EQ(channels, "X FLOAT64 32\nY FLOAT64 32\nZ FLOAT64 32\nIntensity UINT16 16\nReturnNum UINT8 4\n"
                        "NumReturns UINT8 4\nScanDir UINT8 1\nEdgeFlightLine UINT8 1\nClassId UINT8 8\n"
                        "ClassFlags UINT8 4\nScannerChannel UINT8 2\nScanAngle SINT16 16\nUserData UINT8 8\n"
                        "SourceId UINT16 16\nGPSTime_Adjusted FLOAT64 64\nRed UINT16 16\nGreen UINT16 16\n"
                        "Blue UINT16 16\nNearInfrared UINT16 16\n");
    EXPECT_EQ(reader->getChannel("Z")->getQuantization(), 0.5);
}

TEST_F(LASReading, AnswersQueriesByBoxFractionAndChannel)
{
    const LASFile file = randomLASFile(3, 2, 40000, 3); // more than two slices
    const auto reader = open(file.build());
    Bounds box = Bounds::Huge();
    box.x = {900, 1100};
    box.y = {-1950, -1700.005}; // Y counts up from -2000 in steps of 0.01; half a step is added
    box.z.min = 50;
    std::vector<LASFilePoint> expected;
    for (const LASFilePoint& p : file.points)
        if (p.x >= -10000 && p.x <= 10000 && p.y >= 5000 && p.y <= 30000 && p.z >= 0)
            expected.push_back(p);
    ASSERT_GT(expected.size(), 1000u);
    EXPECT_TRUE(readLASPoints(*reader, box, 1, 7) == expected);

    std::vector<LASFilePoint> quarter;
    for (std::size_t i = 0; i < expected.size(); i += 4)
        quarter.push_back(expected[i]);
    EXPECT_TRUE(readLASPoints(*reader, box, 0.25) == quarter);
    EXPECT_TRUE(readLASPoints(*reader, box, 0).empty());
    EXPECT_EQ(reader->getTotalWork(box, 0.25), 40000);
    EXPECT_EQ(reader->getTotalWork(box, 0), 0);

    PointInfo layout = reader->getPointInfo();
    layout.getChannel(3).init("Temperature", UINT16, 16, 0);
    EXPECT_EQ(failureOf([&] { reader->createIterator(box, 1, layout, nullptr)->release(); }),
              "40012 requesting channel not in the source");
    layout.getChannel(3).init("Intensity", SINT16, 16, 0);
    EXPECT_EQ(failureOf([&] { reader->createIterator(box, 1, layout, nullptr)->release(); }),
              "40010 channel 'Intensity' has another type in the source");
}

TEST_F(LASReading, KeepsHeaderFieldsAndRecordsAsMetadata)
{
    LASFile file = randomLASFile(6, 4, 3, 1);
    file.systemID = "LIDAR";
    file.software = "Tool 32 bytes long .............";
    file.fileSourceID = 77;
    file.guid1 = 0xDEADBEEF;
    file.guid2 = 0xAB;
    file.guid3 = 0x12;
    file.guid4 = {1, 2, 3, 4, 5, 6, 7, 8};
    file.year = 2024;
    file.day = 45;
    file.records = {{"LASF_Spec", 0, "lookup", {1, 2, 3}},
                    {"laszip encoded", 22204, "", {0}},
                    {"laszip encoded", 1, "", {0}},
                    {"sixteen letters.", 22204, std::string(32, 'd'), {0}},
                    {"", 7, "", {}}};
    constexpr std::size_t limit = 1 << 20; // bytes of a value in the metadata
    file.extendedRecords = {{"far", 65535, "after the points", LASBytes(limit, 5)},
                            {"far", 1, "", LASBytes(limit + 1)}};
    const auto joined = [](const auto& numbers) {
        std::string text;
        for (const auto number : numbers)
            text += std::to_string(number) + ' ';
        return text;
    };
    const auto record = [&](const char* key) -> std::string {
        Metadata metadata;
        open(file.build())->loadMetadata(metadata, false);
        if (!metadata.has(key))
            return "none";
        const auto index = static_cast<std::size_t>(metadata.getKeyIndex(key));
        const void* const value = metadata.getValue(index);
        const std::size_t length = metadata.getValueLength(index);
        const char* const description = metadata.getDescription(index);
        if (metadata.getDataType(index) == METADATA_FLOAT64_ARRAY)
            return joined(std::span(static_cast<const double*>(value), length));
        return metadata.getDataType(index) == METADATA_STRING
                   ? static_cast<const char*>(value)
                   : (description ? description : "") + (": " + std::to_string(length));
    };
    const Numbers counts(file.byReturn.begin(), file.byReturn.end()),
        olderCounts(file.legacyByReturn.begin(), file.legacyByReturn.end()),
        box = {file.min[0], file.max[0], file.min[1], file.max[1], file.min[2], file.max[2]};
    const std::pair<const char*, std::string> records[] = {
        {"SystemID", "LIDAR"},
        {"GeneratingSoftware", file.software},
        {"FileSourceID", "77"},
        {"ProjectID", "{DEADBEEF-00AB-0012-0102-030405060708}"},
        {"FileCreationDate", "2024-045"},
        {"PointRecordsByReturnCount", joined(counts)},
        {"LAS_BoundingBox", joined(box)},
        {"LASF_Spec::0", "lookup: 3"},
        {"::7", ": 0"},
        {"laszip encoded::22204", "none"},
        {"laszip encoded::1", ": 1"},
        {"sixteen letters.::22204", std::string(32, 'd') + ": 1"},
        {"far::65535", "after the points: 1048576"},
        {"far::1", "none"}};
    for (const auto& [key, expected] : records)
        EXPECT_EQ(record(key), expected) << key;
    file.versionMinor = 3;
    file.extendedRecords.clear();
    EXPECT_EQ(record("PointRecordsByReturnCount"), joined(olderCounts));
}

TEST_F(LASReading, TakesCountAndBoundsFromTheHeaderIfTheyAreValid)
{
    // Versions, both counts of the header, and the one that is taken.
    const std::tuple<int, std::uint32_t, std::uint64_t, std::int64_t> counts[] = {
        {4, 0, 10, 10}, {4, 9, 10, 10}, {4, 10, 0, 10}, {4, 0, 0, 0}, {3, 9, 10, 9}, {2, 10, 0, 10}};
    for (const auto& [minor, legacyCount, count, expected] : counts) {
        LASFile file = randomLASFile(1, minor, 10, 1);
        file.legacyCount = legacyCount;
        file.count = count;
        const auto reader = open(file.build());
        EXPECT_EQ(reader->getNumPoints(), expected);
        file.points.resize(static_cast<std::size_t>(expected));
        EXPECT_TRUE(readLASPoints(*reader) == file.points);
    }
    LASFile empty = randomLASFile(1, 4, 0, 1); // ends where its points begin
    EXPECT_EQ(open(empty.build())->getBounds(), Bounds::Huge()) << "minimum above maximum";
    empty.extendedRecords = {{"user", 3, "", LASBytes(100)}};
    EXPECT_EQ(failureOfReading(empty.build()), "no error");
    LASFile single = randomLASFile(1, 4, 1, 1);
    single.min[0] = single.max[1] = nan;
    const Bounds bounds = open(single.build())->getBounds();
    EXPECT_TRUE(bounds.x == Bounds::Huge().x && bounds.y == Bounds::Huge().y);
    EXPECT_EQ(bounds.z, (Bounds::Range{single.min[2], single.min[2]}));
}

TEST_F(LASReading, FindsTheCoordinateSystemInEitherNotation)
{
    LASFile file = randomLASFile(1, 4, 3, 1);
    // The beginning of its text, and whether there is one that is not understood.
    const auto systemOf = [&](const LASFile& described) {
        const auto reader = open(described.build());
        const std::string wkt = reader->getWKT() ? reader->getWKT() : "";
        return wkt.substr(0, 30) + (reader->hasUnknownCoordinateSystem() ? "unknown" : "");
    };
    EXPECT_EQ(systemOf(file), "");
    // Model projected, code 32613.
    const LASBytes keys = {1, 0, 1, 0, 0, 0, 2, 0, 0, 4, 0, 0, 1, 0, 1, 0, 0, 12, 0, 0, 1, 0, 0x65, 0x7F};
    const std::string utm = "PROJCS[\"WGS 84 / UTM zone 13N\"";
    const std::string text = "LOCAL_CS[\"a\"]"; // without a NUL
    file.extendedRecords = {{"LASF_Projection", 2112, "", {text.begin(), text.end()}}};
    EXPECT_EQ(systemOf(file), text) << "without the bit, but without keys";
    file.records = {{"user", 34735, "", {1}}, {"LASF_Projection", 34735, "", keys}};
    EXPECT_EQ(systemOf(file), utm) << "the keys are valid without the bit";
    file.globalEncoding = 16;
    EXPECT_EQ(systemOf(file), text);
    EXPECT_TRUE(open(file.build())->getPointInfo().hasChannel("GPSTime")) << "another bit";

    file.records.push_back({"LASF_Projection", 34736, "", LASBytes(8)});
    file.records.push_back({"LASF_Projection", 34737, "", {'a'}});
    Metadata all, sanitized;
    open(file.build())->loadMetadata(all, false);
    open(file.build())->loadMetadata(sanitized, true);
    EXPECT_EQ(all.getNumRecords(), sanitized.getNumRecords() + 4);
    for (std::size_t i = 0; i < sanitized.getNumRecords(); ++i)
        EXPECT_NE(std::string(sanitized.getKey(i)).substr(0, 15), "LASF_Projection");

    file.extendedRecords[0].value.assign(1 << 20, 'x');
    EXPECT_EQ(systemOf(file), std::string(30, 'x'));
    file.extendedRecords[0].value.assign((1 << 20) + 1, 'x');
    EXPECT_EQ(systemOf(file), utm);

    // One byte is no number. A directory of no keys is no system. Keys that refer to missing values are ignored.
    file.globalEncoding = 0;
    file.extendedRecords.clear();
    const std::pair<LASBytes, const char*> directories[] = {
        {{1}, ""},
        {{1, 0, 1, 0, 0, 0}, "unknown"},
        {{1, 0, 1, 0, 0, 0, 0, 0}, ""},
        {{1, 0, 1, 0, 0, 0, 255, 255}, "unknown"},
        {{1, 0, 1, 0, 0, 0, 1, 0, 0, 4, 0xB0, 0x87, 255, 0, 255, 255}, "unknown"},
        {{1, 0, 1, 0, 0, 0, 1, 0, 0, 4, 0xB1, 0x87, 255, 255, 0, 0}, "unknown"}};
    for (const auto& [value, system] : directories) {
        file.records[1].value = value;
        EXPECT_EQ(systemOf(file), system) << value.size();
    }
}

TEST_F(LASReading, RefusesMalformedFiles)
{
    EXPECT_EQ(
        failureOf([&] {
            const Scoped<LASPointReader> reader(LASPointReader::create());
            reader->init("none.las", false);
        }),
        "40606 Failed to create LASReader for path = 'none.las': No such file or directory path = none.las");
    LASFile file = randomLASFile(1, 4, 100, 1);
    file.records = {{"user", 1, "", LASBytes(20)}, {"user", 2, "", LASBytes(10)}};
    file.extendedRecords = {{"user", 3, "", LASBytes(100)}};
    const LASBytes whole = file.build();
    EXPECT_EQ(failureOfReading(whole), "no error");

    const auto refusal = [&](std::size_t at, const LASBytes& value) {
        return failureOfReading(with(whole, at, value));
    };
    const LASBytes huge(8, 0xFF);
    const LASBytes huge4(4, 0xFF);
    EXPECT_EQ(refusal(0, {'X'}), "bad LAS header: no \"LASF\" at the beginning");
    EXPECT_EQ(refusal(24, {2}), "bad LAS header: unknown version 2.4");
    EXPECT_EQ(refusal(24, {0}), "bad LAS header: unknown version 0.4");
    EXPECT_EQ(refusal(25, {5}), "bad LAS header: unknown version 1.5");
    EXPECT_EQ(refusal(94, {0x76, 1}), "bad LAS header: the header size is too small for the version");
    // A header of 400 bytes is longer than that of its version.
    EXPECT_EQ(refusal(94, {0x90, 1, 0x8F, 1, 0, 0}), "bad LAS header: the points begin inside the header");
    EXPECT_EQ(refusal(96, huge4), "the file ends before its points");
    EXPECT_EQ(refusal(100, {3, 0, 0, 0}), "VLR 3 of 3 is cut off");
    EXPECT_EQ(refusal(100, huge4), "VLR 3 of 4294967295 is cut off");
    EXPECT_EQ(refusal(104, {11}), "bad LAS header: unknown point format 11");
    EXPECT_EQ(refusal(104, {0x41}), "no error");
    EXPECT_EQ(refusal(105, {27, 0}),
              "bad LAS header: the point record length is too small for the point format");
    const LASBytes nan = {0, 0, 0, 0, 0, 0, 0xF8, 0x7F}, infinity = {0, 0, 0, 0, 0, 0, 0xF0, 0x7F};
    EXPECT_EQ(refusal(131, LASBytes(8)), "bad LAS header: the x scale is 0");
    EXPECT_EQ(refusal(139, nan), "bad LAS header: the y scale is nan");
    EXPECT_EQ(refusal(147, infinity), "bad LAS header: the z scale is inf");
    EXPECT_EQ(refusal(147, {0, 0, 0, 0, 0, 0, 0xF0, 0xBF}), "bad LAS header: the z scale is -1");
    EXPECT_EQ(refusal(155, nan), "bad LAS header: the x offset is nan");
    EXPECT_EQ(refusal(375 + 20, {0xFF, 0xFF}), "VLR 1 of 2 is too long");
    const std::size_t secondLength = 375 + 54 + 20 + 20;
    for (const unsigned excess : {1u, 53u, 54u, 55u})
        EXPECT_EQ(refusal(secondLength, {static_cast<std::uint8_t>(10 + excess)}), "VLR 2 of 2 is too long");
    EXPECT_EQ(refusal(secondLength, {9}), "no error");
    const std::size_t extendedLength = whole.size() - 100 - 40;
    for (const unsigned excess : {1u, 59u, 60u, 61u})
        EXPECT_EQ(refusal(extendedLength, {static_cast<std::uint8_t>(100 + excess)}),
                  "EVLR 1 of 1 is too long");
    EXPECT_EQ(refusal(extendedLength + 4, {1}), "EVLR 1 of 1 is too long");
    EXPECT_EQ(refusal(235, {0x77, 1, 0, 0, 0, 0, 0, 0}), "the EVLRs are outside the file");
    EXPECT_EQ(refusal(235, huge), "the EVLRs are outside the file");
    EXPECT_EQ(refusal(243, huge4), "EVLR 2 of 4294967295 is cut off");
    EXPECT_EQ(refusal(247, huge), "bad LAS header: the number of points is too large");
    EXPECT_EQ(refusal(247, {105}), "no error");
    EXPECT_EQ(refusal(247, {106}), "the file ends after 105 of 106 points");
    EXPECT_EQ(refusal(247, {0, 0, 1, 0}), "the file ends after 105 of 65536 points");

    for (std::size_t length = 0; length < whole.size(); length += length < 600 ? 1 : 97)
        EXPECT_NE(failureOfReading(cut(whole, length)), "no error") << length;
}

TEST_F(LASReading, RefusesMalformedCompressedFiles)
{
    for (const int format : {3, 7}) {
        const auto [whole, points, table, code] = compress(randomLASFile(format, 4, 3000, 9));
        ASSERT_EQ(failureOfReading(whole), "no error");
        for (std::size_t length = 227; length < whole.size() - 60; length += 1 + length / 7)
            EXPECT_NE(failureOfReading(cut(whole, length)), "no error") << length;
        for (std::size_t length = table; length < whole.size(); ++length)
            failureOfReading(cut(whole, length));
        EXPECT_EQ(failureOfReading(with(whole, table, {1})), "bad LAZ chunk table: unknown version");
        const LASBytes empty = with(with(whole, 107, LASBytes(4)), 247, LASBytes(8)); // no points, no table
        EXPECT_EQ(failureOfReading(cut(empty, points)), "no error");
        // More chunks than bytes: LASzip would allocate memory for all of them, or read after the file's end.
        const std::string message = failureOfReading(with(whole, table + 4, LASBytes(4, 0xFE)));
        EXPECT_EQ(message.rfind("bad LAZ chunk table: 4278124286 chunks", 0), 0u);
        failureOfReading(with(whole, table + 4, {100, 0, 0, 0}));
        // The position of the table can be after it, or wrong: here are zeros in the header.
        LASBytes last = whole;
        last.insert(last.end(), &whole[points], &whole[points + 8]);
        EXPECT_TRUE(readLASPoints(*open(with(last, points, LASBytes(8, 0xFF)))) ==
                    readLASPoints(*open(whole)));
        EXPECT_EQ(failureOfReading(with(last, points, {28, 0, 0, 0, 0, 0, 0, 0})),
                  "bad LAZ chunk table: it is before the points");
    }
}

TEST(LASzipCoding, AcceptsTheItemsOfThePointFormatOnly)
{
    using Words = std::vector<unsigned>; // of the items: type, size, version
    const auto layersOf = [](int format, int userBytes, unsigned compressor, const Words& items,
                             unsigned coder = 0, int cut = 0) -> std::string {
        LASBytes value(34);
        value[0] = static_cast<std::uint8_t>(compressor);
        value[2] = static_cast<std::uint8_t>(coder);
        value[32] = static_cast<std::uint8_t>(items.size() / 3);
        for (const unsigned word : items)
            value.insert(value.end(), {static_cast<std::uint8_t>(word), 0});
        value.resize(value.size() - static_cast<std::size_t>(cut));
        LASHeader header;
        header.pointFormat.number = static_cast<std::uint8_t>(format);
        header.recordLength =
            static_cast<std::uint16_t>(LASFile::recordBytes(format) + static_cast<unsigned>(userBytes));
        std::size_t layers = 0;
        const std::string error = failureOf([&] { layers = LASzipCoding::parse(value, header).numLayers; });
        return error == "no error" ? std::to_string(layers) : error.substr(34);
    };
    EXPECT_EQ(layersOf(3, 5, 2, {6, 20, 1, 7, 8, 2, 8, 6, 2, 0, 5, 2}), "0");
    EXPECT_EQ(layersOf(5, 2, 2, {6, 20, 2, 7, 8, 1, 8, 6, 1, 9, 29, 1, 0, 2, 1}), "0");
    EXPECT_EQ(layersOf(6, 0, 3, {10, 30, 3}), "9");
    EXPECT_EQ(layersOf(7, 0, 3, {10, 30, 4, 11, 6, 4}), "10");
    EXPECT_EQ(layersOf(8, 4, 3, {10, 30, 3, 12, 8, 3, 14, 4, 3}), "15");
    EXPECT_EQ(layersOf(10, 0, 3, {10, 30, 3, 12, 8, 3, 13, 29, 3}), "12");
    EXPECT_EQ(layersOf(10, 2, 3, {10, 30, 4, 12, 8, 4, 13, 29, 4, 14, 2, 4}), "14");
    EXPECT_EQ(layersOf(0, 0, 0, {6, 20, 2}), "unknown compressor 0");
    EXPECT_EQ(layersOf(0, 0, 4, {6, 20, 2}), "unknown compressor 4");
    EXPECT_EQ(layersOf(0, 0, 2, {6, 20, 2}, 1), "unknown coder 1");
    EXPECT_EQ(layersOf(0, 0, 2, {}, 0, 1), "it is too short");
    EXPECT_EQ(layersOf(0, 0, 2, {}), "the items are longer than the record");
    EXPECT_EQ(layersOf(0, 0, 2, {6, 20, 2}, 0, 1), "the items are longer than the record");
    for (const Words& item : {Words{6, 20, 0}, Words{6, 20, 3}, Words{6, 19, 2}, Words{10, 30, 3}})
        EXPECT_EQ(layersOf(0, 0, 2, item).substr(0, 12), "unknown item") << item[0];
    for (const Words& item : {Words{10, 30, 2}, Words{10, 30, 5}, Words{6, 20, 2}})
        EXPECT_EQ(layersOf(6, 0, 3, item).substr(0, 12), "unknown item") << item[0];
    const std::string other = "its points are of another ";
    EXPECT_EQ(layersOf(1, 0, 2, {6, 20, 2, 6, 20, 2}), other + "format than the header's");
    EXPECT_EQ(layersOf(8, 0, 3, {10, 30, 3, 11, 6, 3}), other + "format than the header's");
    EXPECT_EQ(layersOf(0, 5, 2, {6, 20, 2, 0, 4, 2}), other + "size than the header's");
}

// Chunks are decoded ahead by several threads; the points, also those before an error, and the errors are those of
// one thread. Chunks of the usual size, and of different sizes, one of them very small.
TEST_F(LASReading, ReadsTheSameWithAnyNumberOfThreads)
{
    const tbb::global_control allowThreads(tbb::global_control::max_allowed_parallelism, 4);
    for (const int format : {3, 7}) {
        const LASFile file = randomLASFile(format, 4, 60001, 9);
        const Compressed usual = compress(file);
        const LASBytes variable = withVariableChunks(file, {30000, 1, 25000, 5000});
        Bounds box = Bounds::Huge();
        box.y = {-1700, -1100};
        for (const LASBytes& whole : {usual.bytes, variable}) {
            const Outcome expected = query(whole, 1);
            EXPECT_EQ(expected.error, "no error");
            EXPECT_TRUE(query(whole, 4) == expected) << format;
            EXPECT_TRUE(query(whole, 4, box) == query(whole, 1, box)) << format;
            Random random(1);
            const std::size_t size = whole.size();
            for (int i = 0; i < 4; ++i) {
                // Anywhere, and in the table.
                const std::size_t at = i % 3 != 0 ? usual.points + random.below(size - usual.points)
                                                  : size - 1 - random.below(20);
                const LASBytes damaged =
                    with(whole, at, {static_cast<std::uint8_t>(whole[at] ^ 1 << random.below(8))});
                EXPECT_TRUE(query(damaged, 4) == query(damaged, 1)) << format << ' ' << at;
            }
        }
    }
}

// Without an index, the damage in another chunk is found, as it is with an index that does not apply.
TEST_F(LASReading, SkipsChunksThatASpatialIndexExcludes)
{
    const tbb::global_control allowThreads(tbb::global_control::max_allowed_parallelism, 4);
    const LASFile file = randomLASFile(1, 4, 8000, 3);
    const LASBytes whole = withVariableChunks(file, {2000, 2000, 2000, 2000});
    const auto table = static_cast<std::size_t>(
        loadLittleEndian<std::uint64_t>(&whole[LASFile::parse(whole).pointDataOffset]));
    const LASBytes damaged = with(whole, table - 30000, LASBytes(1000, 0x55));
    Bounds box = Bounds::Huge();
    box.y = {-1990, -1961};
    const Outcome expected = query(whole, 1, box);
    EXPECT_EQ(expected.error, "no error");
    const Outcome failed = query(damaged, 1, box);
    EXPECT_NE(failed.error, "no error");

    // One level, whose cells divide the points in the middle of Y. The upper ones end with `last`.
    const auto makeIndex = [](std::uint32_t last) {
        LASBytes bytes;
        const auto put = [&bytes](auto value) {
            bytes.resize(bytes.size() + sizeof value);
            storeLittleEndian(&bytes[bytes.size() - sizeof value], value);
        };
        const auto sign = [&](const char* text) {
            bytes.insert(bytes.end(), text, text + 4);
            put(std::uint32_t{0});
        };
        sign("LASX");
        sign("LASS");
        sign("LASQ");
        for (const std::uint32_t number : {1u, 0u, 0u}) // levels
            put(number);
        for (const float edge : {0.0F, 2000.0F, -2000.0F, -1920.0F})
            put(edge);
        sign("LASV");
        put(std::uint32_t{4});
        for (std::uint32_t cell = 0; cell < 4; ++cell) {
            const std::uint32_t first = cell < 2 ? 0 : 4000;
            for (const std::uint32_t number : {1 + cell, 1u, 2000u, first, cell < 2 ? 3999 : last})
                put(number);
        }
        return bytes;
    };
    const LASBytes index = makeIndex(7999);
    const std::string beside = directory / "file.lax";
    ProgressLog log;
    const auto warning = [&] {
        const std::string text = log.warnings.empty() ? "" : log.warnings.back();
        log.warnings.clear();
        return text;
    };
    for (const int threads : {1, 4}) {
        std::filesystem::remove(beside);
        EXPECT_TRUE(query(damaged, threads, box, &log) == failed);
        writeFile(beside, index);
        std::filesystem::last_write_time(beside, std::filesystem::file_time_type::clock::now() +
                                                     std::chrono::hours(1));
        EXPECT_TRUE(query(damaged, threads, box, &log) == expected);
        EXPECT_EQ(warning(), "");
        std::filesystem::last_write_time(beside, std::filesystem::file_time_type::clock::now() -
                                                     std::chrono::hours(1));
        EXPECT_TRUE(query(damaged, threads, box, &log) == failed);
        EXPECT_EQ(warning(), "the spatial index is not used: " + beside + " is older than the file");
        // Not all points, more points than there are, and part of it.
        for (const LASBytes& bad : {makeIndex(7998), makeIndex(8000), cut(index, 100)}) {
            writeFile(beside, bad);
            std::filesystem::last_write_time(beside, std::filesystem::file_time_type::clock::now() +
                                                         std::chrono::hours(1));
            EXPECT_TRUE(query(damaged, threads, box, &log) == failed);
            EXPECT_EQ(warning(), "the spatial index is not used: " + beside +
                                     " does not describe all points of the file");
        }
    }
    // In the file, in a record of the header or in one that only LASzip's VLR counts.
    std::filesystem::remove(beside);
    LASBytes inside = damaged;
    inside.resize(inside.size() + 60);
    std::copy_n("LAStools", 8, &inside[damaged.size() + 2]);
    inside[damaged.size() + 18] = 30;
    storeLittleEndian(&inside[damaged.size() + 20], static_cast<std::uint64_t>(index.size()));
    inside.insert(inside.end(), index.begin(), index.end());
    const std::size_t value = LASFile::parse(whole).headerSize + 54;
    for (const auto& [count, position, size] :
         {std::tuple{243, 235, 4},
          std::tuple{static_cast<int>(value) + 16, static_cast<int>(value) + 24, 8}}) {
        LASBytes bytes =
            with(inside, static_cast<std::size_t>(count), LASBytes(static_cast<std::size_t>(size), 0));
        bytes[static_cast<std::size_t>(count)] = 1;
        storeLittleEndian(&bytes[static_cast<std::size_t>(position)],
                          static_cast<std::uint64_t>(damaged.size()));
        EXPECT_TRUE(query(bytes, 4, box) == expected) << count;
    }
}

// LASzip allocates the declared sizes of layers, adds them up in 32 bits, and reads outside its tables when a
// code begins with four bytes of ones.
TEST_F(LASReading, HidesChunksFromLASzipThatWouldCrashIt)
{
    const std::string badCode = "bad LAZ chunk: invalid first bytes of its code";
    for (const int format : {3, 7}) {
        const auto [whole, points, table, code] = compress(randomLASFile(format, 4, 300, 9));
        const LASBytes ones(4, 0xFF);
        const LASBytes badBytes = with(whole, format == 3 ? code : code + 4 + 10 * 4, ones);
        EXPECT_EQ(failureOfReading(badBytes), "40602 " + badCode);
        EXPECT_EQ(failureOfReading(with(whole, table + 8, ones)), badCode);
        // It would continue at the next chunk.
        const auto reader = open(badBytes);
        const Scoped<PointIterator> iterator(
            reader->createIterator(Bounds::Huge(), 1, reader->getPointInfo(), nullptr));
        PointData block;
        block.init(reader->getPointInfo(), 10);
        EXPECT_EQ(failureOf([&] { iterator->getNextPoints(block); }), "40602 " + badCode);
        EXPECT_EQ(failureOf([&] { iterator->getNextPoints(block); }),
                  "40602 the points after malformed ones cannot be read");
        // The last item twice, sizes of layers, and the whole VLR twice.
        const std::size_t record = LASFile::parse(whole).headerSize;
        if (format == 3) {
            EXPECT_EQ(failureOfReading(with(whole, record + 54 + 34 + 6, {0})),
                      "bad LAZ compression record: its points are of another format than the header's");
        } else {
            for (const LASBytes& sizes : {LASBytes(4, 0x7F), LASBytes(40, 0xFF)})
                EXPECT_EQ(failureOfReading(with(whole, code + 4, sizes)),
                          "40602 bad LAZ chunk: layer 0 overlaps the chunk table");
        }
        LASBytes twice = with(whole, 100, {2});
        twice.insert(twice.begin() + static_cast<std::ptrdiff_t>(points), &whole[record], &whole[points]);
        storeLittleEndian(&twice[96], static_cast<std::uint32_t>(2 * points - record));
        EXPECT_EQ(failureOfReading(twice),
                  "the file has more than one VLR with the LASzip coding of its points");
        // The same record after the points is not used.
        LASBytes extended = with(whole, 243, {1});
        storeLittleEndian(&extended[235], static_cast<std::uint64_t>(whole.size()));
        extended.insert(extended.end(), &whole[record], &whole[record + 20]);
        extended.resize(whole.size() + 60);
        EXPECT_EQ(failureOfReading(extended), "no error");
        EXPECT_EQ(failureOfReading(with(extended, record + 2, {'x'})),
                  "the file has no VLR with the LASzip coding of its points");
    }
}

TEST_F(LASReading, ReportsEachSliceAndStopsWhenCancelled)
{
    const auto reader = open(randomLASFile(0, 2, 40000, 1).build());
    for (int query = 0; query < 4; ++query) { // of each slice of 16,384 points
        ProgressLog log(query);
        log.setTotal(reader->getTotalWork(Bounds::Huge(), 1));
        EXPECT_EQ(failureOf([&] { readLASPoints(*reader, Bounds::Huge(), 1, 1000, &log); }),
                  query < 3 ? "40006 operation cancelled." : "no error");
        EXPECT_EQ(log.fractions.size(), static_cast<std::size_t>(query));
        EXPECT_EQ(log.last() == 1, query == 3);
    }
}

}} // namespace Quillmoran::Testing
