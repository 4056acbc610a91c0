// Options that programs share: the choice of points and channels, runs without points, errors that name a file,
// the progress line.
#include "apps/AppTest.h"
#include "support/ExampleSurvey.h"
#include "support/LASClouds.h"
#include "support/Test.h"

#include <cstdio>

namespace Quillmoran::Testing { namespace {

class Options : public AppTest
{
protected:
    Options() { writeFile(directory / "survey.vxl", buildExampleSurvey()); }
};

TEST_F(Options, ChooseABoxAFractionAndChannels)
{
    const double inf = std::numeric_limits<double>::infinity();
    const Rows all = samplesOf("survey.vxl");
    const struct
    {
        std::string options;
        Bounds box;
        std::size_t count; // 0: all in the box
    } cases[] = {
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        Rows inside;
        for (const auto& row : all)
            if (c.box.contains(row[0], row[1], row[2]))
                inside.push_back(row);
        const std::string output = succeed("vxpack -i survey.vxl -o out.vxl " + c.options);
        const Rows chosen = samplesOf("out.vxl");
        EXPECT_EQ(chosen.size(), c.count != 0 ? c.count : inside.size());
        auto at = inside.begin();
        for (const auto& row : chosen) {
            at = std::find(at, inside.end(), row);
            ASSERT_NE(at, inside.end()) << "not in the box, or in another order";
        }
        const std::string count = std::to_string(chosen.size());
        expectContains(output, {'\n' + count + " points written, "});
        const std::string text = decode("survey.vxl " + c.options);
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
    enum
    {
        returnNum = 4,
        classId = 8
    }; // columns
    Rows expected = samplesOf("survey.vxl");
    expected.erase(std::remove_if(expected.begin(), expected.end(),
                                  [](const auto& row) { return row[classId] != 5 || row[returnNum] == 1; }),
                   expected.end());
    ASSERT_EQ(expected.size(), 120u);
    for (const char* filters : {"-filter ClassId,5,include -filter ReturnNum,1,exclude",
                                "-filter return_number,1,exclude -filter CLASSIFICATION,5,include"}) {
        succeed(std::string("vxpack -i survey.vxl -o out.vxl ") + filters);
        EXPECT_EQ(samplesOf("out.vxl"), expected) << filters;
    }
    succeed("vxpack -i survey.vxl -o out.vxl -t Classification=90 -t ClassId=91 -sb gps_time=100 -t "
            "gpstime=70 -sb "
            "red=200");
    const json records = describe("out.vxl")["compression"]["records"];
    EXPECT_EQ(find(records, "ClassId")["transform"], 90) << "names are taken in their order";
    EXPECT_EQ(find(records, "GPSTime")["transform"], 70);
    EXPECT_EQ(find(records, "GPSTime")["subblockSize"], 100);
    EXPECT_EQ(find(records, "Red")["subblockSize"], 200);
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

// A file that can be opened, but not decoded.
Bytes damagedSurvey(const std::string& path)
{
    const Bytes whole = buildExampleSurvey();
    for (std::size_t at = 1000; at + 16 < whole.size(); at += 50) {
        Bytes damaged = whole;
        std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(at), 16, std::uint8_t{0xFF});
        writeFile(path, damaged);
        const Scoped<VX7PointReader> reader(VX7PointReader::create());
        if (failureOf([&] { reader->init(path.c_str()); }) == "no error" &&
            failureOf([&] { readRows(*reader, reader->getPointInfo()); }) != "no error")
            return damaged;
    }
    ADD_FAILURE() << "no damage was found";
    return whole;
}

TEST_F(Options, NameTheFileOfAnErrorOnce)
{
    std::filesystem::create_directory(directory / "tiles");
    for (const char* name : {"a", "b", "c"})
        writeFile(directory / ("tiles/" + std::string(name) + ".vxl"), buildExampleSurvey());
    directory.file("all.list", "tiles/a.vxl\ntiles/note.txt\n");
    succeed("vxindex -o tiles.index tiles");
    const std::string bad = directory / "tiles/b.vxl";
    writeFile(bad, damagedSurvey(bad));
    const std::pair<const char*, std::string> cases[] = {
        {"vxpack -o out.vxl -i tiles", "tiles/b.vxl\n"},
        {"vxpack -o out.vxl -i tiles.index -order hilbert", "tiles/b.vxl\n"},
        {"vxpack -o out.vxl -i survey.vxl -i tiles.index -filter ClassId,2,include", "tiles/b.vxl\n"},
        {"vxpack -o out.vxl -i all.list", "tiles/note.txt\n"},
        {"vxindex -o out.index all.list", "tiles/note.txt\n"},
        {"vxindex -o tiles.index -u -overview o.las -createOverview -overviewFraction 1", "tiles/b.vxl\n"},
        {"vxinfo -stats tiles.index", "tiles/b.vxl\n"},
    };
    for (const auto& [command, end] : cases) {
        const Result result = run(command);
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_EQ(linesOf(result.errors).size(), 1u) << result.errors;
        const std::size_t path = result.errors.find(" path = ");
        ASSERT_NE(path, std::string::npos) << command << result.errors;
        EXPECT_EQ(result.errors.rfind(" path = "), path) << result.errors;
        EXPECT_EQ(result.errors.substr(result.errors.size() - end.size()), end);
    }
    // Messages that name it in another way.
    directory.file("tiles/loop.list", "loop.list\n");
    expectError("vxpack -i tiles/loop.list -o out.vxl",
                "list files are nested too deeply: 'tiles/loop.list'");
}

// The percentages of all frames of the progress line.
std::vector<double> framesOf(const std::string& output)
{
    std::vector<double> frames;
    for (std::size_t at = output.find('\r'); at != std::string::npos; at = output.find('\r', at + 1)) {
        frames.emplace_back();
        char bracket = 0;
        EXPECT_EQ(std::sscanf(output.c_str() + at, "\r%lf%% %c", &frames.back(), &bracket), 2)
            << output.substr(at, 40);
    }
    return frames;
}

TEST_F(Options, ProgressEndsAtOneHundredPercent)
{
    std::filesystem::create_directory(directory / "tiles");
    for (const auto& [name, count] : {std::pair("a", 20000u), {"b", 10000u}, {"c", 5u}})
        writeFile(directory / ("tiles/" + std::string(name) + ".las"), randomLASFile(1, 2, count, 5).build());
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
        const std::vector<double> frames = framesOf(result.output);
        ASSERT_FALSE(frames.empty()) << command;
        EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end())) << command;
        EXPECT_EQ(std::count(frames.begin(), frames.end(), 100.0), result.status == 0) << command;
        EXPECT_EQ(frames.back() == 100.0, result.status == 0) << command;
        EXPECT_EQ(result.status, command.find("bad.xyz") != std::string::npos) << result.errors;
        const std::size_t end = result.output.find("100.00%");
        if (end != std::string::npos) {
            EXPECT_EQ(result.output.find('%', end + 7), std::string::npos) << command;
            EXPECT_EQ(result.output.find(")\n", end), result.output.find(')', end)) << result.output;
        }
    }
}

}} // namespace Quillmoran::Testing
