#include "formats/pdal/BPFTestFile.h"
#include "pdal/PDALFormats.h"
#include "support/SampleCloud.h"
#include "support/Test.h"
#include <vxunpack/VX7PointReader.h>

namespace Quillmoran::Testing { namespace {

class PDALPointWriterTest : public testing::Test
{
protected:
    std::int64_t write(PointSource& source, const PointInfo& layout, const Bounds& box = Bounds::Huge())
    {
        const Scoped<PointWriter> writer(createPDALPointWriter(&source, path.c_str()));
        writer->setChunckSize(5000); // more than a view of PDAL, and not a multiple of it
        return writer->write(box, 1, layout, &listener);
    }
    std::int64_t write(PointSource& source) { return write(source, source.getPointInfo()); }
    BPFTestFile parse() const { return BPFTestFile::parse(readFile(path)); }
    Scoped<PointReader> open() const { return Scoped<PointReader>(createPDALPointReader(path.c_str())); }

    // 12,000 points in scan lines, whose coordinates need all digits.
    Scoped<VX7PointReader> openSurvey()
    {
        const std::string input = directory / "in.vxl";
        writeFile(input, buildFile(SampleCloud::make(12000, 1).toFile()));
        Scoped<VX7PointReader> reader(VX7PointReader::create());
        reader->init(input.c_str());
        return reader;
    }

    TemporaryDirectory directory;
    std::string path = directory / "out.bpf";
    ProgressLog listener;
};

// Equal except for the last digits of a double, or of a float within a range.
void expectNear(const Numbers& actual, const Numbers& expected, double tolerance, const std::string& what)
{
    ASSERT_EQ(actual.size(), expected.size()) << what;
    for (std::size_t i = 0; i < actual.size(); ++i) {
        const bool same = actual[i] == expected[i] || std::fabs(actual[i] - expected[i]) <= tolerance;
        ASSERT_TRUE(same) << what << ' ' << i << ": " << actual[i] << ", not " << expected[i];
    }
}

TEST_F(PDALPointWriterTest, WritesEveryChannelOfASurvey)
{
    const auto survey = openSurvey();
    EXPECT_EQ(write(*survey), 12000);
    EXPECT_TRUE(listener.warnings.empty());
    const Columns expected = readColumns(*survey);

    const BPFTestFile file = parse();
    EXPECT_EQ(file.numPoints, 12000);
    const std::pair<const char*, const char*> names[] = {{"X", "X"},
                                                         {"Y", "Y"},
                                                         {"Z", "Z"},
                                                         {"Intensity", "Intensity"},
                                                         {"ClassId", "Classification"},
                                                         {"ScanAngle", "ScanAngleRank"},
                                                         {"GPSTime", "GpsTime"},
                                                         {"Temperature", "Temperature"}};
    EXPECT_EQ(file.labels.size(), std::size(names));
    for (const auto& [name, label] : names) {
        const bool coordinate = *name >= 'X';
        // Almost all times are within a second; the others have the largest difference.
        const double tolerance = coordinate ? 1e-9 : label == std::string("GpsTime") ? 1e-7 : 0;
        ASSERT_TRUE(file.columns.count(label)) << label;
        expectNear(file.columns.at(label), expected.at(name), tolerance, label);
    }

    const auto reader = open();
    EXPECT_STREQ(reader->getFileFormatString(), "BPF 3");
    EXPECT_EQ(reader->getNumPoints(), 12000);
    const Columns read = readColumns(*reader);
    EXPECT_EQ(read.size(), expected.size());
    for (const auto& [name, values] : expected) {
        const ChannelInfo* found = reader->getChannel(name.c_str());
        ASSERT_TRUE(found) << name;
        EXPECT_EQ(found->getDataType(), survey->getChannel(name.c_str())->getDataType()) << name;
        expectNear(read.at(name), values, name[0] >= 'X' ? 1e-9 : name == "GPSTime" ? 1e-7 : 0, name);
    }
    const auto extent = [&](const char* name) {
        const auto [min, max] = std::minmax_element(expected.at(name).begin(), expected.at(name).end());
        return Bounds::Range{*min, *max};
    };
    EXPECT_NEAR(reader->getBounds().x.min, extent("X").min, 1e-9);
    EXPECT_NEAR(reader->getBounds().y.max, extent("Y").max, 1e-9);
    EXPECT_NEAR(reader->getBounds().z.max, extent("Z").max, 1e-9);
}

// A float has 24 bits; values that need more are stored as differences.
TEST_F(PDALPointWriterTest, KeepsTheDigitsOfLargeValues)
{
    const PointInfo layout = layoutXYZ({channel("GPSTime_Adjusted", FLOAT64), channel("Id", UINT32)});
    Numbers x, y, z, time, id;
    for (int i = 0; i < 5000; ++i) {
        x.push_back(5500000.001 + i * 0.003);
        y.push_back(-0.125 * i);
        z.push_back(1e6 + i);
        time.push_back(312345678.25 + i * 0.5);
        id.push_back(4294960000.0 + i);
    }
    const auto source = MemoryPointSource::make(layout, {x, y, z, time, id});
    const double scale[] = {0.001, 0.001, 0.001}, origin[] = {0, 0, 0};
    source->setQuantization(scale, origin);
    write(*source);
    const Columns written = readColumns(*open());
    expectNear(written.at("X"), x, 2e-9, "X");
    expectNear(written.at("Y"), y, 2e-9, "Y");
    expectNear(written.at("Z"), z, 2e-9, "Z");
    EXPECT_EQ(written.at("GPSTime"), time);
    EXPECT_EQ(written.at("Id"), id);
}

TEST_F(PDALPointWriterTest, GivesDimensionsNamesThatPDALAccepts)
{
    const PointInfo layout =
        layoutXYZ({channel("Extra Byte", UINT8), channel("Extra_Byte", UINT8), channel("7th", UINT8),
                   channel("ScanAngle", SINT16), channel("NearInfrared", UINT16),
                   channel("ScanAngle", SINT16), channel("a name of more than 31 characters", UINT8)});
    const Numbers n{1}, angle{-2500};
    const auto source = MemoryPointSource::make(layout, {n, n, n, n, n, n, angle, n, angle, n});
    write(*source);
    EXPECT_EQ(listener.warnings, (std::vector<std::string>{"the output format does not support channel "
                                                           "'a name of more than 31 characters'"}));
    const BPFTestFile file = parse();
    EXPECT_EQ(file.labels.size(), 8u);
    for (const char* label : {"X", "Extra_Byte", "Extra_Byte_", "C_7th", "Infrared"})
        EXPECT_EQ(file.columns.count(label), 1u) << label;
    // Steps of 0.006 degrees in extended point types, degrees in PDAL.
    EXPECT_NEAR(file.columns.at("ScanAngleRank").at(0), -15, 1e-6);
}

TEST_F(PDALPointWriterTest, WritesAFileOfNoPoints)
{
    const auto survey = openSurvey();
    EXPECT_EQ(write(*survey, survey->getPointInfo(), {{0, 1}, {0, 1}, {0, 1}}), 0);
    const auto reader = open();
    EXPECT_EQ(reader->getNumPoints(), 0);
    EXPECT_EQ(reader->getBounds(), Bounds::Huge());
    EXPECT_TRUE(readColumns(*reader).empty());
}

TEST_F(PDALPointWriterTest, KeepsTheCoordinateSystemsOfTheFormat)
{
    const auto utm = [](int meridian, int northing, const char* datum) {
        return "PROJCS[\"test\",GEOGCS[\"WGS 84\",DATUM[\"" + std::string(datum) +
               "\",SPHEROID[\"WGS 84\",6378137,298.257223563]],PRIMEM[\"Greenwich\",0],UNIT[\"degree\","
               "0.0174532925199433]],PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"latitude_of_origin\",0],"
               "PARAMETER[\"central_meridian\"," +
               std::to_string(meridian) +
               "],PARAMETER[\"scale_factor\",0.9996],PARAMETER[\"false_easting\",500000],"
               "PARAMETER[\"false_northing\"," +
               std::to_string(northing) + "],UNIT[\"metre\",1]]";
    };
    const std::string degrees =
        "GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,298.257223563]"
        "],PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]]";
    const struct
    {
        std::string wkt;
        double x;
        int zone;
        bool kept;
        const char* found; // in the WKT of what is read; null for none
    } cases[] = {{utm(-105, 0, "WGS_1984"), 500000, 13, true, "UTM zone 13N"},
                 {utm(177, 10000000, "WGS_1984"), 500000, -60, true, "UTM zone 60S"},
                 {utm(-105, 0, "North_American_Datum_1983"), 500000, 0, false, nullptr},
                 {utm(-100, 0, "WGS_1984"), 500000, 0, false, nullptr},
                 {degrees, -120, 0, true, "GEOGCS[\"WGS 84\""},
                 {"nonsense", 500000, 0, false, nullptr},
                 {"", 500000, 0, true, nullptr}};
    for (const auto& each : cases) {
        const auto source = MemoryPointSource::make(layoutXYZ(), {{each.x}, {45}, {0}});
        source->setWKT(each.wkt.c_str());
        listener.warnings.clear();
        write(*source);
        EXPECT_EQ(listener.warnings.empty(), each.kept) << each.wkt;
        EXPECT_EQ(parse().zone, each.zone) << each.wkt;
        const auto reader = open();
        const std::string wkt = reader->getWKT() ? reader->getWKT() : "";
        EXPECT_EQ(wkt.empty(), each.found == nullptr) << wkt;
        EXPECT_NE(wkt.find(each.found ? each.found : ""), std::string::npos) << wkt;
    }
}

TEST_F(PDALPointWriterTest, RefusesANameThatPDALReadsAsSeveral)
{
    const auto survey = openSurvey();
    path = directory / "out#.bpf";
    EXPECT_EQ(failureOf([&] { write(*survey); }),
              "-1 the name of a BPF file cannot hold a '#': '" + path + "'");
}

}} // namespace Quillmoran::Testing
