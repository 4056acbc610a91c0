// Options that programs share: the choice of points and channels, runs without points, errors that name a file.
#include "apps/AppTest.h"
#include "support/LASClouds.h"

#include <cstdio>

namespace Quillmoran::Testing { namespace {

using Options = AppTest;

TEST_F(Options, ChooseABoxAFractionAndChannels)
{
    const double inf = infinity;
    const Rows all = samplesOf("survey.vxl");
    const std::tuple<std::string, Bounds, std::size_t> cases[] = {
        // the last: 0 for all in the box
        {"-c 500020.5 500090 4100005 4100030 125 150",
         {{500020.5, 500090}, {4100005, 4100030}, {125, 150}},
         0},
        {"-crop -inf 500100 4100010 inf -inf +inf", {{-inf, 500100}, {4100010, inf}, {-inf, inf}}, 0},
        {"-c 500000.03 500000.03 4100008.98 4100008.98 124.51 124.51",
         {{500000.03, 500000.03}, {4100008.98, 4100008.98}, {124.51, 124.51}},
         1},
        {"-s 0.5", Bounds::Huge(), 2400},
        {"-s 4", Bounds::Huge(), 600},
        {"-subsample 3 -c 0 500050 -inf +inf 0 150", {{0, 500050}, {-inf, inf}, {0, 150}}, 220}, // of 662
    };
    for (const auto& [options, box, numChosen] : cases) {
        SCOPED_TRACE(options);
        Rows inside;
        std::copy_if(all.begin(), all.end(), std::back_inserter(inside),
                     [&box = box](const Numbers& row) { return box.contains(row[0], row[1], row[2]); });
        const std::string output = succeed("vxpack -i survey.vxl -o out.vxl " + options);
        const Rows chosen = samplesOf("out.vxl");
        EXPECT_EQ(chosen.size(), numChosen != 0 ? numChosen : inside.size());
        auto at = inside.begin();
        for (const auto& row : chosen) {
            at = std::find(at, inside.end(), row);
            ASSERT_NE(at, inside.end()) << "not in the box, or in another order";
        }
        const std::string count = std::to_string(chosen.size());
        expectContains(output, {count + " points written, "});
        const std::string text = decode("survey.vxl " + options);
        EXPECT_EQ(linesOf(text).size(), chosen.size() + 1);
        EXPECT_EQ(decode("out.vxl"), text);
        // The number of points before packing is kept.
        const std::string verdict = count == "2400" ? "lossless (2400)" : "lossy (2400, " + count + ')';
        expectContains(succeed("vxinfo out.vxl -check"), {"point count check:  " + verdict + '\n'});
    }
    EXPECT_EQ(decode("survey.vxl -ofld zyxRtx").substr(0, 72),
              "# Z Y X Red GPSTime X\n124.510 4100008.980 500000.030 122 245380 500000.0");
    EXPECT_EQ(linesOf(decode("survey.vxl -s -2")).size(), 1u) << "its options are lenient";
}

TEST_F(Options, AcceptOtherNamesOfChannels)
{
    Rows expected = samplesOf("survey.vxl"); // of class 5, but no first returns
    expected.erase(std::remove_if(expected.begin(), expected.end(),
                                  [](const auto& row) { return row[8] != 5 || row[4] == 1; }),
                   expected.end());
    ASSERT_EQ(expected.size(), 120u);
    for (const char* filters : {"-filter ClassId,5,include -filter ReturnNum,1,exclude",
                                "-filter return_number,1,EXCLUDE -filter CLASSIFICATION,5,Include"}) {
        succeed(std::string("vxpack -i survey.vxl -o out.vxl ") + filters);
        EXPECT_EQ(samplesOf("out.vxl"), expected) << filters;
    }
    succeed(
        "vxpack -i survey.vxl -o out.vxl -t Classification=90 -t ClassId=91 -sb gps_time=100 -t gpstime=70");
    const json records = describe("out.vxl")["compression"]["records"];
    EXPECT_EQ(find(records, "ClassId")["transform"], 90) << "names are taken in their order";
    EXPECT_EQ(find(records, "GPSTime")["transform"], 70);
    EXPECT_EQ(find(records, "GPSTime")["subblockSize"], 100);
}

TEST_F(Options, ExplainWhyNoPointsAreWritten)
{
    writeFile(directory / "empty.las", randomLASFile(1, 2, 0, 1).build());
    directory.file("one.txt", "1 2 3\n");
    expectWarnings();
    const std::string output = run("vxpack -V -i empty.las -o out.vxl").output;
    expectContains(output, {"0 points written, " +
                            std::to_string(std::filesystem::file_size(directory / "out.vxl")) + " bytes\n"});
    EXPECT_EQ(output.find("nan", output.find(" points written")), std::string::npos) << output;
}

TEST_F(Options, NameTheFileOfAnErrorOnce)
{
    for (const char* name : {"tiles/a.vxl", "tiles/b.vxl", "tiles/c.vxl"})
        writeFile(directory / name, buildExampleSurvey());
    directory.file("all.list", "tiles/a.vxl\ntiles/note.txt\n");
    succeed("vxindex -o tiles.index tiles");
    damage("tiles/b.vxl");
    const std::pair<const char*, std::string> cases[] = {
        {"vxpack -o out.vxl -i tiles", "tiles/b.vxl"},
        {"vxpack -o out.vxl -i tiles.index -order hilbert", "tiles/b.vxl"},
        {"vxpack -o out.vxl -i survey.vxl -i tiles.index -filter ClassId,2,include", "tiles/b.vxl"},
        {"vxpack -o out.vxl -i all.list", "tiles/note.txt"},
        {"vxindex -o out.index all.list", "tiles/note.txt"},
        {"vxindex -o tiles.index -u -overview o.las -createOverview -overviewFraction 1", "tiles/b.vxl"},
        {"vxinfo -stats tiles.index", "tiles/b.vxl"},
        {"vxdiff -unordered survey.vxl tiles", "tiles/b.vxl"},
    };
    for (const auto& [command, end] : cases) {
        const Result result = run(command);
        EXPECT_NE(result.status, 0) << command;
        const std::regex once("Error: ((?! path = ).)* path = ((?! path = ).)*" + end + '\n');
        EXPECT_TRUE(std::regex_match(result.errors, once)) << command << '\n' << result.errors;
    }
}

}} // namespace Quillmoran::Testing
