#include "formats/pdal/BPFTestFile.h"
#include "pdal/PDALFormats.h"
#include "support/CoordinateSystems.h"
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
    const auto reader = open();
    EXPECT_STREQ(reader->getFileFormatString(), "BPF 3");
    EXPECT_EQ(file.numPoints, 12000);
    EXPECT_EQ(reader->getNumPoints(), 12000);
    const Columns read = readColumns(*reader);
    const std::map<std::string, std::string> labels = {
        {"ClassId", "Classification"}, {"ScanAngle", "ScanAngleRank"}, {"GPSTime", "GpsTime"}};
    EXPECT_EQ(file.labels.size(), expected.size());
    EXPECT_EQ(read.size(), expected.size());
    for (const auto& [name, values] : expected) {
        const std::string label = labels.count(name) != 0 ? labels.at(name) : name;
        // Almost all times are within a second; the others have the largest difference.
        const double tolerance = name[0] >= 'X' ? 1e-9 : name == "GPSTime" ? 1e-7 : 0;
        expectNear(file.columns.at(label), values, tolerance, label);
        expectNear(read.at(name), values, tolerance, name);
        EXPECT_EQ(reader->getChannel(name.c_str())->getDataType(),
                  survey->getChannel(name.c_str())->getDataType())
            << name;
    }
    const Bounds bounds = reader->getBounds();
    for (const auto& [name, range] :
         {std::pair("X", bounds.x), std::pair("Y", bounds.y), std::pair("Z", bounds.z)}) {
        const auto [min, max] = std::minmax_element(expected.at(name).begin(), expected.at(name).end());
        EXPECT_NEAR(range.min, *min, 1e-9) << name;
        EXPECT_NEAR(range.max, *max, 1e-9) << name;
    }

    EXPECT_EQ(write(*survey, survey->getPointInfo(), {{0, 1}, {0, 1}, {0, 1}}), 0);
    EXPECT_EQ(open()->getNumPoints(), 0);
    EXPECT_EQ(open()->getBounds(), Bounds::Huge());
    EXPECT_TRUE(readColumns(*open()).empty());
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
    EXPECT_EQ(listener.warnings, (Strings{"the output format does not support channel "
                                          "'a name of more than 31 characters'"}));
    const BPFTestFile file = parse();
    EXPECT_EQ(file.labels.size(), 8u);
    for (const char* label : {"X", "Extra_Byte", "Extra_Byte_", "C_7th", "Infrared"})
        EXPECT_EQ(file.columns.count(label), 1u) << label;
    // Steps of 0.006 degrees in extended point types, degrees in PDAL.
    EXPECT_NEAR(file.columns.at("ScanAngleRank").at(0), -15, 1e-6);
}

TEST_F(PDALPointWriterTest, KeepsTheCoordinateSystemsOfTheFormat)
{
    const std::string utm13 = transverseMercator(-105), datum = "North_American_Datum_1983";
    // Texts, an easting, the zone in the file, whether it is kept, and the text that is read.
    const std::tuple<std::string, double, int, bool, std::string> cases[] = {
        {utm13, 500000, 13, true, "UTM zone 13N"},
        {transverseMercator(177, "a grid", "", 10000000), 500000, -60, true, "UTM zone 60S"},
        {replaced(utm13, "WGS_1984", datum), 500000, 0, false, ""},
        {transverseMercator(-100), 500000, 0, false, ""},
        {wgs84, -120, 0, true, "GEOGCS[\"WGS 84\""},
        {"nonsense", 500000, 0, false, ""},
        {"", 500000, 0, true, ""}};
    for (const auto& [text, x, zone, isKept, found] : cases) {
        const auto source = MemoryPointSource::make(layoutXYZ(), {{x}, {45}, {0}});
        source->setWKT(text.c_str());
        listener.warnings.clear();
        write(*source);
        EXPECT_EQ(listener.warnings.empty(), isKept) << text;
        EXPECT_EQ(parse().zone, zone) << text;
        const auto reader = open();
        const std::string wkt = reader->getWKT() ? reader->getWKT() : "";
        EXPECT_EQ(wkt.empty(), found.empty()) << wkt;
        EXPECT_NE(wkt.find(found), std::string::npos) << wkt;
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
