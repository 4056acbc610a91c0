// Runs of the program; its files decode to its inputs.
#include "apps/ProgramTest.h"
#include "filters/HilbertCurve.h"
#include "support/ExampleSurvey.h"
#include "support/LASClouds.h"
#include "support/SampleCloud.h"
#include "support/SetOfSources.h"
#include "support/TileFiles.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/VX7PointReader.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <regex>

namespace Quillmoran {
namespace {

using nlohmann::json;
using Testing::find;
using Testing::LASBytes;
using Testing::LASFile;
using Testing::LASFilePoint;
using Testing::Program;
using Testing::readFile;
using Testing::Result;
using Testing::writeFile;
using Lines = std::vector<std::string>;
using Rows = std::vector<std::vector<double>>;

// Begins with the line that names the columns.
Lines linesOf(const std::string& text)
{
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

Rows numbersOf(const Lines& lines)
{
    Rows rows;
    for (const std::string& line : lines) {
        rows.emplace_back();
        const char* at = line.c_str();
        for (char* end = nullptr;; at = end) {
            const double value = std::strtod(at, &end);
            if (end == at)
                break;
            rows.back().push_back(value);
        }
    }
    return rows;
}

class Vxpack : public Testing::ProgramTest
{
protected:
    Vxpack() { writeFile(directory / "survey.vxl", Testing::buildExampleSurvey()); }

    Result run(const std::string& arguments) const { return ProgramTest::run(VXPACK, arguments); }
    // Returns the output of a run without errors and warnings.
    std::string succeed(const char* program, const std::string& arguments) const
    {
        const Result result = ProgramTest::succeed(program, arguments);
        EXPECT_EQ(result.errors, "") << arguments;
        return result.output;
    }
    std::string pack(const std::string& arguments) const { return succeed(VXPACK, arguments); }
    std::string decode(const std::string& arguments) const
    {
        succeed(VXUNPACK, "-o text.txt -i " + arguments);
        return readFile(directory / "text.txt");
    }
    // The points, decoded to text.
    Rows rowsOf(const std::string& arguments) const
    {
        const Lines lines = linesOf(decode(arguments));
        return numbersOf(Lines(lines.begin() + 1, lines.end()));
    }
    // The points of a compressed file, to the last bit.
    Rows samplesOf(const std::string& name) const
    {
        const auto reader = openCompressed(name);
        return Testing::readRows(*reader, reader->getPointInfo());
    }
    json describe(const std::string& arguments) const
    {
        return json::parse(succeed(VXINFO, "-json " + arguments))[0];
    }
    Scoped<VX7PointReader> openCompressed(const std::string& name) const
    {
        Scoped<VX7PointReader> reader(VX7PointReader::create());
        reader->init((directory / name).c_str());
        return reader;
    }
    Scoped<LASPointReader> openLAS(const std::string& name) const
    {
        Scoped<LASPointReader> reader(LASPointReader::create());
        reader->init((directory / name).c_str(), false);
        return reader;
    }
    // Writes a LAS or LAZ file anew, without a compressed cloud in between.
    void rewrite(const std::string& input, const std::string& output) const
    {
        const auto reader = openLAS(input);
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(reader.get(), (directory / output).c_str(), -1);
        writer->setWriteLAZ(output.substr(output.size() - 4) == ".laz");
        writer->write(Bounds::Huge(), 1, reader->getPointInfo(), nullptr);
    }
    // The bytes, without the day on which the file was made.
    std::string bytesOf(const std::string& name) const
    {
        std::string bytes = readFile(directory / name);
        constexpr std::size_t creationDate = 90;
        return bytes.size() < creationDate + 4 ? bytes : bytes.replace(creationDate, 4, 4, '\0');
    }
};

LASFile surveyLAS(int format)
{
    LASFile file =
        Testing::randomLASFile(format, format < 6 ? 2 : 4, 3000, 50u + static_cast<unsigned>(format));
    file.fileSourceID = 4711;
    file.guid1 = 0xDEADBEEF, file.guid2 = 0x0102, file.guid3 = 0xABCD;
    file.guid4 = {1, 2, 3, 4, 5, 6, 7, 8};
    file.systemID = "a scanner on a mast";
    file.scale = {0.001, 0.25, 1e-7};
    file.offset = {674521.920013, -2000, 50};
    file.describePoints();
    const LASBytes keys = {1, 0, 1, 0, 0, 0, 2, 0, 0, 4, 0, 0, 1, 0, 1, 0, 0, 12, 0, 0, 1, 0, 0x65, 0x7F};
    const std::string wkt("LOCAL_CS[\"site\"]\0", 17);
    if (format < 6)
        file.records = {{"LASF_Projection", 34735, "keys", keys}};
    else
        file.records = {{"LASF_Projection", 2112, "the site", LASBytes(wkt.begin(), wkt.end())}};
    file.globalEncoding = format < 6 ? 0 : 16;
    file.records.push_back({"Owner", 9, "of nobody else", {1, 2, 3}});
    return file;
}

TEST_F(Vxpack, GivesBackLASAndLAZFiles)
{
    for (const int format : {0, 1, 2, 3, 6, 7, 8}) {
        const LASFile original = surveyLAS(format);
        writeFile(directory / "in.las", original.build());
        rewrite("in.las", "in.laz");
        rewrite("in.las", "twin.las");
        for (const std::string input : {"in.las", "in.laz"}) {
            pack("-i " + input + " -o out.vxl");
            for (const std::string output : {"las", "laz"}) {
                succeed(VXUNPACK, "-i out.vxl -o out." + output);
                rewrite(input, "twin." + output);
                EXPECT_TRUE(bytesOf("out." + output) == bytesOf("twin." + output))
                    << input << " of format " << format << " as " << output;
            }
            const LASFile file = LASFile::load(directory / "out.las");
            EXPECT_TRUE(file.points == original.points) << input << " of format " << format;
            EXPECT_EQ(file.format, original.format);
            EXPECT_EQ(file.scale, original.scale);
            EXPECT_EQ(file.offset, original.offset);
            EXPECT_EQ(file.min, original.min);
            EXPECT_EQ(file.max, original.max);
            EXPECT_EQ(file.legacyByReturn, original.legacyByReturn);
            EXPECT_EQ(file.fileSourceID, 4711);
            EXPECT_EQ(std::string(file.systemID.c_str()), "a scanner on a mast");
            EXPECT_EQ(file.guid1, 0xDEADBEEF);
            EXPECT_EQ(file.guid4, original.guid4);
            ASSERT_EQ(file.records.size(), 1u) << format;
            EXPECT_EQ(file.records[0].recordID, original.records[0].recordID);
            EXPECT_EQ(file.records[0].description, original.records[0].description);
            EXPECT_EQ(file.records[0].value, original.records[0].value);

            // The compressed file keeps records that LAS writers omit.
            const json packed = describe("out.vxl -check"), source = describe(input);
            for (const char* key : {"numPoints", "scale", "offset", "bounds", "wkt"})
                EXPECT_EQ(packed[key], source[key]) << key;
            json metadata = source["metadata"];
            EXPECT_EQ(metadata.dump().find("\"Owner::9\"") != std::string::npos, input == "in.las")
                << metadata;
            metadata.push_back({{"key", "PreCompressionPointCount"},
                                {"description", nullptr},
                                {"type", "string"},
                                {"length", 5},
                                {"value", "3000"}});
            EXPECT_EQ(packed["metadata"], metadata);
        }
    }
}

TEST_F(Vxpack, GivesTextBackByteForByte)
{
    Testing::Random random(3);
    std::string text = "# X Y Z Intensity ReturnNum NumReturns ScanDir EdgeFlightLine ClassId ClassFlags "
                       "ScannerChannel ScanAngle UserData SourceId GPSTime GPSTime_Adjusted Red Green Blue "
                       "NearInfrared Amplitude Noise\n";
    for (int i = 0; i < 3000; ++i) {
        const auto below = [&](int end) {
            return static_cast<int>(random.below(static_cast<unsigned>(end)));
        };
        char line[500];
        // Heights from 4.06 to 6152.6 that are no exact multiples of 0.01; Y has its own scale.
        std::snprintf(line, sizeof line,
                      "%.3f %.2f %.3f %d %d %d %d 1 %d %d %d %d %d %d %.6f %.9f %d %d %d %d %.3f %.18g\n",
                      636000 + 0.01 * (i * 7 % 5000), 848900.25 + 0.25 * (i / 9) + 0.5 * (i % 2 == 0),
                      below(615260) / 100.0, below(65536), below(16), below(16), below(2), below(256),
                      below(16), below(4), below(65536) - 32768, below(256), below(65536),
                      245379 + i * 0.000125, below(1000000) / 1e9, below(65536), below(65536), below(65536),
                      below(65536), (below(2000) - 1000) / 1000.0, random.real());
        text += line;
    }
    writeFile(directory / "in.txt", text);
    pack("-i in.txt -o out.vxl");
    const json file = describe("out.vxl -check");
    EXPECT_EQ(find(file["channels"], "X")["quantization"], 0.01);
    EXPECT_EQ(find(file["channels"], "Z")["type"], "FLOAT64");
    EXPECT_EQ(find(file["channels"], "ScanAngle")["type"], "SINT16");
    // Multiples of 0.25 and 0.5 are written without trailing zeros.
    const auto withoutZeros = [](const std::string& lines) {
        return std::regex_replace(lines, std::regex("(\\.[0-9]*[1-9])0+ |\\.0+ "), "$1 ");
    };
    EXPECT_EQ(withoutZeros(decode("out.vxl")), withoutZeros(text));

    // The same columns by name give the same file.
    std::string table = "made by hand\nno header\n" + text.substr(text.find('\n') + 1);
    std::replace(table.begin(), table.end(), ' ', ',');
    writeFile(directory / "in.csv", table);
    pack("-i in.csv -o csv.vxl -skip 2 -parse x,y,z,i,r,n,d,e,c,ClassFlags,scannerchannel,a,u,p,t,T,R,G,B,"
         "NearInfrared,Amplitude:FLOAT64,Noise:FLOAT64");
    EXPECT_TRUE(readFile(directory / "csv.vxl") == readFile(directory / "out.vxl"));
    pack("-i csv.vxl -o again.vxl");
    EXPECT_TRUE(readFile(directory / "again.vxl") == readFile(directory / "out.vxl"));
    pack("-i out.vxl -o few.vxl -ofld X,y,z,amplitude -quantize 0.01 0.01 0.123456789123456");
    EXPECT_EQ(linesOf(decode("few.vxl"))[0], "# X Y Z Amplitude");
    EXPECT_TRUE(rowsOf("few.vxl") == samplesOf("few.vxl"))
        << "decimals of the input do not apply to other scales";

    directory.file("wraps.xyz", "1 2 3 70000 -5 ignored\n");
    pack("-i wraps.xyz -o wraps.vxl -parse xyzic -lenient");
    EXPECT_EQ(rowsOf("wraps.vxl"), (Rows{{1, 2, 3, 4464, 251}}));
}

TEST_F(Vxpack, GivesBackCompressedFilesInEveryVersion)
{
    const Testing::SampleCloud cloud = Testing::SampleCloud::make(5000, 8);
    Testing::FilePlan plan = cloud.toFile();
    cloud.addIndex(plan, 2, 64);
    writeFile(directory / "cloud.vxl",
              buildFile(plan)); // with an infinity, a zero below 0 and single precision
    const std::string cloudText = decode("cloud.vxl");
    const std::string text = decode("survey.vxl");
    const json original = describe("survey.vxl");
    const char* const versions[] = {"", "-fileVersion 3", "-fileVersion 2 -bandVersion 2",
                                    "-fileVersion 1 -headerVersion 1 -indexVersion 1 -bandVersion 1",
                                    "-smooth -levels 9"};
    for (const std::string options : versions) {
        pack("-i cloud.vxl -o out.vxl " + options);
        EXPECT_TRUE(decode("out.vxl") == cloudText) << options;
        pack("-i survey.vxl -o out.vxl " + options);
        EXPECT_TRUE(decode("out.vxl") == text) << options;
        const json file = describe("out.vxl -check -stats");
        for (const char* key : {"numPoints", "bounds", "scale", "offset", "wkt", "metadata"})
            EXPECT_EQ(file[key], original[key]) << key << " with " << options;
        const bool old = options.find("-fileVersion 1") == 0;
        EXPECT_EQ(file["classNames"], old ? json::array() : original["classNames"]) << options;
        EXPECT_EQ(file["channels"].size(), 15u) << options;
        EXPECT_EQ(file["statistics"], describe("survey.vxl -stats")["statistics"]) << options;
    }
}

TEST_F(Vxpack, MakesTheExampleOfTheRepository)
{
    const std::string example = readFile(EXAMPLES "/survey.vxl");
    EXPECT_TRUE(readFile(directory / "survey.vxl") == example) << "make_survey writes other bytes";
    pack("-i survey.vxl -o again.vxl -levels 6 -pe 64 -sb 256 -t GPSTime=11");
    EXPECT_TRUE(readFile(directory / "again.vxl") == example);
}

TEST_F(Vxpack, JoinsSeveralFiles)
{
    std::filesystem::create_directories(directory / "tiles/more");
    writeFile(directory / "tiles/a.vxl", Testing::buildTile(0, 0));
    writeFile(directory / "tiles/b.vxl", Testing::buildTile(10, 0, 30));
    writeFile(directory / "tiles/more/c.vxl", Testing::buildTile(20, 0));
    writeFile(directory / "all.list", std::string("tiles/a.vxl\ntiles/b.vxl\ntiles/more/c.vxl\n"));
    succeed(VXINDEX, "-o all.index -d 1 tiles");
    Rows expected;
    for (const char* name : {"tiles/a.vxl", "tiles/b.vxl", "tiles/more/c.vxl"})
        for (const auto& row : samplesOf(name))
            expected.push_back(row);
    // Tiles have different offsets, so no grid holds them all.
    const auto packTiles = [this](const std::string& arguments) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.errors.rfind("Warning: 'out.vxl': the scale and offset of X are not stored", 0), 0u)
            << result.errors;
        return result.output;
    };
    for (const char* inputs :
         {"-i tiles -d 1", "-i all.list", "-i all.index", "-i tiles/a.vxl -i tiles/b.vxl -i tiles/more/c.vxl",
          "-i tiles -i tiles/more"}) {
        const std::string output = packTiles(std::string(inputs) + " -o out.vxl");
        EXPECT_NE(output.find("\n70 points written, "), std::string::npos) << output;
        EXPECT_TRUE(samplesOf("out.vxl") == expected) << inputs;
        const json file = describe("out.vxl -check");
        EXPECT_EQ(file["bounds"]["max"][0], 28.82);
        EXPECT_EQ(file["wkt"], "LOCAL_CS[\"grid\"]") << inputs;
        EXPECT_EQ(file["classNames"], json({"never", nullptr, "ground"})) << inputs;
    }
    EXPECT_NE(packTiles("-i tiles -o out.vxl").find("\n50 points written, "), std::string::npos)
        << "one level";
    // With rounding one grid holds them all.
    pack("-i tiles -d 1 -o out.vxl -quantize 0.01 0.01 0.01");
    EXPECT_EQ(describe("out.vxl")["scale"], json({0.01, 0.01, 0.01}));
    const Rows rounded = samplesOf("out.vxl");
    ASSERT_EQ(rounded.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(rounded[i][0], expected[i][0], 1e-9);
}

// Two older formats without and with colour, with flags, classes 12 and week time, and a newer one.
TEST_F(Vxpack, JoinsLASFilesOfDifferentFormats)
{
    constexpr int week = 2100;
    std::vector<LASFilePoint> expected;
    for (const int format : {1, 3, 7}) {
        LASFile file = Testing::randomLASFile(format, format < 6 ? 2 : 4, 500, static_cast<unsigned>(format));
        for (LASFilePoint& p : file.points) {
            p.sourceId = static_cast<std::uint16_t>(format);
            p.y += format * 1000;
        }
        file.globalEncoding = format < 6 ? 0 : 1;
        file.describePoints();
        writeFile(directory / (std::to_string(format) + ".las"), file.build());
        for (const LASFilePoint& p : Testing::joinedPoints(file, week))
            expected.push_back(p);
    }
    const Result refused = run("-i 1.las -i 3.las -i 7.las -o out.vxl");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.errors,
              "Error: the files hold different GPS times: '1.las' week time (GPSTime), '7.las' adjusted "
              "standard time (GPSTime_Adjusted); give the GPS week to convert week time (-gpsWeek)\n");
    EXPECT_FALSE(exists("out.vxl"));
    EXPECT_EQ(start(VXINDEX, "-o all.index 1.las 3.las 7.las").wait().errors, refused.errors);
    const std::string warning = "Warning: '1.las' without Blue, Green, Red: the points have 0 there\n";
    EXPECT_EQ(start(VXINDEX, "-o all.index 1.las -gpsWeek 2100").wait().errors, "");
    EXPECT_EQ(start(VXINDEX, "-o all.index -u 7.las -gpsWeek 2101").wait().errors,
              "Error: 'all.index' was made with GPS week 2100\n");
    EXPECT_EQ(start(VXINDEX, "-o all.index -u 7.las 3.las").wait().status, 0);
    for (const char* inputs : {"-gpsWeek 2100 -i 1.las -i 3.las -i 7.las",
                               "-gpsWeek 2100 -i 7.las -i 3.las -i 1.las", "-i all.index"}) {
        const Result packed = run(std::string(inputs) + " -o out.vxl");
        EXPECT_EQ(packed.status, 0) << packed.errors;
        EXPECT_EQ(packed.errors, std::string(inputs) == "-i all.index" ? "" : warning) << inputs;
        succeed(VXUNPACK, "-i out.vxl -o out.las");
        LASFile joined = LASFile::load(directory / "out.las");
        EXPECT_EQ(joined.format, 7);
        EXPECT_EQ(joined.globalEncoding & 1, 1);
        std::sort(joined.points.begin(), joined.points.end(),
                  [](const LASFilePoint& a, const LASFilePoint& b) { return a.y < b.y; });
        EXPECT_TRUE(joined.points == expected) << inputs;
    }
    // Tiles of an index without a week: only those with a time get an adjusted one.
    LASFile untimed = Testing::randomLASFile(0, 2, 5, 9);
    for (LASFilePoint& p : untimed.points)
        p.sourceId = 0;
    untimed.describePoints();
    writeFile(directory / "0.las", untimed.build());
    EXPECT_EQ(start(VXINDEX, "-o old.index 0.las 1.las").wait().status, 0);
    EXPECT_EQ(run("-gpsWeek 2100 -i old.index -i 7.las -o out.vxl").status, 0);
    succeed(VXUNPACK, "-i out.vxl -o out.las");
    for (const LASFilePoint& p : LASFile::load(directory / "out.las").points)
        ASSERT_EQ(p.gpsTime == 0, p.sourceId == 0);
    const std::string clocks = start(VXINDEX, "-o new.index 7.las -overview 1.las").wait().errors;
    EXPECT_EQ(clocks.rfind("Error: the files hold different GPS times: 'the tiles' adjusted", 0), 0u)
        << clocks;
    // Week times of a single file are converted, too.
    EXPECT_EQ(describe("out.vxl")["channels"].size(), describe("7.las")["channels"].size());
    pack("-i 3.las -o out.vxl -gpsWeek 2100");
    EXPECT_EQ(find(describe("out.vxl")["channels"], "GPSTime"), json());
    EXPECT_EQ(samplesOf("out.vxl")[0][12], expected[500].gpsTime);
}

TEST_F(Vxpack, ItsFilesWithTwoClocksGiveLASFilesWithTheOneChosen)
{
    writeFile(directory / "in.xyz", std::string("1 1 1 10 0\n2 2 2 20 7\n3 3 3 0 8\n4 4 4 9 9\n"));
    struct Case
    {
        const char* parse;
        const char* options;
        std::vector<double> times;
        bool adjusted;       // what the header says
        const char* message; // after the file's name
    };
    const Case cases[] = {
        {"xyztT",
         "",
         {0, 7, 8, 9},
         true,
         "LAS holds one GPS time of GPSTime and GPSTime_Adjusted; GPSTime_Adjusted is written, 2 points lose "
         "a "
         "GPSTime that is not 0"},
        {"xyzTt",
         "",
         {0, 7, 8, 9},
         true,
         "LAS holds one GPS time of GPSTime_Adjusted and GPSTime; GPSTime is written, 2 points lose a "
         "GPSTime_Adjusted that is not 0; the header says adjusted standard time for all points"},
        {"xyztT",
         "-gps NONZERO",
         {10, 7, 8, 9},
         true,
         "LAS holds one GPS time of GPSTime and GPSTime_Adjusted; GPSTime_Adjusted is written, GPSTime for 1 "
         "point where it is 0, 1 point loses a GPSTime that is not 0; the header says adjusted standard time "
         "for all points"},
        {"xyztT", "-gps week", {10, 20, 0, 9}, false, ""},
        {"xyztT", "-gps adjusted", {0, 7, 8, 9}, true, ""},
        {"xyztT", "-ofld xyzt", {10, 20, 0, 9}, false, ""},
    };
    for (const Case& c : cases) {
        const std::string name = std::string(c.parse) + ' ' + c.options;
        pack(std::string("-i in.xyz -o two.vxl -parse ") + c.parse);
        const Result result = start(VXUNPACK, std::string("-i two.vxl -o out.las ") + c.options).wait();
        EXPECT_EQ(result.status, 0) << name;
        EXPECT_EQ(result.errors, *c.message ? "Warning: 'out.las': " + std::string(c.message) + "\n" : "")
            << name;
        const LASFile file = LASFile::load(directory / "out.las");
        std::vector<double> times;
        for (const LASFilePoint& p : file.points)
            times.push_back(p.gpsTime);
        EXPECT_EQ(times, c.times) << name;
        EXPECT_EQ((file.globalEncoding & 1) != 0, c.adjusted) << name;
    }
    pack("-i in.xyz -o one.vxl -parse X,Y,Z,ScanAngle:SINT8,NearInfrared");
    EXPECT_EQ(
        start(VXUNPACK, "-i one.vxl -o out.las").wait().errors,
        "Warning: 'out.las': the scan angles are written as they are, but their unit is not that of the LAS "
        "point format (degrees, or steps of 0.006 degrees)\n");
    pack("-i in.xyz -o one.vxl -parse xyzts");
    EXPECT_EQ(start(VXUNPACK, "-i one.vxl -o new.las -gps adjusted").wait().errors,
              "Error: 'one.vxl' has no channel 'GPSTime_Adjusted'\n");
    EXPECT_EQ(start(VXUNPACK, "-i two.vxl -o new.las -gps both").wait().errors,
              "Error: unknown value 'both' of -gps, it is 'week', 'adjusted' or 'nonzero'\n");
    EXPECT_FALSE(exists("new.las"));
}

TEST_F(Vxpack, ComparesCoordinateSystems)
{
    const auto tile = [&](const char* name, const char* wkt) {
        Testing::FilePlan plan;
        plan.numLevels = 1;
        plan.channels = {Testing::quantizedChannel("X", {1, 2}, 0, 0.01),
                         Testing::quantizedChannel("Y", {1, 2}, 0, 0.01),
                         Testing::quantizedChannel("Z", {1, 2}, 0, 0.01)};
        plan.wkt = wkt;
        writeFile(directory / name, buildFile(plan));
    };
    tile("a.vxl", "LOCAL_CS[\"a\",UNIT[\"metre\",1]]");
    tile("b.vxl", "LOCAL_CS[\"b\",UNIT[\"foot\",0.3048]]");
    tile("none.vxl", "");
    const std::string differ = "the coordinate systems of 'a.vxl' and 'b.vxl' differ";
    const std::string none = "'none.vxl' has no coordinate system and 'a.vxl' has one";
    const Result result = run("-i a.vxl -i a.vxl -i none.vxl -i b.vxl -o out.vxl");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "Warning: " + differ + "; that of 'a.vxl' is used\nWarning: " + none +
                                 ", which is used for all\n");
    EXPECT_EQ(start(VXINDEX, "-o t.index none.vxl a.vxl").wait().errors,
              "Warning: " + none + ", which is used for all\n");
    EXPECT_EQ(start(VXINDEX, "-o u.index a.vxl b.vxl -srs same").wait().errors, "Error: " + differ + "\n");
    EXPECT_EQ(run("-i a.vxl -i none.vxl -o new.vxl -srs same").errors, "Error: " + none + "\n");
    EXPECT_FALSE(exists("new.vxl") || exists("u.index"));
    pack("-i a.vxl -i a.vxl -o out.vxl -srs same");
}

TEST_F(Vxpack, PacksBPFWhereItsModuleIs)
{
    if (!HAS_PDAL) {
        writeFile(directory / "in.bpf", std::string("BPF!0003"));
        const Result result = run("-i in.bpf -o out.vxl");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors,
                  "Error: this installation cannot read or write BPF files: its PDAL module is "
                  "not there path = in.bpf\n");
        EXPECT_FALSE(exists("out.vxl"));
        return;
    }
    succeed(VXUNPACK, "-i survey.vxl -o in.bpf");
    pack("-i in.bpf -o out.vxl");
    const json source = describe("in.bpf -stats"), packed = describe("out.vxl -stats -check");
    EXPECT_EQ(packed["numPoints"], 2400);
    ASSERT_EQ(packed["statistics"].size(), source["statistics"].size());
    for (const json& channel : source["statistics"])
        for (const char* key : {"count", "notFinite", "min", "max", "counts"})
            EXPECT_EQ(find(packed["statistics"], channel["name"]).value(key, json()),
                      channel.value(key, json()))
                << channel["name"] << ' ' << key;
    EXPECT_EQ(packed["wkt"], source["wkt"]);
}

TEST_F(Vxpack, PacksAChoiceOfPointsAndChannels)
{
    for (const std::string options : {"-c 500020 500050 4100005 4100030 -inf +inf", "-s 4", "-ofld xyzcR",
                                      "-s 2 -c 0 500050 -inf +inf 0 150"}) {
        const std::string output = pack("-i survey.vxl -o out.vxl " + options);
        const std::string expected = decode("survey.vxl " + options);
        EXPECT_EQ(decode("out.vxl"), expected) << options;
        const std::size_t count = linesOf(expected).size() - 1;
        EXPECT_NE(output.find('\n' + std::to_string(count) + " points written, "), std::string::npos)
            << output;
        // The number of points before packing is kept.
        const std::string summary = succeed(VXINFO, "out.vxl -check");
        const std::string verdict =
            count == 2400 ? "lossless (2400)" : "lossy (2400, " + std::to_string(count) + ')';
        EXPECT_NE(summary.find("point count check:  " + verdict + '\n'), std::string::npos) << summary;
    }
}

TEST_F(Vxpack, RoundsCoordinatesWhenAsked)
{
    const std::string output = pack("-i survey.vxl -o out.vxl -quantize 0.5 0.25 1e-1");
    EXPECT_NE(
        output.find("\ncoordinates were rounded to steps of 0.5, 0.25 and 0.1: this file is not lossless\n"),
        std::string::npos)
        << output;
    const json file = describe("out.vxl -check");
    EXPECT_EQ(file["scale"], json({0.5, 0.25, 0.1}));
    EXPECT_EQ(file["offset"], json({500000.0, 4100000.0, 100.0}));
    const Rows before = rowsOf("survey.vxl"), after = rowsOf("out.vxl");
    ASSERT_EQ(after.size(), before.size());
    const double steps[] = {0.5, 0.25, 0.1};
    for (std::size_t i = 0; i < after.size(); ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            ASSERT_LE(std::fabs(after[i][axis] - before[i][axis]), steps[axis] / 2 + 1e-9) << i;
        ASSERT_TRUE(std::equal(before[i].begin() + 3, before[i].end(), after[i].begin() + 3)) << i;
    }

    // A box selects points by their rounded coordinates, in the file and during packing.
    const auto isInside = [](const std::vector<double>& row) {
        return row[0] >= 500020 && row[0] <= 500030 && row[1] >= 4100010 && row[1] <= 4100020;
    };
    const std::string box = " -c 500020 500030 4100010 4100020 -inf +inf";
    const auto numInside = std::count_if(after.begin(), after.end(), isInside);
    const auto countInside = [&](const std::string& arguments) {
        const Rows rows = rowsOf(arguments);
        return std::count_if(rows.begin(), rows.end(), isInside);
    };
    EXPECT_GT(numInside, 10);
    EXPECT_EQ(countInside("out.vxl" + box), numInside);
    pack("-i survey.vxl -o box.vxl -quantize 0.5 0.25 0.1" + box);
    EXPECT_EQ(countInside("box.vxl"), numInside);
}

TEST_F(Vxpack, OrdersPointsAlongACurve)
{
    LASFile file = Testing::randomLASFile(1, 2, 60000, 5);
    Testing::Random random(6);
    for (Testing::LASFilePoint& point : file.points)
        point.y = static_cast<std::int32_t>(random.between(-100000, 100000));
    file.describePoints();
    writeFile(directory / "in.las", file.build());
    pack("-i in.las -o input.vxl -order input");
    pack("-i in.las -o curve.vxl -order hilbert");
    Lines input = linesOf(decode("input.vxl")), curve = linesOf(decode("curve.vxl"));
    const Rows rows = numbersOf(Lines(curve.begin() + 1, curve.end()));
    std::sort(input.begin(), input.end());
    std::sort(curve.begin(), curve.end());
    EXPECT_TRUE(input == curve) << "other points";

    Bounds bounds;
    bounds.x = {file.min[0], file.max[0]};
    bounds.y = {file.min[1], file.max[1]};
    const HilbertGrid grid(bounds, Bounds::Huge());
    std::vector<std::uint64_t> keys(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        grid.getKeys(&keys[i], &rows[i][0], &rows[i][1], 1);
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));

    // The points to decode for a hundredth of the area.
    Bounds box = Bounds::Huge();
    box.x = {1300, 1500};
    box.y = {-2100, -1900};
    const auto work = [&](const char* name) { return openCompressed(name)->getTotalWork(box, 1); };
    EXPECT_EQ(work("input.vxl"), 60000);
    EXPECT_LT(work("curve.vxl"), 60000 / 4);
}

TEST_F(Vxpack, CodesAsTheOptionsSay)
{
    const json file = [&] {
        pack("-i survey.vxl -o out.vxl -t 13 -t Intensity=90 -t GPSTime=70 -sb 100 -sb Z=2000 -levels 5 -pe "
             "99 "
             "-fileVersion 3 -headerVersion 1 -indexVersion 1 -bandVersion 1");
        return describe("out.vxl -check");
    }();
    const json& compression = file["compression"];
    EXPECT_EQ(compression["version"], 3);
    EXPECT_EQ(compression["index"]["kind"], "list");
    EXPECT_EQ(compression["index"]["pointsPerEntry"], 99);
    EXPECT_EQ(compression["levels"].size(), 5u);
    for (const json& record : compression["records"]) {
        const std::string name = record["name"];
        EXPECT_EQ(record["transform"], name == "Intensity" ? 90 : name == "GPSTime" ? 70 : 13) << name;
        EXPECT_EQ(record["headerBytes"], json()) << "headers and data are interleaved";
        EXPECT_EQ(record["subblockSize"], name == "Z" ? 2000 : 100) << name;
    }
    const std::string table = pack("-i survey.vxl -o out.vxl -V -sb X=512");
    EXPECT_NE(table.find("Basic LiDAR Info:\n   Filename:          survey.vxl\n"), std::string::npos)
        << table;
    const std::size_t x = table.find("\n   X  ");
    ASSERT_NE(x, std::string::npos) << table;
    EXPECT_NE(table.substr(x, 90).find(" 512 "), std::string::npos) << table.substr(x, 90);
}

TEST_F(Vxpack, WarnsOfScalesThatAFileCannotKeep)
{
    EXPECT_EQ(run("-i survey.vxl -o out.vxl -t 10").errors, "");
    const Result packed = run("-i survey.vxl -o out.vxl -t X=70");
    EXPECT_EQ(packed.status, 0);
    EXPECT_EQ(packed.errors, "Warning: 'out.vxl': the scale and offset of X are not stored, since the file "
                             "has these coordinates as "
                             "floating-point numbers; LAS output rounds them to 0.001 unless -sc is given\n");
    const Result unpacked = start(VXUNPACK, "-i out.vxl -o out.las").wait();
    EXPECT_EQ(unpacked.status, 0);
    EXPECT_EQ(
        unpacked.errors,
        "Warning: 'out.las': coordinates (X) are rounded to 0.001, since the input has no scale for them; "
        "-sc chooses another\n");
    EXPECT_EQ(start(VXUNPACK, "-i out.vxl -o out.las -sc 0.01 0.01 0.01").wait().errors, "");
}

TEST_F(Vxpack, WritesTheSameBytesForAnyThreads)
{
    writeFile(directory / "in.las", Testing::randomLASFile(7, 4, 150000, 9).build());
    for (const std::string options : {"", " -order hilbert -quantize 1 1 1"}) {
        pack("-i in.las -o one.vxl -j 1" + options);
        const std::string expected = readFile(directory / "one.vxl");
        for (const char* threads : {"2", "4"}) {
            pack("-i in.las -o many.vxl -j " + (threads + options));
            EXPECT_TRUE(readFile(directory / "many.vxl") == expected) << threads << options;
        }
    }
}

TEST_F(Vxpack, ExplainsWhatItCannotDo)
{
    std::filesystem::create_directories(directory / "folder.vxl");
    directory.file("a.xyz", "1 2 3\n");
    directory.file("bad.vxl", "no points");
    directory.file("zero.xyz", std::string(2 << 20, '\0'));
    const std::pair<std::string, std::string> cases[] = {
        {"-i survey.vxl -o survey.vxl", "the output 'survey.vxl' is the input file"},
        {"-i tiles.index -o ./survey.vxl", "the output './survey.vxl' is the input file"},
        {"-i survey.vxl -o link.vxl -order hilbert", "the output 'link.vxl' is the input file"},
        {"-i all.list -o hard.vxl", "the output 'hard.vxl' is the input file"},
        {"-i . -o survey.vxl", "the output 'survey.vxl' is the input file"},
        {"-i survey.vxl -o out.las", "the name of the output must end in '.vxl': 'out.las'"},
        {"-i survey.vxl -o null", "the name of the output must end in '.vxl': 'null'"},
        {"-i survey.vxl -o none/out.vxl", "No such file or directory path = none/out.vxl"},
        {"-i survey.vxl -o folder.vxl", "Is a directory path = folder.vxl"},
        {"-i none.las -o out.vxl", "No such file or directory path = none.las"},
        {"-i folder.vxl -o out.vxl", "there are no files to read"},
        {"-i bad.vxl -o out.vxl", "not a Vexil file path = bad.vxl"},
        {"-i a.xyz -o out.vxl", "TXT file requires a format parse string '-parse': 'a.xyz'"},
        {"-i a.xyz -o out.vxl -parse xyzi", "a.xyz:1:6: 3 fields, expected 4"},
        {"-i a.xyz -o out.vxl -parse xyzi -lenient", "a.xyz:1:6: 3 fields, expected 4"},
        {"-i a.xyz -o out.vxl -parse xyi", "must have x, y, and z channels"},
        {"-i a.xyz -o out.vxl -parse X,Y,Z,i", "a.xyz:1:6: 3 fields, expected 4"},
        {"-i zero.xyz -o out.vxl -parse xyz", "zero.xyz:1: line is longer than 1048576 bytes"},
        {"-i survey.vxl -o out.vxl -t 42", "there is no transform 42"},
        {"-i survey.vxl -o out.vxl -t X=", "bad value 'X=' of -transform"},
        {"-i survey.vxl -o out.vxl -t MQ", "bad value 'MQ' of -transform"},
        {"-i survey.vxl -o out.vxl -t 266", "the value 266 of -transform is too large"},
        {"-i survey.vxl -o out.vxl -t Red=70", "transform 70 does not suit channel 'Red'"},
        {"-i survey.vxl -o out.vxl -sb 15", "the subblock size must be 16 to 1048576"},
        {"-i survey.vxl -o out.vxl -levels 65", "the number of levels must be 1 to 64"},
        {"-i survey.vxl -o out.vxl -pe 0", "the number of points per index entry must be 1 to 2147483647"},
        {"-i survey.vxl -o out.vxl -fileVersion 5", "the file version must be 1 to 4"},
        {"-i survey.vxl -o out.vxl -headerVersion 258", "the value 258 of -headerVersion is too large"},
        {"-i survey.vxl -o out.vxl -indexVersion 3", "the version of the index must be 1 to 2"},
        {"-i survey.vxl -o out.vxl -bandVersion 0", "the version of the subbands must be 1 to 3"},
        {"-i survey.vxl -o out.vxl -order random", "unknown order 'random', it is 'input' or 'hilbert'"},
        {"-i survey.vxl -o out.vxl -ofld xyi", "must have x, y, and z channels"},
    };
    succeed(VXINDEX, "-o tiles.index survey.vxl");
    directory.file("all.list", "survey.vxl\n");
    std::filesystem::create_symlink("survey.vxl", directory / "link.vxl");
    std::filesystem::create_hard_link(directory / "survey.vxl", directory / "hard.vxl");
    const std::string before = readFile(directory / "survey.vxl");
    for (const bool isThere : {false, true}) {
        if (isThere)
            writeFile(directory / "out.vxl", std::string("precious"));
        for (const auto& [arguments, error] : cases) {
            if (isThere && arguments == "-i . -o survey.vxl")
                continue; // it may refuse another file first
            expectError(VXPACK, arguments, error);
            EXPECT_EQ(exists("out.vxl"), isThere) << arguments;
        }
    }
    EXPECT_EQ(readFile(directory / "out.vxl"), "precious");
    EXPECT_EQ(readFile(directory / "survey.vxl"), before);

    const Result usage = run("-i survey.vxl");
    EXPECT_EQ(usage.status, 1);
    EXPECT_EQ(usage.errors, "vxpack usage error: required switch -outputFile not present\n"
                            "Use -h or -help for list of options.\n\n");
    EXPECT_NE(run("-i survey.vxl -o out.vxl -quantize 1 1").errors.find("not enough arguments"),
              std::string::npos);
    EXPECT_NE(succeed(VXPACK, "-help").find("\n  -o or -outputFile STRING\n"), std::string::npos);
}

TEST_F(Vxpack, StopsAtASignal)
{
    writeFile(directory / "in.las", Testing::randomLASFile(7, 4, 600000, 2).build());
    std::filesystem::create_directory(directory / "temporary");
    setenv("TMPDIR", (directory / "temporary").c_str(), 1);
    for (const auto& [number, activity] : {std::pair(SIGINT, "surveying"), std::pair(SIGTERM, "writing")}) {
        if (number == SIGTERM)
            writeFile(directory / "out.vxl", std::string("precious"));
        Program program = start(VXPACK, "-i in.las -o out.vxl -j 1");
        program.interrupt(activity, number);
        EXPECT_EQ(exists("out.vxl"), number == SIGTERM);
        EXPECT_TRUE(std::filesystem::is_empty(directory / "temporary"));
        for (const auto& file : std::filesystem::directory_iterator(directory.path()))
            EXPECT_NE(file.path().extension(), ".part");
    }
    EXPECT_EQ(readFile(directory / "out.vxl"), "precious");
    unsetenv("TMPDIR");
}

} // namespace
} // namespace Quillmoran
