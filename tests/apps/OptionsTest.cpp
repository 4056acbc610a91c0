// Options that programs share: the choice of points and channels, runs without points, errors that name a file,
// the progress line.
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
        expectContains(output, {'\n' + count + " points written, "});
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
                                "-filter return_number,1,exclude -filter CLASSIFICATION,5,include"}) {
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
    expectContains(output, {"\n0 points written, " +
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

TEST_F(Options, ProgressEndsAtOneHundredPercent)
{
    for (const auto& [name, count] :
         {std::pair("tiles/a.las", 20000u), {"tiles/b.las", 10000u}, {"tiles/c.las", 5u}})
        writeFile(directory / name, randomLASFile(1, 2, count, 5).build());
    // Most points are in a corner of the bounds, so that estimates of points in a box are bad.
    LASFile corner = randomLASFile(1, 2, 30000, 8);
    for (std::size_t i = 0; i < corner.points.size(); ++i) {
        corner.points[i].x = static_cast<std::int32_t>(i % 1000 == 0 ? i : i / 100);
        corner.points[i].y = corner.points[i].x;
    }
    corner.describePoints();
    writeFile(directory / "corner.las", corner.build());
    // The first lines are longer or shorter than the others, so that estimates of their number are bad.
    for (const bool startsLong : {true, false}) {
        std::string text;
        for (int i = 0; i < 40000; ++i)
            text += ((i < 100) == startsLong ? "100000.123456 200000.123456 " : "1 2 ") + std::to_string(i) +
                    '\n';
        directory.file(startsLong ? "long.xyz" : "short.xyz", text);
    }
    directory.file("bad.xyz", readFile(directory / "long.xyz") + "x y z\n");
    succeed("vxpack -i corner.las -o corner.vxl -pe 1000");
    succeed("vxindex -o tiles.index tiles");

    const std::string box = " -c 995 1010 -2100 -1990 -inf +inf";
    const std::string cases[] = {
        "vxunpack -i corner.vxl -o out.txt",
        "vxunpack -i corner.vxl -o out.laz -s 3" + box,
        "vxunpack -i corner.vxl -o null" + box,
        "vxpack -i corner.las -o out.vxl" + box,
        "vxpack -i corner.vxl -o out.vxl -order hilbert" + box,
        "vxpack -i tiles -o out.vxl -s 3" + box,
        "vxpack -i tiles.index -o out.vxl -order hilbert -s 2",
        "vxpack -i corner.vxl -o out.vxl -filter ReturnNum,3,include",
        "vxpack -i short.xyz -o out.vxl -p xyz",
        "vxpack -i long.xyz -i short.xyz -o out.vxl -p xyz -order hilbert",
        "vxinfo -check -stats corner.vxl",
        "vxinfo -stats short.xyz -p xyz",
        "vxinfo -check tiles.index",
        "vxindex -o again.index tiles long.xyz short.xyz -p xyz",
        "vxpack -i bad.xyz -o out.vxl -p xyz", // never shows it
    };
    for (const std::string& command : cases) {
        const Result result = run(command);
        EXPECT_EQ(result.status, command.find("bad.xyz") != std::string::npos) << result.errors;
        const std::string& output = result.output;
        const std::regex frame("\r *([0-9.]+)% \\([^)]*\\)\n?");
        std::string last;
        Numbers shown;
        for (std::sregex_iterator at(output.begin(), output.end(), frame), end; at != end; ++at) {
            last = at->str();
            shown.push_back(std::stod((*at)[1]));
        }
        EXPECT_EQ(std::ssize(shown), std::count(output.begin(), output.end(), '%')) << output;
        EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end())) << command;
        EXPECT_EQ(std::count(shown.begin(), shown.end(), 100.0), result.status == 0) << command;
        EXPECT_EQ(last.find("100.00%") == 1 && last.back() == '\n', result.status == 0) << command << last;
    }
}

}} // namespace Quillmoran::Testing
