// Runs of the program, and its JSON as programs read it.
#include "apps/AppTest.h"
#include "support/DigestChunk.h"
#include "support/LASClouds.h"
#include "support/LASFile.h"
#include "support/SampleCloud.h"
#include "support/Terminal.h"
#include "support/TileFiles.h"

#include <numeric>

namespace Quillmoran::Testing { namespace {

class Vxinfo : public AppTest
{
protected:
    // The report of a file that is expected to be sound or to have these problems.
    json report(const std::string& arguments, const std::vector<std::string>& problems = {}) const
    {
        const Result result = run("vxinfo -json " + arguments);
        EXPECT_EQ(result.status, problems.empty() ? 0 : 1) << result.errors;
        const json files = json::parse(result.output);
        EXPECT_EQ(files.size(), 1u);
        EXPECT_EQ(files[0]["sound"], problems.empty());
        std::string errors;
        for (const std::string& problem : problems)
            errors += "Error: " + std::string(files[0]["file"]) + ": " + problem + '\n';
        EXPECT_EQ(result.errors, errors) << arguments;
        EXPECT_EQ(files[0].value("problems", std::vector<std::string>()), problems);
        EXPECT_EQ(files[0].value("error", ""), problems.empty() ? "" : problems[0]);
        return files[0];
    }
    json report(const FilePlan& plan, const std::string& options = "",
                const std::vector<std::string>& problems = {}) const
    {
        writeFile(directory / "built.vxl", buildFile(plan));
        return report(options + " built.vxl", problems);
    }
};

TEST_F(Vxinfo, DescribesTheExampleAsText)
{
    // The file lacks the lines of the coordinate system, which GDAL lays out.
    std::string text = succeed("vxinfo survey.vxl -check -stats");
    const std::size_t wkt = text.find("PROJCS[\"WGS 84 / UTM zone 13N\",\n    GEOGCS[\"WGS 84\",\n");
    ASSERT_NE(wkt, std::string::npos) << text;
    text.erase(wkt, text.find("   File Size:") - wkt);
    EXPECT_EQ(text, readFile(EXPECTED "/survey.txt"));
    // Without the options, neither a check nor statistics.
    const std::string brief = succeed("vxinfo survey.vxl");
    EXPECT_EQ(brief.substr(brief.find("Channels:")),
              text.substr(text.find("Channels:"), text.find("Check:") - text.find("Channels:")));
}

TEST_F(Vxinfo, DescribesTheExampleAsJSON)
{
    json file = report("survey.vxl");
    EXPECT_EQ(file["wkt"].get<std::string>().rfind("PROJCS[\"WGS 84 / UTM zone 13N\",GEOGCS[", 0), 0u);
    file.erase("wkt");
    EXPECT_EQ(file, json::parse(readFile(EXPECTED "/survey.json")));
}

TEST_F(Vxinfo, ComputesStatisticsOfEveryChannel)
{
    const SampleCloud cloud = SampleCloud::make(5000, 9);
    FilePlan plan = cloud.toFile();
    plan.classNames = {"never"};
    std::vector<std::int64_t> large(5000, 9007199254740993); // not representable as double
    large[17] = -9007199254740995;
    std::vector<std::int64_t> codes(5000, 300);
    std::vector<double> below(5000, -2.5), nothing(5000, nan);
    below[4999] = -7;
    plan.channels.push_back(integerChannel("Large", SINT64, large, 10));
    plan.channels.push_back(integerChannel("ReturnNum", UINT16, codes));
    plan.channels.push_back(deflatedChannel("Below", FLOAT64, below));
    plan.channels.push_back(deflatedChannel("Nothing", FLOAT32, nothing));
    const json statistics = report(plan, "-stats")["statistics"];
    ASSERT_EQ(statistics.size(), 12u);

    const auto expectPlain = [&](const char* name, const auto& samples) {
        const json channel = find(statistics, name);
        const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
        EXPECT_EQ(json({channel["count"], channel["notFinite"], channel["min"], channel["max"]}),
                  json({samples.size(), 5000 - samples.size(), *low, *high}))
            << name;
        const double mean =
            std::accumulate(samples.begin(), samples.end(), 0.0) / static_cast<double>(samples.size());
        EXPECT_NEAR(channel["mean"], mean, std::abs(mean) * 1e-12) << name;
        EXPECT_FALSE(channel.contains("counts")) << name;
        const json& histogram = channel["histogram"];
        const Numbers edges = histogram["edges"];
        ASSERT_GE(edges.size(), 2u) << name;
        std::vector<std::size_t> counts(edges.size() - 1);
        for (const auto sample : samples)
            ++counts.at(static_cast<std::size_t>(
                std::upper_bound(edges.begin(), edges.end(), static_cast<double>(sample)) - edges.begin() -
                1));
        EXPECT_EQ(histogram["counts"], json(counts)) << name;
        EXPECT_TRUE(counts.front() != 0 && counts.back() != 0) << name;
        const bool isFine = edges[1] - edges[0] <= 1; // as the samples of all channels but two
        EXPECT_TRUE(edges.size() <= 65 && (edges.size() > 32 || isFine)) << name << ' ' << edges.size();
    };
    expectPlain("Y", cloud.coordinates[1]);
    expectPlain("Intensity", cloud.intensity);
    expectPlain("ScanAngle", cloud.scanAngle);
    expectPlain("Large", large);
    expectPlain("ReturnNum", codes);
    expectPlain("Below", below);
    std::vector<double> finite = cloud.gpsTime;
    finite.erase(finite.begin() + 2); // the infinity among them
    expectPlain("GPSTime", finite);
    EXPECT_EQ(find(statistics, "Nothing"),
              json::parse(R"({"name": "Nothing", "count": 0, "notFinite": 5000, "min": null, "max": null,
                              "mean": null, "exactRange": true, "histogram": {"edges": [], "counts": []}})"));
    EXPECT_EQ(find(statistics, "ClassId")["counts"],
              json({{"2", std::count(cloud.classId.begin(), cloud.classId.end(), 2)},
                    {"5", std::count(cloud.classId.begin(), cloud.classId.end(), 5)}}));
    expectContains(succeed("vxinfo -stats built.vxl"),
                   {"\n   Nothing          0        5000\n", "\n     5           2500  50.00 %\n"});
}

// Of 0, 2, 7 and, nine times, 5.
TEST_F(Vxinfo, DrawsHistogramsAsTheOutputAllows)
{
    std::string text = "# X Y Z\n0 0 0\n0 0 2\n0 0 7\n";
    for (int i = 0; i < 9; ++i)
        text += "0 0 5\n";
    directory.file("a.txt", text);
    const std::string command = "vxinfo -stats a.txt";
    const auto onTerminal = [&](const std::string& locale) {
        return TerminalProgram("LC_ALL=" + locale + ' ' + command, directory).wait().screen;
    };
    expectContains(onTerminal("C.UTF-8"), {"\n   Y        12           0        0        0     0  |\u2588|\n",
                                           "|\u2581       \u2581           \u2588       \u2581|\n"});
    for (const std::string& plain : {onTerminal("C"), run(command).output})
        expectContains(plain, {"  |@|\n", "|.       .           @       .|\n"});
}

TEST_F(Vxinfo, EstimatesStatisticsFromCoarseLevels)
{
    writeFile(directory / "large.las", randomLASFile(1, 2, 205000, 5).build());
    succeed("vxpack large.las");
    succeed("vxindex -o t.index large.vxl");
    const json all = report("large.vxl -stats"), part = report("large.vxl -stats -fast");
    EXPECT_EQ(json({all["estimated"], all["fraction"]}), json({false, 1.0}));
    EXPECT_EQ(json({part["estimated"], part["fraction"]}), json({true, 0.5}));
    for (std::size_t i = 0; i < all["statistics"].size(); ++i) {
        const json &whole = all["statistics"][i], &sample = part["statistics"][i];
        EXPECT_EQ(sample["count"], 102500);
        // Records of floating-point numbers in parts do not state a range.
        EXPECT_EQ(sample["exactRange"], sample["name"] != "GPSTime");
        if (sample["name"] == "GPSTime")
            continue;
        for (const char* same : {"name", "min", "max"})
            EXPECT_EQ(sample[same], whole[same]);
        EXPECT_EQ(sample["histogram"]["edges"], whole["histogram"]["edges"]);
        const double range = double(whole["max"]) - double(whole["min"]);
        EXPECT_NEAR(sample["mean"], whole["mean"], 0.01 * range) << sample["name"];
    }
    // Tiles are sampled, too, but an index does not have the ranges of channels.
    const json tiles = report("t.index -stats -fast")["statistics"];
    EXPECT_EQ(json({tiles[0]["count"], tiles[0]["exactRange"]}), json({102500, false}));
    expectContains(succeed("vxinfo -stats -fast t.index"),
                   {"Statistics, estimated from 1 of 2 points (~ marks estimates):\n", " ~"});
    expectContains(succeed("vxinfo -stats -fast large.las"), {"Statistics (all points are read):\n"});
}

// Five groups of points in the centre and towards the corners, each with an entry of the index of its own.
TEST_F(Vxinfo, ChecksTheIndexAtFivePlaces)
{
    constexpr double places[][3] = {
        {50.05, 50.05, 7}, {20.02, 20.02, 7}, {80.08, 20.02, 7}, {20.02, 80.08, 7}, {80.08, 80.08, 7}};
    std::vector<double> coordinates[3];
    FilePlan plan;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        std::vector<std::int64_t> steps;
        for (std::size_t i = 0; i < 6 * 64; ++i) {
            const bool isOutside = i == 1 && axis == 0; // by less than half a step
            const double corner = i % 2 == 0 ? 0 : 100.1;
            coordinates[axis].push_back(isOutside ? 56.31 : i < 5 * 64 ? places[i / 64][axis] : corner);
            steps.push_back(std::llround(coordinates[axis][i] * 100));
        }
        plan.channels.push_back(quantizedChannel(std::string(1, "XYZ"[axis]), steps, 0, 0.01));
    }
    plan.indexBoxes = makeIndexBoxes(coordinates[0], coordinates[1], coordinates[2], 64);
    for (const int version : {1, 2}) {
        plan.indexVersion = static_cast<std::uint8_t>(version);
        const json sound = report(plan, "-check");
        EXPECT_EQ(sound["check"], json::parse(R"({"numPoints": 384, "numQueries": 5, "numDigests": 0})"));
        EXPECT_EQ(sound["compression"]["index"]["kind"], version == 1 ? "list" : "tree");
        for (std::size_t i = 0; i < 5; ++i) {
            FilePlan damaged = plan;
            damaged.indexBoxes[i].x = {0, 0};
            std::ostringstream problem;
            problem << std::setprecision(10) << "the index gives 0 of the 64 points in x "
                    << places[i][0] - 6.25625 << " to " << places[i][0] + 6.25625 << ", y "
                    << places[i][1] - 6.25625 << " to " << places[i][1] + 6.25625;
            report(damaged, "-check", {problem.str()});
        }
    }
    // A point at NaN is in no box, but counts.
    FilePlan lost;
    for (const char* name : {"X", "Y", "Z"})
        lost.channels.push_back(deflatedChannel(name, FLOAT64, {1, 2, 3, 4, 5}));
    lost.channels[1].reals[3] = nan;
    EXPECT_EQ(report(lost, "-check")["check"],
              json({{"numPoints", 5}, {"numQueries", 5}, {"numDigests", 0}}));
}

TEST_F(Vxinfo, ChecksThatPointsLieWithinTheBounds)
{
    LASFile narrow;
    for (int i = 0; i < 5000; ++i)
        narrow.points.push_back({50 * i, 50 * i, 50 * i});
    narrow.describePoints();
    narrow.max[1] = 2479.5;
    writeFile(directory / "narrow.las", narrow.build());
    const std::string problem =
        "40 points lie outside the stated bounds, the first is point 4960 (2480 2480 2480)";
    EXPECT_EQ(report("narrow.las -check", {problem})["numPoints"], 5000);
    const Result text = run("vxinfo -check narrow.las survey.vxl");
    EXPECT_EQ(text.status, 1) << "also if the last file is sound";
    EXPECT_EQ(text.errors, "Error: narrow.las: " + problem + '\n');
    expectContains(text.output, {"Check:\n   5000 points and 0 boxes looked at, 1 problems\n"});

    // The tiles of an index have no common scale: their bounds are exact to a millionth.
    for (const double error : {0.001, 0.003}) {
        for (const double scale : {0.01, 0.011}) {
            LASFile file;
            file.scale[0] = scale;
            file.points.resize(2);
            file.points[1].x = 200000;
            file.describePoints();
            file.max[0] -= error;
            writeFile(directory / (scale == 0.01 ? "a.las" : "b.las"), file.build());
        }
        report("-check a.las"); // the error is less than half a step
        succeed("vxindex -o t.index a.las b.las");
        if (error < 0.002)
            report("-check t.index");
        else
            EXPECT_EQ(run("vxinfo -check t.index").errors, "Error: t.index: 1 points lie outside the stated "
                                                           "bounds, the first is point 3 (2200 0 0)\n");
    }
}

TEST_F(Vxinfo, ChecksTheNumberOfPoints)
{
    for (const char* name : {"a.vxl", "b.vxl"})
        writeFile(directory / name, buildTile(name[0] * 10, 0, 20));
    succeed("vxindex -o t.index a.vxl b.vxl");
    for (const int count : {19, 21}) {
        writeFile(directory / "a.vxl", buildTile('a' * 10, 0, count));
        report("-check t.index", {"40 points are stated and " + std::to_string(20 + count) + " are there"});
    }
}

TEST_F(Vxinfo, ContinuesAfterDamagedFiles)
{
    const std::string bytes = readFile(directory / "survey.vxl");
    directory.file("cut.vxl", bytes.substr(0, bytes.size() / 2));
    directory.file("all.list", "cut.vxl\nnone.vxl\nsurvey.vxl");
    const Result result = run("vxinfo all.list null -json -i survey.vxl");
    EXPECT_EQ(result.status, 1);
    const std::string none = "No such file or directory path = none.vxl", cut = "bad read -- chunk id";
    EXPECT_EQ(result.errors, "Error: cut.vxl: " + cut + "\nError: none.vxl: " + none +
                                 "\nError: null: unsupported input file format 'null'\n");
    const json files = json::parse(result.output);
    ASSERT_EQ(files.size(), 5u);
    EXPECT_EQ(files[0], json({{"file", "cut.vxl"}, {"sound", false}, {"error", cut}, {"problems", {cut}}}));
    EXPECT_EQ(files[1]["error"], none);
    EXPECT_EQ(files[3]["file"], "null");
    EXPECT_EQ(json({files[2]["numPoints"], files[4]["numPoints"]}), json({2400, 2400}));
    const Result verbose = run("vxinfo -V cut.vxl");
    EXPECT_EQ(verbose.output, "");
    expectContains(verbose.errors, {": bad read -- chunk id (error 40201, read in ChunkHeader.cpp:"});
    directory.file("bad.xyz", "1 2 3\n4 5\n");
    EXPECT_EQ(run("vxinfo -p xyz bad.xyz").errors, "Error: bad.xyz:2:4: 2 fields, expected 3\n");
}

TEST_F(Vxinfo, ReportsDamageThatOnlyDecodingFinds)
{
    damage("damaged.vxl");
    report("damaged.vxl");
    const json damaged = json::parse(run("vxinfo damaged.vxl -json -check -stats").output)[0];
    EXPECT_EQ(damaged["error"].get<std::string>().rfind("bad read -- subblock ", 0), 0u) << damaged["error"];
    EXPECT_EQ(damaged["channels"].size(), 15u) << "the description is kept";
    EXPECT_FALSE(damaged.contains("statistics"));
    expectContains(run("vxinfo damaged.vxl -stats").output, {"Basic LiDAR Info:\n"});
}

TEST_F(Vxinfo, LocatesDamageByDigests)
{
    const SampleCloud cloud = SampleCloud::make(2000, 9);
    FilePlan plan = cloud.toFile();
    cloud.addIndex(plan, 2, 50);
    const Bytes plain = buildFile(plan);
    writeFile(directory / "plain.vxl", plain);
    expectContains(succeed("vxinfo -check plain.vxl"),
                   {"\n   2000 points and 5 boxes looked at, 0 problems\n   no digests: structure only\n"});
    constexpr std::size_t numBlocks = 32;
    const DigestChunk sound = DigestChunk::of(plain, 6);
    const auto check = [&](const DigestChunk& digests, const Strings& problems) {
        writeFile(directory / "changed.vxl", digests.addTo(plain));
        return report("-check changed.vxl", problems)["check"]["numDigests"];
    };
    EXPECT_EQ(check(sound, {}), 8 * numBlocks + 2);
    DigestChunk changed = sound;
    Strings problems = {"headers and metadata: digest differs", "the index: digest differs"};
    changed.description ^= 1;
    changed.index ^= 1;
    for (std::size_t block = numBlocks - 18; block < numBlocks; ++block) {
        const std::size_t first = 64 * block, last = std::min<std::size_t>(first + 63, 1999);
        changed.samples[2 * numBlocks + block] ^= 1;
        problems.push_back("channel Z, points " + std::to_string(first) + " to " + std::to_string(last) +
                           ": digest differs");
    }
    for (const std::size_t block : {0, 1, 2, 3, 4})
        changed.samples[6 * numBlocks + block] ^= 1;
    problems.push_back("channel GPSTime, points 0 to 63: digest differs");
    problems.push_back("channel GPSTime, points 64 to 127: digest differs");
    problems.push_back("and 3 more blocks");
    EXPECT_EQ(check(changed, problems), 8 * numBlocks + 2);
    changed = sound;
    ++changed.numPoints;
    check(changed, {"the digests are damaged"});
    // With -stats alone, the reader compares.
    changed = sound;
    changed.samples[0] ^= 1;
    check(changed, {"channel X, points 0 to 63: digest differs"});
    report("-stats changed.vxl", {"channel X, points 0 to 63: digest differs"});
}

TEST_F(Vxinfo, WritesValidJSONForAnyContents)
{
    const double numbers[] = {1.5, infinity, nan};
    FilePlan plan;
    for (const char* name : {"X", "Y", "Z"})
        plan.channels.push_back(quantizedChannel(name, {}, -0.0, 0.01));
    plan.metadata.add("k\xFFy\"\n\x7F", "\xC3", METADATA_STRING, "\xE2\x82", 0);
    plan.metadata.add("numbers", nullptr, METADATA_FLOAT64_ARRAY, numbers, 3);
    plan.metadata.add("blob", nullptr, METADATA_BLOB, "abc", 3);
    plan.classNames = {std::nullopt, std::string("\x80")};
    const json file = report(plan, "-check -stats");
    EXPECT_EQ(file["metadata"], json::parse(R"([
        {"key": "k\uFFFDy\"\n\u007F", "description": "\uFFFD", "type": "string", "length": 3, "value": "\uFFFD"},
        {"key": "numbers", "description": null, "type": "numbers", "length": 3, "value": [1.5, null, null]},
        {"key": "blob", "description": null, "type": "blob", "length": 3, "value": null}])"));
    EXPECT_EQ(file["classNames"], json({nullptr, "\uFFFD"}));
    const std::string ascii = run("vxinfo -json built.vxl").output;
    EXPECT_TRUE(std::all_of(ascii.begin(), ascii.end(),
                            [](char c) { return (c >= ' ' && c < '\x7F') || c == '\n'; }));
    // No points: no bounds, no ranges, no means.
    const json record = file["compression"]["records"][0];
    EXPECT_EQ(
        json({file["numPoints"], file["bounds"], file["wkt"], record["min"], file["statistics"][0]["mean"]}),
        json({0, nullptr, nullptr, nullptr, nullptr}));
    EXPECT_EQ(file["offset"].dump() + record["offset"].dump(), "[0.0,0.0,0.0]0.0") << "not -0";
    expectContains(succeed("vxinfo built.vxl"), {"   Point Density:     0.000000 points",
                                                 "   Offset:            0.000000 0.000000 0.000000\n"});
    // As it is packed, a channel without samples has the range of one zero.
    EXPECT_EQ(run("vxpack -i survey.vxl -o none.vxl -c 0 1 0 1 0 1").status, 0);
    EXPECT_EQ(report("none.vxl")["bounds"], json());
}

TEST_F(Vxinfo, ReadsTextWithItsColumnsGiven)
{
    directory.file("a.xyz", "x y z c\n1 2 3 4\n5 6 7 8\n");
    report("a.xyz", {"TXT file requires a format parse string '-parse': 'a.xyz'"});
    const json file = report("a.xyz -parse xyzc -skip 1 -check -stats");
    EXPECT_EQ(json({file["type"], file["bounds"]["max"], file["scale"], file["statistics"][3]["counts"]}),
              json({"Text LiDAR File", {5, 6, 7}, nullptr, {{"4", 1}, {"8", 1}}}));
    EXPECT_EQ(file["check"], json({{"numPoints", 2}, {"numQueries", 0}, {"numDigests", 0}}))
        << "no index to compare with";
    EXPECT_FALSE(file.contains("compression"));
}

// Names of channels, classes, records and coordinate systems come from files.
TEST_F(Vxinfo, NoProgramPrintsControlCharacters)
{
    const std::string evil = "e\x1b]0;\x07\x7f\nEVIL\xff", escaped = "e\\x1b]0;\\x07\\x7f\\nEVIL\\xff";
    const std::string file = "\x1b[31m.vxl";
    FilePlan plan;
    for (const std::string& channel : {std::string("X"), std::string("Y"), std::string("Z"), evil})
        plan.channels.push_back(quantizedChannel(channel, {1, 2, 3}, 0, 1));
    plan.wkt = evil;
    plan.classNames = {evil};
    plan.metadata.add(evil.c_str(), evil.c_str(), METADATA_STRING, evil.c_str(), 0);
    for (const std::string& name : {std::string("a.vxl"), file})
        writeFile(directory / name, buildFile(plan));
    const std::tuple<std::string, std::size_t, std::string> cases[] = {
        // summary: channel, coordinate system; channel, class, record (3), coding, statistics
        {"vxinfo -stats a.vxl", 9, ""},
        {"vxinfo -json a.vxl", 0, "e\\u001b]0;\\u0007\\u007f\\nEVIL\\ufffd"},
        {"vxpack -V -i a.vxl -o out.vxl", 3, ""},
        {"vxunpack -i a.vxl -o out.txt", 0, ""},
        {"vxunpack -i a.vxl -o out.las", 2, ""}, // twice as a channel that is left out
        {"vxindex -o t.index -srs \x1b[32m " + file, 0, ""},
        {"vxindex -o t.index -l", 0, "\\x1b[31m.vxl\n"},
        // file; channel only here, class, record
        {"vxdiff -V survey.vxl " + file, 3, "   B: \\x1b[31m.vxl\n"},
        {"vxdiff -json survey.vxl " + file, 0, "\"key\": \"e\\u001b]0;\\u0007\\u007f\\nEVIL\\ufffd\""},
        {"vxinfo " + file + "x.vxl", 0, "\\x1b[31m.vxlx.vxl"},
    };
    for (const auto& [command, count, shown] : cases) {
        const Result result = run(command);
        const std::string output = result.output + result.errors;
        EXPECT_EQ(output.find('\x1b'), std::string::npos) << command;
        EXPECT_EQ(output.find("\nEVIL"), std::string::npos) << command;
        std::size_t found = 0;
        for (std::size_t at = 0; (at = output.find(escaped, at)) != std::string::npos; ++at)
            ++found;
        EXPECT_EQ(found, count) << command << '\n' << output;
        expectContains(output, {shown});
    }
    EXPECT_EQ(linesOf(readFile(directory / "out.txt"))[0], "# X Y Z " + escaped);
}

}} // namespace Quillmoran::Testing
