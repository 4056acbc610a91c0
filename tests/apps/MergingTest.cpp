// Several files become one point cloud: which files, what they must agree on, and what is lost.
#include "apps/AppTest.h"
#include "support/LASClouds.h"
#include "support/TileFiles.h"

namespace Quillmoran::Testing { namespace {

class Merging : public AppTest
{
protected:
    // Returns the points of a LAS file that is made from a compressed file.
    LASFile unpack(const std::string& arguments, const std::string& messages = "") const
    {
        succeed("vxunpack -o out.las -i " + arguments, messages);
        return LASFile::load(directory / "out.las");
    }
    void las(const std::string& name, LASFile file) const
    {
        file.describePoints();
        writeFile(directory / name, file.build());
    }
    // A LAS file with GeoTIFF keys.
    void lasWithKeys(const std::string& name, const std::vector<std::uint16_t>& keys) const
    {
        LASFile file;
        file.points.resize(3);
        file.records = {{"LASF_Projection", 34735, "keys", LASBytes(2 * keys.size())}};
        std::memcpy(file.records[0].value.data(), keys.data(), 2 * keys.size());
        las(name, file);
    }
    // Points (1, 1, 1) and (2, 2, 2) in a coordinate system.
    void vxl(const std::string& name, const char* wkt) const
    {
        FilePlan plan;
        plan.numLevels = 1;
        for (const char* axis : {"X", "Y", "Z"})
            plan.channels.push_back(quantizedChannel(axis, {1, 2}, 0, 1));
        plan.wkt = wkt;
        writeFile(directory / name, buildFile(plan));
    }
};

TEST_F(Merging, JoinsFilesListsDirectoriesAndIndexes)
{
    Rows expected;
    for (const auto& [name, x] : {std::pair("tiles/a.vxl", 0), {"tiles/b.vxl", 1}, {"tiles/more/c.vxl", 2}}) {
        writeFile(directory / name, buildTile(10 * x, 0, 20 + x));
        const Rows rows = samplesOf(name);
        expected.insert(expected.end(), rows.begin(), rows.end());
    }
    directory.file("all.list", "tiles/a.vxl\ntiles/b.vxl\ntiles/more/c.vxl\n");
    succeed("vxindex -o all.index -d 1 tiles");
    const std::string lost =
        "Warning: 'out.vxl': the scale and offset of X are not stored, since the file has these "
        "coordinates as floating-point numbers; LAS output rounds them to 0.001 unless -sc is "
        "given\n"; // the tiles have different offsets
    for (const std::string inputs : {"-i tiles -d 1", "-i all.list", "-i all.index", "-i tiles -i tiles/more",
                                     "-i tiles/a.vxl -i tiles/b.vxl -i tiles/more/c.vxl"}) {
        expectContains(succeed("vxpack -o out.vxl " + inputs, lost), {"63 points written, "});
        EXPECT_TRUE(samplesOf("out.vxl") == expected) << inputs;
        const json file = describe("out.vxl -check");
        EXPECT_EQ(file["bounds"]["max"], json({28.82, 8.55, 0.04}));
        EXPECT_EQ(file["wkt"], "LOCAL_CS[\"grid\"]") << inputs;
        EXPECT_EQ(file["classNames"], json({"never", nullptr, "ground"})) << inputs;
    }
    expectContains(succeed("vxpack -V -i tiles -o out.vxl", lost),
                   {"Basic LiDAR Info:\n   Filename:          tiles/a.vxl\n",
                    "   Filename:          tiles/b.vxl\n", "Basic Mosaic Info:\n   Number of Points:  41\n",
                    "41 points written, "});
    // With rounding one grid holds them all.
    succeed("vxpack -i tiles -d 1 -o out.vxl -quantize 0.01 0.02 0.01");
    EXPECT_EQ(describe("out.vxl")["scale"], json({0.01, 0.02, 0.01}));
    EXPECT_NEAR(samplesOf("out.vxl").at(62)[0], expected[62][0], 1e-9);
}

// Two older formats without and with colour, with flags, classes 12 and week time, and a newer one.
TEST_F(Merging, JoinsLASFilesOfDifferentFormats)
{
    std::vector<LASFilePoint> expected;
    for (const int format : {1, 3, 7}) {
        LASFile file = randomLASFile(format, format < 6 ? 2 : 4, 500, static_cast<unsigned>(format));
        for (LASFilePoint& p : file.points) {
            p.sourceId = static_cast<std::uint16_t>(format);
            p.y += format * 1000;
        }
        file.globalEncoding = format < 6 ? 0 : 1;
        las(std::to_string(format) + ".las", file);
        for (const LASFilePoint& p : joinedPoints(file, 2100))
            expected.push_back(p);
    }
    const std::string refusal =
        "the files hold different GPS times: '1.las' week time (GPSTime), '7.las' adjusted standard time "
        "(GPSTime_Adjusted); give the GPS week to convert week time (-gpsWeek)";
    expectError("vxpack -i 1.las -i 3.las -i 7.las -o out.vxl", refusal);
    expectError("vxindex -o all.index 1.las 3.las 7.las", refusal);
    const std::string warning = "Warning: '1.las' without Blue, Green, Red: the points have 0 there\n";
    succeed("vxindex -o all.index 1.las -gpsWeek 2100");
    expectError("vxindex -o all.index -u 7.las -gpsWeek 2101", "'all.index' was made with GPS week 2100");
    EXPECT_EQ(run("vxindex -o all.index -u 7.las 3.las -gpsWeek 2100").status, 0);
    for (const std::string inputs : {"-gpsWeek 2100 -i 1.las -i 3.las -i 7.las",
                                     "-gpsWeek 2100 -i 7.las -i 3.las -i 1.las", "-gpsWeek 7 -i all.index"}) {
        succeed("vxpack -o out.vxl " + inputs, inputs.find("index") != std::string::npos ? "" : warning);
        LASFile joined = unpack("out.vxl");
        EXPECT_EQ(joined.format, 7);
        EXPECT_EQ(joined.globalEncoding & 1, 1);
        std::sort(joined.points.begin(), joined.points.end(),
                  [](const LASFilePoint& a, const LASFilePoint& b) { return a.y < b.y; });
        EXPECT_TRUE(joined.points == expected) << inputs;
    }
    // Tiles of an index without a week: only those with a time get an adjusted one.
    LASFile untimed = randomLASFile(0, 2, 5, 9);
    for (LASFilePoint& p : untimed.points)
        p.sourceId = 0;
    las("0.las", untimed);
    EXPECT_EQ(run("vxindex -o old.index 0.las 1.las").status, 0);
    EXPECT_EQ(run("vxpack -gpsWeek 2100 -i old.index -i 7.las -o out.vxl").status, 0);
    for (const LASFilePoint& p : unpack("out.vxl").points)
        ASSERT_EQ(p.gpsTime == 0, p.sourceId == 0);
    const std::string clocks = run("vxindex -o new.index 7.las -overview 1.las").errors;
    EXPECT_EQ(clocks.rfind("Error: the files hold different GPS times: 'the tiles' adjusted", 0), 0u)
        << clocks;
    // Week times of a single file are converted, too; the summary is that of the converted cloud.
    const std::string summary = succeed("vxpack -V -i 3.las -o out.vxl -gpsWeek 2100");
    expectContains(summary.substr(summary.find("Basic Mosaic Info:")), {"'GPSTime_Adjusted'"});
    EXPECT_EQ(find(describe("out.vxl")["channels"], "GPSTime"), json());
    EXPECT_EQ(samplesOf("out.vxl")[0][12], expected[500].gpsTime);
}

TEST_F(Merging, WritesOneOfTwoClocksToLAS)
{
    directory.file("in.xyz", "1 1 1 10 0\n2 2 2 20 7\n3 3 3 0 8\n4 4 4 9 9\n");
    const std::string both = "Warning: 'out.las': LAS holds one GPS time of ",
                      adjusted = both + "GPSTime and GPSTime_Adjusted; GPSTime_Adjusted is written, ",
                      week = both + "GPSTime_Adjusted and GPSTime; GPSTime is written, ",
                      header = " that is not 0; the header says adjusted standard time for all points\n",
                      some = "GPSTime for 1 point where it is 0, 1 point loses a GPSTime";
    succeed("vxpack -i in.xyz -o tT.vxl -parse xyztT");
    succeed("vxpack -i in.xyz -o Tt.vxl -parse xyzTt");
    const std::tuple<const char*, Numbers, int, std::string> cases[] = {
        // the third: the flag of the header
        {"tT.vxl", {0, 7, 8, 9}, 1, adjusted + "2 points lose a GPSTime that is not 0\n"},
        {"Tt.vxl", {0, 7, 8, 9}, 1, week + "2 points lose a GPSTime_Adjusted" + header},
        {"tT.vxl -gps NONZERO", {10, 7, 8, 9}, 1, adjusted + some + header},
        {"tT.vxl -gps Week", {10, 20, 0, 9}, 0, ""},
        {"tT.vxl -gps adjusted", {0, 7, 8, 9}, 1, ""},
        {"tT.vxl -ofld xyzt", {10, 20, 0, 9}, 0, ""},
    };
    for (const auto& [arguments, expected, isAdjusted, message] : cases) {
        const LASFile file = unpack(arguments, message);
        Numbers times;
        for (const LASFilePoint& p : file.points)
            times.push_back(p.gpsTime);
        EXPECT_EQ(times, expected) << arguments;
        EXPECT_EQ(file.globalEncoding & 1, isAdjusted) << arguments;
    }
    succeed("vxpack -i in.xyz -o one.vxl -parse X,Y,Z,ScanAngle:SINT8,NearInfrared");
    unpack("one.vxl",
           "Warning: 'out.las': the scan angles are written as they are, but their unit is not that of the "
           "LAS point format (degrees, or steps of 0.006 degrees)\n");
}

TEST_F(Merging, ReportsCoordinateSystemsThatDifferOrAreLost)
{
    vxl("a.vxl", "LOCAL_CS[\"a\",UNIT[\"metre\",1]]");
    vxl("b.vxl", "LOCAL_CS[\"b\",UNIT[\"foot\",0.3048]]");
    vxl("none.vxl", "");
    vxl("x.vxl", "no coordinate system");
    const std::vector<std::uint16_t> unknownKeys = {1,    1,     0, 1,
                                                    3073, 34737, 8, 0}; // of 8 characters, without texts
    lasWithKeys("a.las", unknownKeys);
    lasWithKeys("b.las", unknownKeys);
    lasWithKeys("none.las", {1, 1, 0, 0});
    expectWarnings();
    expectContains(succeed("vxinfo out.vxl"), {"LASF_Projection::34735"});
    expectError("vxindex -o u.index a.vxl b.vxl -srs same",
                "the coordinate systems of 'a.vxl' and 'b.vxl' differ");
    expectError("vxpack -i a.vxl -i none.vxl -o new.vxl -srs same",
                "'none.vxl' has no coordinate system and 'a.vxl' has one");
    EXPECT_FALSE(exists("new.vxl") || exists("u.index"));
}

TEST_F(Merging, EndsIfAModuleCannotBeLoaded)
{
    lasWithKeys("in.las", {1, 1, 0, 2, 1024, 0, 1, 1, 3072, 0, 1, 32613});
    succeed("vxpack -i in.las -o good.vxl");
    vxl("grid.vxl", "LOCAL_CS[\"grid\"]");
    for (int version = 26; version < 50; ++version) // of GDAL, in place of the system's
        directory.file("libgdal.so." + std::to_string(version), "");
    const std::string reason = "cannot load the module 'libqm_formats_srs.so': ";
    for (const auto& [command, status, begin] :
         {std::tuple("vxpack -i in.las -o out.vxl", 1, "Error: "),
          {"vxindex -o out.index in.las", 1, "Error: "},
          {"vxunpack -i grid.vxl -o out.las -of las12 -ofld xyz", 1, "Error: "},
          {"vxinfo in.las", 1, "Error: in.las: "},
          {"vxinfo good.vxl", 0, "Warning: 'good.vxl': the coordinate system is printed as it is: "}}) {
        const Result result = shell(std::string("LD_LIBRARY_PATH=. exec ") + command);
        EXPECT_EQ(result.status, status) << command;
        EXPECT_EQ(result.errors.rfind(begin + reason, 0), 0u) << command << result.errors;
        if (status == 0)
            expectContains(result.output, {"Spatial Reference: PROJCS[\"WGS 84 / UTM zone 13N\",GEOGCS["});
    }
    EXPECT_FALSE(exists("out.vxl") || exists("out.index") || exists("out.las"));
}

// The tiles of an index are read without their waveforms, too.
TEST_F(Merging, DropsWaveformsOnRequest)
{
    las("tiles/plain.las", randomLASFile(1, 4, 100, 3));
    const std::string refusal =
        "Input LAS/LAZ file contains waveform data.  This is not currently supported.  -dropWaveforms reads "
        "its points without them. path = ";
    const std::string warning = "Warning: the waveform packets of 'tiles/wave.las' are dropped\n";
    for (const int format : {4, 5, 9, 10}) {
        LASFile file = randomLASFile(format, 4, 500, static_cast<unsigned>(format));
        for (const int id : {99, 100, 354, 355, 65535})
            file.records.push_back({"LASF_Spec", static_cast<std::uint16_t>(id), "", LASBytes(26)});
        las("tiles/wave.las", file);
        expectError("vxpack -i tiles -o out.vxl", refusal + "tiles/wave.las");
        expectError("vxindex tiles -o out.index", refusal + "tiles/wave.las");

        succeed("vxpack -dropWaveforms -i tiles/wave.las -o wave.vxl", warning);
        std::string kept;
        const json packed = describe("wave.vxl");
        for (const json& record : packed["metadata"])
            kept += std::string(record["key"]) + ' ';
        expectContains(kept, {"LAS_BoundingBox LASF_Spec::99 LASF_Spec::355 LAS_Restore "});
        // A restored file has the format without waveforms, and none of their records.
        const LASFile plain = unpack("wave.vxl -restore");
        EXPECT_EQ(plain.format, format < 6 ? format - (format == 4 ? 3 : 2) : format == 9 ? 6 : 8);
        EXPECT_EQ(plain.records.size(), 2u);
        EXPECT_EQ(plain.globalEncoding, file.globalEncoding & ~6);
        EXPECT_TRUE(plain.points == file.points);

        const std::string messages =
            run("vxindex -dropWaveforms -o tiles.index tiles -overview o.las -createOverview").errors;
        EXPECT_EQ(messages.find(warning), 0u) << messages;
        EXPECT_EQ(messages.find(warning, 1), std::string::npos) << "again: " << messages;
        expectError("vxpack -i tiles.index -o out.vxl", refusal + "tiles/wave.las");
        expectContains(run("vxpack -dropWaveforms -i tiles.index -o out.vxl").output, {"600 points written"});
        expectContains(succeed("vxinfo -check tiles/wave.las"), {"   Waveform Packets:  yes, not decoded\n"});
        EXPECT_EQ(describe("tiles/wave.las")["hasWaveforms"], true);
    }
}

}} // namespace Quillmoran::Testing
