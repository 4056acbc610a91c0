// Runs of the program: how its files are coded, ordered and rounded, and what it reports.
#include "apps/AppTest.h"
#include "srs/SpatialReference.h"
#include "support/CoordinateSystems.h"
#include "support/LASClouds.h"

namespace Quillmoran::Testing { namespace {

using Vxpack = AppTest;

TEST_F(Vxpack, RoundsCoordinatesWhenAsked)
{
    const std::string options = " -quantize 0.5 0.25 1e-1";
    expectContains(
        succeed("vxpack -i survey.vxl -o out.vxl" + options),
        {"a point\ncoordinates were rounded to steps of 0.5, 0.25 and 0.1: this file is not lossless\n"});
    const json file = describe("out.vxl -check");
    EXPECT_EQ(file["scale"], json({0.5, 0.25, 0.1}));
    EXPECT_EQ(file["offset"], json({500000.0, 4100000.0, 100.0}));
    // 500000.030 4100008.980 124.510, and the rest as it was
    Numbers first = samplesOf("survey.vxl")[0];
    first[0] = 500000, first[1] = 4100009, first[2] = 124.5;
    EXPECT_EQ(samplesOf("out.vxl")[0], first);
    // A box selects points by their rounded coordinates.
    const Bounds box{{500020, 500030}, {4100010, 4100020}, {0, 1000}};
    succeed("vxpack -i survey.vxl -o box.vxl -c 500020 500030 4100010 4100020 0 1000" + options);
    EXPECT_EQ(samplesOf("box.vxl"), samplesOf("out.vxl", box));
    // Decimals of the input do not apply to other scales.
    succeed("vxpack -i survey.vxl -o fine.vxl -ofld X,y,z,RED -quantize 0.01 0.01 0.123456789123456");
    const auto lines = linesOf(decode("fine.vxl"));
    EXPECT_EQ(lines[0], "# X Y Z Red");
    EXPECT_EQ(std::strtod(lines[1].c_str() + 23, nullptr), samplesOf("fine.vxl")[0][2]) << lines[1];
}

TEST_F(Vxpack, OrdersPoints)
{
    LASFile file = randomLASFile(1, 2, 60000, 5);
    Random random(6);
    for (LASFilePoint& point : file.points) {
        point.y = static_cast<std::int32_t>(random.between(-100000, 100000));
        point.gpsTime = static_cast<double>(random.below(1000));
    }
    file.describePoints();
    writeFile(directory / "in.las", file.build());
    succeed("vxpack -i in.las -o input.vxl -order input");
    const std::string chosen = succeed("vxpack -i in.las -o auto.vxl -order auto");
    succeed("vxpack -i in.las -o curve.vxl -order Hilbert");
    succeed("vxpack -i in.las -o time.vxl -order TIME");
    succeed("vxpack -i in.las -o xyz.vxl -order time -ofld xyz");
    succeed("vxdiff -unordered input.vxl curve.vxl");
    EXPECT_EQ(run("vxdiff input.vxl curve.vxl").status, 1);

    // The points to decode for a hundredth of the area.
    Bounds box = Bounds::Huge();
    box.x = {1300, 1500};
    box.y = {-2100, -1900};
    EXPECT_EQ(openCompressed("input.vxl")->getTotalWork(box, 1), 60000);
    EXPECT_LT(openCompressed("curve.vxl")->getTotalWork(box, 1), 60000 / 4);

    Rows expected = samplesOf("input.vxl");
    const auto time =
        static_cast<std::size_t>(openCompressed("input.vxl")->getPointInfo().getChannelIndex("GPSTime"));
    std::stable_sort(expected.begin(), expected.end(),
                     [time](const Numbers& a, const Numbers& b) { return a[time] < b[time]; });
    EXPECT_TRUE(samplesOf("time.vxl") == expected);
    for (Numbers& row : expected)
        row.resize(3);
    EXPECT_TRUE(samplesOf("xyz.vxl") == expected);

    EXPECT_EQ(readFile(directory / "auto.vxl"), readFile(directory / "curve.vxl"));
    const auto kilobytes = [this](const char* name) {
        std::string digits =
            std::to_string(std::lround(static_cast<double>(readFile(directory / name).size()) / 1000));
        return digits.size() > 3 ? digits.insert(digits.size() - 3, ",") : digits;
    };
    EXPECT_EQ(linesOf(chosen)[0], "order: hilbert (estimated " + kilobytes("curve.vxl") + " kB; input " +
                                      kilobytes("input.vxl") + " kB, time " + kilobytes("time.vxl") + " kB)");
}

TEST_F(Vxpack, CodesAsTheOptionsSay)
{
    succeed("vxpack -i survey.vxl -o out.vxl -t 13 -t Intensity=90 -t GPSTime=70 -sb 100 -sb Z=2000 -levels "
            "5 -pe 99 "
            "-fileVersion 3 -headerVersion 1 -indexVersion 1 -bandVersion 1");
    const json compression = describe("out.vxl -check")["compression"];
    EXPECT_EQ(compression["version"], 3);
    EXPECT_EQ(compression["index"]["kind"], "list");
    EXPECT_EQ(compression["index"]["pointsPerEntry"], 99);
    EXPECT_EQ(compression["levels"].size(), 5u);
    std::int64_t ofRecords = 0, ofLevels = 0;
    for (const json& level : compression["levels"])
        ofLevels += std::int64_t(level["bytes"]);
    for (const json& record : compression["records"]) {
        const std::string name = record["name"];
        ofRecords += std::int64_t(record["bytes"]);
        EXPECT_EQ(record["transform"], name == "Intensity" ? 90 : name == "GPSTime" ? 70 : 13) << name;
        EXPECT_EQ(record["headerBytes"], json()) << "headers and data are interleaved";
        EXPECT_EQ(record["subblockSize"], name == "Z" ? 2000 : 100) << name;
    }
    EXPECT_EQ(ofRecords, ofLevels);
    expectContains(succeed("vxinfo out.vxl"), {"    (in data) "});
    succeed("vxpack -i survey.vxl -o new.vxl -fileVersion 3 -indexVersion 1 -bandVersion 1");
    succeed("vxpack -i survey.vxl -o old.vxl -fileVersion 3 -indexVersion 1 -bandVersion 1 -headerVersion 1");
    EXPECT_NE(readFile(directory / "new.vxl"), readFile(directory / "old.vxl"));
}

TEST_F(Vxpack, CopiesBandsIfOnlyTheDescriptionChanges)
{
    LASFile las = randomLASFile(3, 2, 2000, 4);
    las.records.push_back({"Owner", 9, "of nobody else", {1, 2, 3}});
    writeFile(directory / "in.las", las.build());
    succeed("vxpack -i in.las -o in.vxl");
    for (const std::string options :
         {"-drop Red,green,BLUE,gpstime", "-keep classification", "-srs EPSG:25832 -meta SystemID=a=b",
          "-meta LAS_BoundingBox= -meta Owner=me -drop Intensity"}) {
        SCOPED_TRACE(options);
        EXPECT_NE(succeed("vxpack -i in.vxl -o copy.vxl " + options).find("bands copied"), std::string::npos);
        // Any other option reads the points; the result is the same.
        for (const std::string more : {" -levels 5", " -s 1"})
            EXPECT_EQ(succeed("vxpack -i in.vxl -o coded.vxl " + options + more).find("bands copied"),
                      std::string::npos);
        succeed("vxdiff copy.vxl coded.vxl");
        succeed("vxinfo -check copy.vxl");
        EXPECT_EQ(run("vxdiff in.vxl copy.vxl").status, 1);
        // The LAS file that was packed is restored as far as it is still there.
        succeed("vxunpack -i copy.vxl -o out.las -restore");
        const LASFile restored = LASFile::load(directory / "out.las");
        EXPECT_EQ(restored.format, 3);
        EXPECT_EQ(restored.points.size(), 2000u);
        EXPECT_TRUE(std::any_of(restored.records.begin(), restored.records.end(),
                                [](const LASFileRecord& record) { return record.userID == "Owner"; }));
        EXPECT_EQ(restored.points[7].red,
                  options.find("-s") == 0 || options.find("-me") == 0 ? las.points[7].red : 0);
    }
    expectError(
        "vxpack -i in.vxl -o copy.vxl -meta LAS_BoundingBox=0",
        "the record 'LAS_BoundingBox' is not text and cannot be set; '-meta LAS_BoundingBox=' removes "
        "it path = in.vxl");
}

// The coordinate system that the user states replaces all traces of the old one.
TEST_F(Vxpack, SetsTheCoordinateSystem)
{
    for (const int format : {1, 6}) {
        LASFile las = randomLASFile(format, format == 1 ? 2 : 4, 50, 4);
        const std::string wkt = transverseMercator(15) + '\0';
        if (format == 1)
            las.records = {
                {"LASF_Projection", 34735, "", {1, 0, 1, 0, 0, 0, 1, 0, 0, 12, 0, 0, 1, 0, 0x79, 0x7F}}};
        else
            las.extendedRecords = {{"LASF_Projection", 2112, "", LASBytes(wkt.begin(), wkt.end())}};
        las.globalEncoding = format == 1 ? 0 : 16;
        writeFile(directory / "in.las", las.build());
        succeed("vxpack -i in.las -o old.vxl");
        for (const std::string input : {"old.vxl", "in.las"}) {
            succeed("vxpack -i " + input + " -o new.vxl -srs EPSG:32632");
            for (const std::string option : {"", " -restore"}) {
                SCOPED_TRACE(input + option);
                succeed("vxunpack -i new.vxl -o out.las" + option);
                for (const char* file : {"new.vxl", "out.las"}) {
                    const std::string found = describe(file)["wkt"];
                    EXPECT_TRUE(SpatialReference::isSame(found.c_str(), transverseMercator(9).c_str()))
                        << found;
                }
                EXPECT_TRUE(LASFile::load(directory / "out.las").points == las.points);
            }
        }
    }
}

TEST_F(Vxpack, ReportsSizes)
{
    const std::string output = succeed("vxpack -i survey.vxl -o out.vxl -V -sb X=512 -t GPSTime=71");
    const auto size = std::filesystem::file_size(directory / "out.vxl");
    char total[100];
    std::snprintf(total, sizeof total, "2400 points written, %zu bytes, %.3f a point\n", size_t(size),
                  double(size) / 2400);
    expectContains(output, {"Basic LiDAR Info:\n   Filename:          survey.vxl\n", total,
                            "\n   Record                      Bytes  a Point  Subblock        Scale          "
                            " Offset  Transform\n"
                            "   X                            2231    0.930       512         0.01           "
                            "500000  91 (arithmetic, "
                            "order 1 prediction)\n",
                            "\n   Blue                         1654    0.689      2048            0          "
                            "      0  90 (arithmetic, "
                            "no lifting)\n"});
}

TEST_F(Vxpack, WarnsOfScalesThatAFileCannotKeep)
{
    expectWarnings();
}

}} // namespace Quillmoran::Testing
