// Runs of the program: how its files are coded, ordered and rounded, and what it reports.
#include "apps/AppTest.h"
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

TEST_F(Vxpack, OrdersPointsAlongACurve)
{
    LASFile file = randomLASFile(1, 2, 60000, 5);
    Random random(6);
    for (LASFilePoint& point : file.points)
        point.y = static_cast<std::int32_t>(random.between(-100000, 100000));
    file.describePoints();
    writeFile(directory / "in.las", file.build());
    succeed("vxpack -i in.las -o input.vxl -order input");
    succeed("vxpack -i in.las -o curve.vxl -order hilbert");
    succeed("vxdiff -unordered input.vxl curve.vxl");
    EXPECT_EQ(run("vxdiff input.vxl curve.vxl").status, 1);

    // The points to decode for a hundredth of the area.
    Bounds box = Bounds::Huge();
    box.x = {1300, 1500};
    box.y = {-2100, -1900};
    EXPECT_EQ(openCompressed("input.vxl")->getTotalWork(box, 1), 60000);
    EXPECT_LT(openCompressed("curve.vxl")->getTotalWork(box, 1), 60000 / 4);
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
