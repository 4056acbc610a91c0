#include <vxunpack/LASPointWriter.h>

#include "support/CoordinateSystems.h"
#include "support/LASClouds.h"
#include "support/Test.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/LASPointReader.h>

#include <ctime>
#include <fcntl.h>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran::Testing { namespace {

class LASWriting : public testing::Test
{
protected:
    // One point at the origin per value of the other channels.
    static Scoped<MemoryPointSource> makeSource(std::initializer_list<ChannelInfo> channels,
                                                const MemoryPointSource::Columns& values = {})
    {
        const std::size_t count = values.empty() ? 2 : values.front().size();
        MemoryPointSource::Columns columns(3, std::vector<double>(count, 0.0));
        columns.insert(columns.end(), values.begin(), values.end());
        columns.resize(3 + channels.size(), std::vector<double>(count, 1.0));
        return MemoryPointSource::make(layoutXYZ(channels), columns);
    }

    Scoped<LASPointWriter> makeWriter(PointSource& source, int version = -1)
    {
        Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(&source, path.c_str(), version);
        return writer;
    }
    // The file of all points of the writer's source.
    LASFile write(LASPointWriter& writer)
    {
        writer.write(Bounds::Huge(), 1, writer.getSrc()->getPointInfo(), nullptr);
        return LASFile::load(path);
    }
    LASFile write(PointSource& source, int version = -1) { return write(*makeWriter(source, version)); }

    TemporaryDirectory directory;
    std::string path = directory / "out.las";
};

TEST_F(LASWriting, ChoosesFormatAndVersionByTheChannels)
{
    const auto chosen = [](std::initializer_list<ChannelInfo> channels) {
        const PointInfo layout = layoutXYZ(channels);
        return std::to_string(LASPointWriter::getRecordFormat(layout)) + '/' +
               std::to_string(LASPointWriter::getFileVersion(layout));
    };
    const ChannelInfo time = channel("GPSTime", FLOAT64), red = channel("Red", UINT16);
    EXPECT_EQ(chosen({channel("Intensity", UINT16)}), "0/11");
    EXPECT_EQ(chosen({time}), "1/11");
    EXPECT_EQ(chosen({red}), "2/12");
    EXPECT_EQ(chosen({channel("GPSTime_Adjusted", FLOAT64), channel("Blue", UINT16)}), "3/12");
    EXPECT_EQ(chosen({channel("ReturnNum", UINT8, 0, 3), channel("ScanAngle", SINT8, 0, 8)}), "0/11");
    EXPECT_EQ(chosen({channel("ReturnNum", UINT8, 0, 4)}), "6/14");
    EXPECT_EQ(chosen({channel("NumReturns", UINT8, 0, 4), time}), "6/14");
    EXPECT_EQ(chosen({channel("ScanAngle", SINT16, 0, 9), red}), "7/14");
    EXPECT_EQ(chosen({channel("ClassFlags", UINT8), time, red}), "7/14");
    EXPECT_EQ(chosen({channel("ScannerChannel", UINT8)}), "6/14");
    EXPECT_EQ(chosen({channel("NearInfrared", UINT16), red}), "8/14");
    EXPECT_EQ(chosen({channel("NearInfrared", UINT16)}), "6/14");
}

TEST_F(LASWriting, WritesTheHeaderByteForByte)
{
    const Numbers returns = {1, 1, 2, 5, 6, 7, 0, 1}, moreReturns = {1, 15, 15, 6, 5, 0};
    const auto source = makeSource({channel("ReturnNum", UINT8, 0, 3)}, {returns});
    LASFile expected;
    expected.scale = {0.25, 0.5, 2};
    expected.offset = {100, -7, 3.5};
    source->setQuantization(expected.scale.data(), expected.offset.data());
    Metadata& metadata = source->metadata();
    const auto text = [&](const char* key, const char* value) {
        metadata.add(key, nullptr, METADATA_STRING, value, 0);
    };
    expected.systemID = std::string(32, 'n');
    text("SystemID", std::string(40, 'n').c_str());
    text("ProjectID", "{DEADBEEF-0102-ABCD-1122-334455667788}");
    expected.guid1 = 0xDEADBEEF;
    expected.guid2 = 0x0102;
    expected.guid3 = 0xABCD;
    expected.guid4 = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    text("FileSourceID", "513");
    expected.fileSourceID = 513;
    // These describe the source's file, not the one that is written.
    text("FileCreationDate", "1999-001");
    text("GeneratingSoftware", "other");
    const double counts[] = {9.1, 9.1, 9.1, 9.1, 9.1};
    metadata.add("PointRecordsByReturnCount", nullptr, METADATA_FLOAT64_ARRAY, counts, 5);
    text("user::34735", "only projection VLRs are copied");
    const std::time_t now = std::time(nullptr);
    expected.day = static_cast<std::uint16_t>(std::gmtime(&now)->tm_yday + 1);
    expected.year = static_cast<std::uint16_t>(std::gmtime(&now)->tm_year + 1900);
    expected.software = "Quillmoran 1.1.4.4709";
    LASFilePoint origin;
    origin.x = -400;
    origin.y = 14;
    origin.z = -2;
    for (const double number : returns) {
        origin.returnNum = static_cast<std::uint8_t>(number);
        expected.points.push_back(origin);
    }
    expected.describePoints();
    for (const int version : {-1, 0, 10, 11, 12, 13, 14}) {
        expected.versionMajor = version != 0;
        expected.versionMinor = static_cast<std::uint8_t>(version < 0 ? 1 : version % 10);
        write(*source, version);
        const std::string bytes = readFile(path);
        EXPECT_EQ(LASBytes(bytes.begin(), bytes.end()), expected.build()) << version;
    }

    metadata.remove();
    text("ProjectID", "{DEADBEEF-0102}");
    text("FileSourceID", "none");
    metadata.add("SystemID", nullptr, METADATA_FLOAT64_ARRAY, counts, 5);
    const LASFile plain = write(*source);
    EXPECT_EQ(std::pair(std::size_t{plain.guid1}, plain.systemID.size()), std::pair(0ul, 0ul));
    const LASFile more = write(*makeSource({channel("ReturnNum", UINT8, 0, 4)}, {moreReturns}));
    EXPECT_EQ(std::pair(std::uint64_t{more.legacyCount}, more.count), std::pair(6ul, 6ul));
    EXPECT_EQ(more.legacyByReturn, (std::array<std::uint32_t, 5>{1, 0, 0, 0, 1}));
    EXPECT_EQ(more.byReturn, (std::array<std::uint64_t, 15>{1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 2}));
    // An older version is written as requested, with any format.
    const auto flags = makeSource({channel("ClassFlags", UINT8), channel("GPSTime_Adjusted", FLOAT64)});
    flags->setWKT("a system");
    const LASFile extended = write(*flags, 12);
    EXPECT_EQ(std::tuple(extended.format, extended.headerSize, extended.globalEncoding),
              std::tuple(6, 227, 1 + 16));
}

// A field of a point as a number.
template <auto field>
double get(const LASFilePoint& point)
{
    return point.*field;
}

TEST_F(LASWriting, StoresFieldsByTheirWidth)
{
    using P = LASFilePoint;
    const double nan = std::nan("");
    const Numbers few = {0, 7, 8, 9, 15, 16, 255}, legacy = {0, 7, 7, 7, 7, 7, 7},
                  extended = {0, 7, 8, 9, 15, 0, 15};
    // Values as they are stored in formats 0 to 3 and 6 to 8; empty: not tested.
    const std::tuple<ChannelInfo, double (*)(const P&), Numbers, Numbers, Numbers> cases[] = {
        {channel("ReturnNum", UINT8, 0, 3), get<&P::returnNum>, few, legacy, extended},
        {channel("NumReturns", UINT8, 0, 3), get<&P::numReturns>, few, legacy, extended},
        {channel("ScanDir", UINT8), get<&P::scanDir>, {1, 2, 255}, {1, 0, 1}, {1, 0, 1}},
        {channel("EdgeFlightLine", UINT8), get<&P::edge>, {1, 2, 255}, {1, 0, 1}, {1, 0, 1}},
        {channel("ClassId", UINT8), get<&P::classId>, {31, 32, 255}, {31, 32, 255}, {31, 32, 255}},
        {channel("ScannerChannel", UINT8), get<&P::scannerChannel>, {3, 4, 255}, {}, {3, 0, 3}},
        {channel("ClassFlags", UINT8), get<&P::classFlags>, {15, 16, 255}, {}, {15, 0, 15}},
        // Other types are cast: low bits of integers, integral part of floating-point numbers.
        {channel("UserData", FLOAT32), get<&P::userData>, {255.9, 256, 300.5}, {255, 0, 44}, {255, 0, 44}},
        {channel("Intensity", SINT32),
         get<&P::intensity>,
         {-1, 65536, 70000},
         {65535, 0, 4464},
         {65535, 0, 4464}},
        {channel("Intensity", FLOAT64), get<&P::intensity>, {2.9, -2.9, 1e300, nan}, {2, 65534, 0, 0}, {}},
        {channel("Green", UINT16), get<&P::green>, {258}, {258}, {258}},
        {channel("ScanAngle", SINT8), get<&P::scanAngle>, {-128, 127, -1}, {-128, 127, -1}, {-128, 127, -1}},
        {channel("ScanAngle", SINT16, 0, 8), get<&P::scanAngle>, {-30000, 129}, {-48, -127}, {-30000, 129}},
    };
    for (const auto& [info, getField, values, older, newer] : cases)
        for (const bool isExtended : {false, true}) {
            const Numbers& expected = isExtended ? newer : older;
            Numbers stored;
            const ChannelInfo other = channel(isExtended ? "NearInfrared" : "SourceId", UINT16);
            for (const P& point : write(*makeSource({info, other}, {values})).points)
                stored.push_back(getField(point));
            EXPECT_TRUE(stored == expected || expected.empty())
                << info.getName() << ' ' << isExtended << ' ' << testing::PrintToString(stored);
        }
}

TEST_F(LASWriting, RoundsCoordinatesAwayFromTheOffset)
{
    const Numbers x = {10, 10.25, 10.5, 9.75, 9.5, 9.24, 10.24};
    Numbers y, z;
    for (const double value : x) {
        y.push_back(2 * value);
        z.push_back(-value);
    }
    const auto source = MemoryPointSource::make(layoutXYZ(), {x, y, z});
    const auto writer = makeWriter(*source);
    writer->setQuantization(Numbers{0.5, 1, 0.5}.data(), Numbers{10, 20, -10}.data());
    const LASFile file = write(*writer);
    std::vector<int> steps;
    for (const LASFilePoint& point : file.points)
        steps.push_back(point.x);
    EXPECT_EQ(steps, (std::vector<int>{0, 1, 1, -1, -1, -2, 0}));
    // The header's bounds are those of the steps.
    EXPECT_EQ(file.min, (std::array<double, 3>{9, 18, -10.5}));
    EXPECT_EQ(file.max, (std::array<double, 3>{10.5, 21, -9}));
    EXPECT_EQ(writer->write({{100, 200}, {0, 20}, {0, 20}}, 1, source->getPointInfo(), nullptr), 0);
    const LASFile empty = LASFile::load(path);
    EXPECT_EQ(empty.count, 0u);
    EXPECT_EQ(empty.min, empty.offset);
    EXPECT_EQ(empty.max, empty.offset);
}

TEST_F(LASWriting, RefusesCoordinatesThatItCannotHold)
{
    const double inf = infinity;
    const auto tooLarge = [&](const std::string& y, const std::string& scale) {
        return "40607 " + path + ": the Y coordinate " + y + " does not fit into 32 bits with the scale " +
               scale + " and the offset 0; use a coarser scale (-sc) or a nearer offset (-ofs)";
    };
    const std::tuple<double, double, double, std::string> cases[] = {
        {3e6, 0.001, 0, tooLarge("3000000", "0.001")},
        {3e6, 0.001, 2e6, "no error"},
        {2147483647.25, 1, 0, "no error"},
        {2147483647.5, 1, 0, tooLarge("2147483647.5", "1")},
        {-2147483648.25, 1, 0, "no error"},
        {-2147483648.5, 1, 0, tooLarge("-2147483648.5", "1")},
        {-inf, 0.001, 0, "40607 " + path + ": LAS cannot hold the Y coordinate -inf"},
        {1, 0, 0, "40007 the scale 0 of Y cannot be used"},
        {1, -1, 0, "40007 the scale -1 of Y cannot be used"},
        {1, nan, 0, "40007 the scale nan of Y cannot be used"},
        {1, inf, 0, "40007 the scale inf of Y cannot be used"},
        {1, 1e300, 0, "40007 the scale 1e+300 of Y cannot be used"},
        {1, 1e-310, 0, "40007 the scale 1e-310 of Y cannot be used"},
        {1, 1, inf, "40007 the offset inf of Y cannot be used"},
    };
    for (const auto& [y, scale, offset, error] : cases) {
        Numbers others(20000), ys(others.size(), 2e6); // of a block, more than are packed at once
        ys[1] = y;
        const auto source = MemoryPointSource::make(layoutXYZ(), {others, ys, others});
        const auto writer = makeWriter(*source);
        writer->setChunckSize(others.size());
        writer->setQuantization(Numbers{1, scale, 1}.data(), Numbers{0, offset, 0}.data());
        EXPECT_EQ(failureOf([&] { write(*writer); }), error);
        EXPECT_EQ(std::filesystem::remove(path), error == "no error") << error;
        EXPECT_TRUE(directory.isEmpty()) << error;
    }
}

// The numbers of the projection VLRs in a file, with their sizes or without, and the WKT bit.
std::string projectionOf(const LASFile& file, bool withSizes)
{
    std::string records;
    for (const auto& record : file.records) {
        EXPECT_EQ(record.userID, "LASF_Projection");
        EXPECT_EQ(record.reserved, 0xAABB);
        records += std::to_string(record.recordID) +
                   (withSizes ? ':' + std::to_string(record.value.size()) + ' ' : " ");
    }
    return records + ((file.globalEncoding & 16) != 0 ? "WKT" : "");
}

TEST_F(LASWriting, CopiesProjectionRecords)
{
    // A VLR has at most 65,535 bytes, with the NUL of a text.
    const std::string largest(65534, 'x'), huge(65535, 'x');
    const double numbers[] = {1.5, 2.5};
    // Letters of the records added below, whether the format is extended and the records overridden, the result.
    const std::tuple<std::string, bool, bool, std::string> cases[] = {
        {"kdao", false, false, "34735:8 34736:16 34737:3 "},
        {"kdaow", false, false, "34735:8 34736:16 34737:3 2112:4 "},
        {"w", false, false, "2112:4 WKT"},
        {"kdao", true, false, "2112:19 WKT"}, // formats 6 to 10 cannot have keys
        {"kwm", true, false, "2112:4 2111:65535 WKT"},
        {"wm", true, true, "2112:19 WKT"},
        {"h", true, false, "2112:19 WKT"}};
    for (const auto& [letters, isExtended, isOverridden, written] : cases) {
        SCOPED_TRACE(letters);
        const auto source = makeSource({channel(isExtended ? "ClassFlags" : "UserData", UINT8)});
        source->setWKT("LOCAL_CS[\"unused\"]");
        Metadata& metadata = source->metadata();
        for (const char record : letters) {
            if (record == 'k')
                metadata.add("LASF_Projection::34735", "keys", METADATA_BLOB, "\1\0\1\0\0\0\0\0", 8);
            else if (record == 'd')
                metadata.add("LASF_Projection::34736", nullptr, METADATA_FLOAT64_ARRAY, numbers, 2);
            else if (record == 'a')
                metadata.add("LASF_Projection::34737", nullptr, METADATA_STRING, "a|", 0);
            else if (record == 'o')
                for (const char* key : {"LASF_Projection::34734", "LASF_Projection::34738", "user::34735",
                                        "LASF_Projection::67648", "LASF_Projection::-63424"})
                    metadata.add(key, nullptr, METADATA_STRING, "other", 0);
            else if (record == 'm')
                metadata.add("LASF_Projection::2111", nullptr, METADATA_STRING, largest.c_str(), 0);
            else
                metadata.add("LASF_Projection::2112", nullptr, METADATA_STRING,
                             record == 'w' ? "WKT" : huge.c_str(), 0);
        }
        const auto writer = makeWriter(*source);
        writer->setOverrideProjectionVLRs(isOverridden);
        const LASFile file = write(*writer);
        EXPECT_EQ(projectionOf(file, true), written);
        const std::string description = file.records.empty() ? "" : file.records[0].description;
        EXPECT_EQ(description, written[0] == '3' ? "keys" : "");
    }
}

TEST_F(LASWriting, TranslatesTheCoordinateSystem)
{
    const std::string grid = transverseMercator(-101, "a grid", "", 0, "0.9995", "1234");
    const std::string largest(65534, 'x'), huge(65535, 'x');
    const char keys[] = "34735 34736 34737 ";
    const struct
    {
        std::string wkt;
        int version;
        const char* written;
        bool isLost = false;
        const char* found = ""; // in the text of a reader
    } cases[] = {{"", 11, ""},
                 {"no such thing", 11, "", true},
                 {wgs84, 11, keys, false, "GEOGCS[\"WGS 84\""},
                 {grid, 13, keys, false, "PROJCS[\"a grid\""},
                 {grid, 10, keys, false, "\"central_meridian\",-101]"},
                 {grid, 10, keys, false, "\"false_easting\",1234]"},
                 {grid, 14, "2112 WKT", false, "PROJCS[\"a grid\""},
                 {largest, 14, "2112 WKT", false, "xxxx"},
                 {huge, 14, "WKT", true},
                 {"", 14, ""}};
    const auto source = makeSource({});
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    for (const auto& each : cases) {
        SCOPED_TRACE(each.wkt.substr(0, 20) + std::to_string(each.version));
        source->setWKT(each.wkt.c_str());
        writer->init(source.get(), path.c_str(), each.version);
        EXPECT_EQ(projectionOf(write(*writer), false), each.written);
        EXPECT_EQ(writer->losesCoordinateSystem(), each.isLost);
        const Scoped<LASPointReader> reader(LASPointReader::create());
        reader->init(path.c_str(), false);
        const std::string wkt = reader->getWKT() ? reader->getWKT() : "";
        EXPECT_EQ(wkt.empty(), *each.found == '\0') << wkt;
        EXPECT_NE(wkt.find(each.found), std::string::npos) << wkt;
    }
}

TEST_F(LASWriting, CompressesTheSamePoints)
{
    // Formats, versions and counts: the first has more than one of LASzip's chunks.
    const std::tuple<int, int, std::size_t> cases[] = {{7, -1, 50001}, {0, 12, 3000}, {1, 12, 3000},
                                                       {2, 12, 3000},  {3, 12, 3000}, {6, 14, 3000},
                                                       {7, 0, 3000},   {7, 12, 3000}, {8, 14, 3000}};
    for (const auto& [format, requested, count] : cases) {
        LASFile original = randomLASFile(format, 4, count, 5);
        original.globalEncoding = format == 7 ? 1 : 0; // adjusted time
        writeFile(path, original.build());
        const Scoped<LASPointReader> reader(LASPointReader::create()), back(LASPointReader::create());
        reader->init(path.c_str(), false);
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        const std::string compressed = directory / "out.laz";
        writer->init(reader.get(), compressed.c_str(), requested);
        writer->setWriteLAZ(true);
        writer->write(Bounds::Huge(), 1, reader->getPointInfo(), nullptr);
        const LASFile header = LASFile::load(compressed);
        EXPECT_TRUE(header.compressed);
        EXPECT_EQ(std::pair(header.format, header.count), std::pair(format, std::uint64_t{count}));
        const int version = requested < 0 ? 14 : requested;
        EXPECT_EQ(header.versionMajor * 10 + header.versionMinor, version);
        ASSERT_EQ(header.records.size(), 1u);
        EXPECT_EQ(header.records[0].userID, "laszip encoded");
        back->init(compressed.c_str(), false);
        EXPECT_EQ(back->getFileFormatString(),
                  "LAZ " + std::to_string(version / 10) + '.' + std::to_string(version % 10));
        EXPECT_TRUE(readLASPoints(*back) == original.points) << format << ' ' << requested;
        // One field at a time: layered files skip the others.
        for (std::size_t i = 3; format >= 6 && count < 50000 && i < back->getNumChannels(); ++i) {
            const PointInfo one = layoutXYZ({back->getChannel(i)});
            EXPECT_TRUE(readRows(*back, one) == readRows(*reader, one)) << back->getChannel(i).getName();
        }
    }
}

// One thread leaves all chunks to one LASzip encoder. Bounds and counts of the header are computed, too.
TEST_F(LASWriting, CompressesToTheSameBytesWithAnyNumberOfThreads)
{
    const tbb::global_control allowThreads(tbb::global_control::max_allowed_parallelism, 4);
    for (const int format : {0, 1, 2, 3, 6, 7, 8})
        for (const std::size_t count : {0, 1, 50000, 50001}) {
            if (count == 50000 && format != 3)
                continue;
            writeFile(path, randomLASFile(format, 4, count, 5).build());
            std::string expected;
            for (const int threads : {1, 4}) {
                const std::string compressed = directory / "out.laz";
                tbb::task_arena(threads).execute([&] { rewriteLAS(path, compressed); });
                const std::string bytes = readFile(compressed);
                if (threads == 1)
                    expected = bytes;
                EXPECT_TRUE(bytes == expected) << format << ' ' << count << ' ' << threads;
            }
        }
}

// LAS records hold one time. The channel that comes later is written.
TEST_F(LASWriting, ReportsTimesThatItLoses)
{
    constexpr unsigned count = 4000; // a block of more points than are packed at once
    const auto repeated = [](const Numbers& times) {
        Numbers all;
        for (unsigned i = 0; i < count; ++i)
            all.insert(all.end(), times.begin(), times.end());
        return all;
    };
    const Numbers week = repeated({1, 0, 3, 0, 5}), adjusted = repeated({10, 20, 0, 0, 5});
    const ChannelInfo weekTime = channel("GPSTime", FLOAT64);
    const auto source = makeSource({channel("GPSTime_Adjusted", FLOAT32), weekTime}, {adjusted, week});
    const auto writer = makeWriter(*source);
    writer->setChunckSize(week.size());
    for (const bool prefersNonzero : {false, true}) {
        writer->setPrefersNonzeroTime(prefersNonzero);
        Numbers times;
        for (const LASFilePoint& point : write(*writer).points)
            times.push_back(point.gpsTime);
        EXPECT_EQ(times, prefersNonzero ? repeated({1, 20, 3, 0, 5}) : week);
        ASSERT_TRUE(writer->getTimeConflict());
        const LASPointWriter::TimeConflict conflict = *writer->getTimeConflict();
        EXPECT_EQ(std::string(conflict.written) + ", not " + conflict.other, "GPSTime, not GPSTime_Adjusted");
        EXPECT_EQ(conflict.numLost, prefersNonzero ? count : 2 * count);
        EXPECT_EQ(conflict.numFromOther, prefersNonzero ? count : 0);
        writer->write(Bounds::Huge(), 1, layoutXYZ({weekTime}), nullptr);
        EXPECT_FALSE(writer->getTimeConflict());
    }
}

TEST_F(LASWriting, ReportsScanAnglesInTheUnitOfOtherFormats)
{
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    const std::tuple<ChannelInfo, const char*, bool> cases[] = {
        {channel("ScanAngle", SINT8), "ClassFlags", true},
        {channel("ScanAngle", SINT8), "UserData", false},
        {channel("ScanAngle", FLOAT32), "ClassFlags", true},
        {channel("ScanAngle", SINT16), "ClassFlags", false},
        {channel("ScanAngle", SINT16, 0, 8), "UserData", true}};
    for (const auto& [angle, other, isForeign] : cases) {
        const auto source = makeSource({angle, channel(other, UINT8)});
        writer->init(source.get(), path.c_str(), -1);
        write(*writer);
        EXPECT_EQ(writer->hasForeignScanAngles(), isForeign) << angle.getDataType() << other;
    }
}

// An IO that is written in order takes the place of a pipe.
TEST_F(LASWriting, ChecksTotalsThatItHasWrittenBeforeThePoints)
{
    const auto source = makeSource({channel("ReturnNum", UINT8, 0, 3)}, {{1, 1, 2, 5, 9}});
    const LASFile expected = write(*source);
    LASPointWriter::Totals totals{5, source->getBounds(), std::vector<std::uint64_t>(256)};
    for (const std::size_t value : {1, 1, 2, 5, 9})
        ++totals.countsByReturn[value];
    const auto stream = [&](const std::optional<LASPointWriter::Totals>& stated) {
        const Scoped<FileIO::Imp> file(FileIO::create());
        file->adopt(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600), "pipe", FileIO::Imp::SEQUENTIAL);
        const auto writer = makeWriter(*source);
        writer->init(source.get(), file.get(), "pipe", -1);
        writer->setTotals([&] { return stated; });
        const std::string failure = failureOf([&] { write(*writer); });
        return failure + (writer->hasLargerBounds() ? ", larger" : "");
    };
    const std::string whole = readFile(path);
    for (const auto& stated : {std::optional(totals), std::optional<LASPointWriter::Totals>()}) {
        EXPECT_EQ(stream(stated), "no error");
        EXPECT_TRUE(readFile(path) == whole);
    }
    EXPECT_EQ(expected.legacyByReturn, (std::array<std::uint32_t, 5>{2, 1, 0, 0, 1}));

    const std::string error = "40601 pipe: the points are not those that the header describes, which is "
                              "already written; write to a file instead";
    auto wrong = totals;
    wrong.numPoints = 4;
    EXPECT_EQ(stream(wrong), error);
    wrong = totals;
    std::swap(wrong.countsByReturn[2], wrong.countsByReturn[3]);
    EXPECT_EQ(stream(wrong), error);
    wrong = totals;
    wrong.bounds.z.min = wrong.bounds.z.max = 1;
    EXPECT_EQ(stream(wrong), error);
    wrong = totals;
    wrong.bounds.y.max += 1;
    EXPECT_EQ(stream(wrong), "no error, larger");
    wrong.bounds.y.max = infinity; // not in a header
    EXPECT_EQ(stream(wrong), "no error");
    EXPECT_TRUE(readFile(path) == whole);
}

}} // namespace Quillmoran::Testing
