// Runs of the program, and its JSON as programs read it.
#include "apps/ProgramTest.h"
#include "common/container/ChunkHeader.h"
#include "platform/ByteOrder.h"
#include "support/ExampleSurvey.h"
#include "support/SampleCloud.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <numeric>

namespace Quillmoran {
namespace {

using nlohmann::json;
using Testing::Bytes;
using Testing::FilePlan;
using Testing::find;
using Testing::Program;
using Testing::Result;
using Testing::SampleCloud;
using Testing::writeFile;

// Where the first record of the wavelet header keeps the largest sample of its channel.
constexpr std::size_t firstMaximum = 16 + 2 * ChunkHeader::size + 13 + 31;

class Vxinfo : public Testing::ProgramTest
{
protected:
    Result run(const std::vector<std::string>& arguments)
    {
        return Program(VXINFO, directory, arguments).wait();
    }
    // The report of a file, which is expected to be sound or not.
    json report(const std::string& file, std::vector<std::string> options = {}, bool sound = true)
    {
        options.insert(options.end(), {file, "-json"});
        const Result result = run(options);
        EXPECT_EQ(result.status, sound ? 0 : 1) << result.errors;
        EXPECT_EQ(result.errors.empty(), sound) << result.errors;
        json files = json::parse(result.output);
        EXPECT_EQ(files.size(), 1u);
        EXPECT_EQ(files[0]["file"], file);
        EXPECT_EQ(files[0]["sound"], sound);
        return files[0];
    }
    json report(const FilePlan& plan, const std::vector<std::string>& options = {}, bool sound = true)
    {
        return report(write("built.vxl", buildFile(plan)), options, sound);
    }
    template <class Content>
    std::string write(const std::string& name, const Content& content)
    {
        writeFile(directory / name, content);
        return directory / name;
    }

    const std::string example = EXAMPLES "/survey.vxl";
};

TEST_F(Vxinfo, DescribesTheExampleAsJSON)
{
    const json file = report(example);
    EXPECT_EQ(file["type"], "Vexil LiDAR File");
    EXPECT_EQ(file["format"], "VX7 4.0.0.4");
    EXPECT_EQ(file["fileBytes"], std::filesystem::file_size(example));
    EXPECT_EQ(file["numPoints"], 2400);
    EXPECT_EQ(file["bounds"]["min"][2], 120.75);
    EXPECT_EQ(file["scale"], json({0.01, 0.01, 0.01}));
    EXPECT_EQ(file["offset"], json({500000.0, 4100000.0, 100.0}));
    EXPECT_EQ(file["channels"].size(), 15u);
    EXPECT_EQ(find(file["channels"], "ScanAngle"),
              json({{"name", "ScanAngle"}, {"type", "SINT8"}, {"bits", 5}, {"quantization", 0.0}}));
    EXPECT_EQ(file["classNames"][2], "Ground");
    EXPECT_EQ(file["metadata"][0]["key"], "PreCompressionPointCount");
    EXPECT_EQ(file["metadata"][0]["value"], "2400");
    EXPECT_EQ(file["wkt"].get<std::string>().rfind("PROJCS[\"WGS 84 / UTM zone 13N\",GEOGCS[", 0), 0u);

    const json& compression = file["compression"];
    EXPECT_EQ(compression["index"]["kind"], "tree");
    EXPECT_EQ(compression["index"]["numEntries"], 38);
    EXPECT_EQ(compression["index"]["pointsPerEntry"], 64);
    ASSERT_EQ(compression["levels"].size(), 6u);
    EXPECT_EQ(compression["levels"][5]["numPoints"], 75);
    const json z = find(compression["records"], "Z");
    EXPECT_EQ(z["transform"], 91);
    EXPECT_EQ(z["transformName"], "arithmetic, order 1 prediction");
    EXPECT_EQ(z["subblockSize"], 256);
    EXPECT_EQ(z["min"], 2075);
    EXPECT_EQ(find(compression["records"], "GPSTime")["kernelType"], "SINT32");
    for (const char* absent : {"error", "problems", "check", "statistics"})
        EXPECT_FALSE(file.contains(absent)) << absent;
}

TEST_F(Vxinfo, DescribesTheExampleAsText)
{
    const Result result = run({example, "-check", "-stats"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* line :
         {"Basic LiDAR Info:\n   Filename:          ",
          "   Pre-compression point count check:  lossless (2400)\n",
          "   Spatial Reference: PROJCS[\"WGS 84 / UTM zone 13N\",\n    GEOGCS[\"WGS 84\",\n",
          "\n   Intensity            UINT16       8            0\n", "\n     2  Ground\n",
          "Metadata:\n   PreCompressionPointCount:\n      '2400'\n", "tree, 38 boxes of 64 points",
          "Check:\n   2400 points and 5 boxes looked at, 0 problems\n", "Points by ClassId:\n     2 "})
        EXPECT_NE(result.output.find(line), std::string::npos) << line << "in\n" << result.output;
}

// The expected sizes come from a plain walk over the chunks.
TEST_F(Vxinfo, AddsUpTheBytesOfTheBands)
{
    const SampleCloud cloud = SampleCloud::make(3000, 4);
    for (const std::uint8_t bandVersion : {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{3}}) {
        for (const bool swapped : {false, true}) {
            FilePlan plan = cloud.toFile();
            plan.bandVersion = bandVersion;
            plan.swapRanges = swapped;
            const Bytes bytes = buildFile(plan);
            std::map<std::size_t, std::int64_t> first, second; // per channel
            std::map<std::size_t, std::int64_t> levels;
            std::int64_t length = 0;
            for (std::size_t at = 28; at < bytes.size(); at += 12 + static_cast<std::size_t>(length)) {
                length = loadBigEndian<std::int64_t>(&bytes[at + 4]);
                if (bytes[at + 3] != CHUNK_SUBBAND)
                    continue;
                const std::uint8_t* payload = &bytes[at + 12];
                const auto channel = loadBigEndian<std::uint16_t>(payload + 1);
                const auto band = loadBigEndian<std::uint16_t>(payload + 3);
                const std::int64_t a =
                    bandVersion == 1 ? length - 5 : loadBigEndian<std::int64_t>(payload + 5);
                const std::int64_t b = bandVersion == 1 ? 0 : loadBigEndian<std::int64_t>(payload + 13);
                first[channel] += a;
                second[channel] += b;
                levels[plan.numLevels - 1 - band] += a + b;
            }
            const json compression = report(plan)["compression"];
            for (std::size_t c = 0; c < plan.channels.size(); ++c) {
                const json& record = compression["records"][c];
                EXPECT_EQ(record["bytes"], first[c] + second[c]);
                EXPECT_EQ(record["dataBytes"],
                          bandVersion == 1 ? json() : json(swapped ? second[c] : first[c]));
                EXPECT_EQ(record["headerBytes"],
                          bandVersion == 1 ? json() : json(swapped ? first[c] : second[c]));
            }
            for (std::size_t level = 0; level < plan.numLevels; ++level)
                EXPECT_EQ(compression["levels"][level]["bytes"], levels[level]);
        }
    }
}

TEST_F(Vxinfo, ComputesStatisticsOfEveryChannel)
{
    const SampleCloud cloud = SampleCloud::make(5000, 9);
    FilePlan plan = cloud.toFile();
    std::vector<std::int64_t> large(5000, 9007199254740993); // not representable as double
    large[17] = -9007199254740995;
    plan.channels.push_back(Testing::integerChannel("Large", SINT64, large, 10));
    const json statistics = report(plan, {"-stats"})["statistics"];
    ASSERT_EQ(statistics.size(), 9u);

    const auto expectPlain = [&](const char* name, const auto& samples) {
        const json channel = find(statistics, name);
        const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
        EXPECT_EQ(channel["count"], samples.size()) << name;
        EXPECT_EQ(channel["notFinite"], 5000 - samples.size()) << name;
        EXPECT_EQ(channel["min"], *low) << name;
        EXPECT_EQ(channel["max"], *high) << name;
        const double mean =
            std::accumulate(samples.begin(), samples.end(), 0.0) / static_cast<double>(samples.size());
        EXPECT_NEAR(channel["mean"], mean, std::abs(mean) * 1e-12) << name;
    };
    expectPlain("Y", cloud.coordinates[1]);
    expectPlain("Intensity", cloud.intensity);
    expectPlain("ScanAngle", cloud.scanAngle);
    expectPlain("Large", large);
    std::vector<double> finite = cloud.gpsTime;
    finite.erase(finite.begin() + 2); // the infinity among them
    expectPlain("GPSTime", finite);
    EXPECT_EQ(find(statistics, "Temperature")["notFinite"], 1);

    const json classes = find(statistics, "ClassId")["counts"];
    EXPECT_EQ(classes, json({{"2", std::count(cloud.classId.begin(), cloud.classId.end(), 2)},
                             {"5", std::count(cloud.classId.begin(), cloud.classId.end(), 5)}}));
    EXPECT_FALSE(find(statistics, "Intensity").contains("counts"));
}

TEST_F(Vxinfo, ChecksThatAllPointsAreThere)
{
    const SampleCloud cloud = SampleCloud::make(4000, 3);
    for (const std::uint8_t indexVersion : {std::uint8_t{1}, std::uint8_t{2}}) {
        FilePlan plan = cloud.toFile();
        cloud.addIndex(plan, indexVersion, 16);
        const json sound = report(plan, {"-check"});
        EXPECT_EQ(sound["check"], json({{"numPoints", 4000}, {"numQueries", 5}}));
        EXPECT_EQ(sound["compression"]["index"]["kind"], indexVersion == 1 ? "list" : "tree");

        // An index without the boxes of the points in the middle.
        const double west = SampleCloud::offsets[0];
        for (Bounds& box : plan.indexBoxes)
            if (box.x.meets({west + 30, west + 40}))
                box.x = {west, west};
        const json damaged = report(plan, {"-check"}, false);
        EXPECT_EQ(damaged["error"].get<std::string>().rfind("the index gives 0 of the ", 0), 0u)
            << damaged["error"];
        EXPECT_EQ(damaged["problems"], json::array({damaged["error"]}));
    }

    // A point at NaN is in no box, but counts.
    FilePlan lost;
    for (const char* name : {"X", "Y", "Z"})
        lost.channels.push_back(Testing::deflatedChannel(name, FLOAT64, {1, 2, 3, 4, 5}));
    lost.channels[1].reals[3] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(report(lost, {"-check"})["check"]["numPoints"], 5);
}

TEST_F(Vxinfo, ChecksThatPointsLieWithinTheBounds)
{
    const SampleCloud cloud = SampleCloud::make(300, 3);
    Bytes bytes = buildFile(cloud.toFile());
    const auto largest = *std::max_element(cloud.steps[0].begin(), cloud.steps[0].end());
    ASSERT_EQ(loadBigEndian<std::int64_t>(&bytes[firstMaximum]), largest);
    storeBigEndian(&bytes[firstMaximum], largest - 40);
    const std::string file = write("narrow.vxl", bytes);
    const auto isOutside = [largest](std::int64_t step) { return step > largest - 40; };
    const auto first = std::find_if(cloud.steps[0].begin(), cloud.steps[0].end(), isOutside);
    const std::string expected =
        std::to_string(std::count_if(cloud.steps[0].begin(), cloud.steps[0].end(), isOutside)) +
        " points lie outside the stated bounds, the first is point " +
        std::to_string(first - cloud.steps[0].begin()) + " (";
    const json damaged = report(file, {"-check"}, false);
    EXPECT_EQ(damaged["error"].get<std::string>().rfind(expected, 0), 0u) << damaged["error"] << expected;
    EXPECT_EQ(damaged["numPoints"], 300);

    const Result text = run({"-check", file});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(text.errors.rfind("Error: " + file + ": " + expected, 0), 0u) << text.errors;
    EXPECT_NE(text.output.find("Check:\n   300 points and 5 boxes looked at, 1 problems\n"),
              std::string::npos);
}

TEST_F(Vxinfo, ContinuesAfterDamagedFiles)
{
    std::string bytes = Testing::readFile(example);
    write("good.vxl", bytes);
    write("cut.vxl", bytes.substr(0, bytes.size() / 2));
    const std::string list = write("all.list", std::string("cut.vxl\nnone.vxl\ngood.vxl"));
    const Result result = run({list, "null", "-json", directory / "good.vxl"});
    EXPECT_EQ(result.status, 1);
    const std::string none = directory / "none.vxl";
    EXPECT_EQ(result.errors, "Error: " + (directory / "cut.vxl") + ": bad read -- chunk id\nError: " + none +
                                 ": No such file or directory path = " + none +
                                 "\nError: null: unsupported input file format 'null'\n");
    const json files = json::parse(result.output);
    ASSERT_EQ(files.size(), 5u);
    EXPECT_EQ(files[0], json({{"file", directory / "cut.vxl"},
                              {"sound", false},
                              {"error", "bad read -- chunk id"},
                              {"problems", {"bad read -- chunk id"}}}));
    EXPECT_EQ(files[1]["error"], "No such file or directory path = " + none);
    EXPECT_EQ(files[3]["file"], "null");
    EXPECT_EQ(files[2]["numPoints"], 2400);
    EXPECT_EQ(files[4]["numPoints"], 2400);

    const Result verbose = run({"-V", directory / "cut.vxl"});
    EXPECT_NE(verbose.errors.find(": bad read -- chunk id (error 40201, read in ChunkHeader.cpp:"),
              std::string::npos)
        << verbose.errors;
    EXPECT_EQ(verbose.output, "");
}

TEST_F(Vxinfo, ReportsDamageThatOnlyDecodingFinds)
{
    Bytes bytes = buildFile(SampleCloud::make(2000, 1).toFile());
    std::size_t at = 28; // the first band
    while (bytes[at + 3] != CHUNK_SUBBAND)
        at += 12 + loadBigEndian<std::uint64_t>(&bytes[at + 4]);
    const auto length = loadBigEndian<std::int64_t>(&bytes[at + 4]);
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at) + 33, length - 21, std::uint8_t{0xFF});
    const std::string file = write("damaged.vxl", bytes);
    report(file);
    const json damaged = report(file, {"-check", "-stats"}, false);
    EXPECT_EQ(damaged["error"].get<std::string>().rfind("bad read -- subblock ", 0), 0u) << damaged["error"];
    EXPECT_EQ(damaged["channels"].size(), 8u) << "the description is kept";
    EXPECT_FALSE(damaged.contains("statistics"));
}

TEST_F(Vxinfo, WritesValidJSONForAnyContents)
{
    const double numbers[] = {1.5, std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::quiet_NaN()};
    FilePlan plan;
    for (const char* name : {"X", "Y", "Z"})
        plan.channels.push_back(Testing::quantizedChannel(name, {}, -0.0, 0.01));
    plan.metadata.add("k\xFFy\"\n", "\xC3", METADATA_STRING, "\xE2\x82", 0);
    plan.metadata.add("numbers", nullptr, METADATA_FLOAT64_ARRAY, numbers, 3);
    plan.metadata.add("blob", nullptr, METADATA_BLOB, "abc", 3);
    plan.classNames = {std::nullopt, std::string("\x80")};
    const json file = report(plan, {"-check", "-stats"});
    EXPECT_EQ(file["metadata"][0]["key"], "k\uFFFDy\"\n");
    EXPECT_EQ(file["metadata"][0]["value"], "\uFFFD");
    EXPECT_EQ(file["metadata"][1]["value"], json({1.5, nullptr, nullptr}));
    EXPECT_EQ(file["metadata"][2], json({{"key", "blob"},
                                         {"description", nullptr},
                                         {"type", "blob"},
                                         {"length", 3},
                                         {"value", nullptr}}));
    EXPECT_EQ(file["classNames"], json({nullptr, "\uFFFD"}));
    // No points: no bounds, no ranges, no means.
    EXPECT_EQ(file["numPoints"], 0);
    EXPECT_EQ(file["bounds"], json());
    EXPECT_EQ(file["wkt"], json());
    EXPECT_EQ(file["compression"]["records"][0]["min"], json());
    EXPECT_EQ(file["statistics"][0]["mean"], json());
    EXPECT_EQ(file["offset"].dump(), "[0.0,0.0,0.0]") << "not -0";
    EXPECT_EQ(file["compression"]["records"][0]["offset"].dump(), "0.0");
    const std::string text = run({"built.vxl"}).output;
    for (const char* line :
         {"   Point Density:     0.000000 points", "   Offset:            0.000000 0.000000 0.000000\n"})
        EXPECT_NE(text.find(line), std::string::npos) << text;
    // As it is packed, a channel without samples has the range of one zero.
    Program(VXPACK, directory, {"-i", example, "-o", "none.vxl", "-c", "0", "1", "0", "1", "0", "1"}).wait();
    EXPECT_EQ(report(directory / "none.vxl")["bounds"], json());
}

TEST_F(Vxinfo, ReadsTextWithItsColumnsGiven)
{
    const std::string text = write("a.xyz", std::string("x y z c\n1 2 3 4\n5 6 7 8\n"));
    EXPECT_EQ(report(text, {}, false)["error"],
              "TXT file requires a format parse string '-parse': '" + text + "'");
    const json file = report(text, {"-parse", "xyzc", "-skip", "1", "-check", "-stats"});
    EXPECT_EQ(file["type"], "Text LiDAR File");
    EXPECT_EQ(file["numPoints"], 2);
    EXPECT_EQ(file["bounds"]["max"], json({5, 6, 7}));
    EXPECT_EQ(file["scale"], json());
    EXPECT_EQ(file["statistics"][3]["counts"], json({{"4", 1}, {"8", 1}}));
    EXPECT_EQ(file["check"]["numQueries"], 0) << "no index to compare with";
    EXPECT_FALSE(file.contains("compression"));
}

TEST_F(Vxinfo, NeedsAName)
{
    const Result result = run({"-json"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "vxinfo usage error: required inputFile argument(s) not present\n"
                             "Use -h or -help for list of options.\n\n");
    EXPECT_EQ(run({"-i", example, "-i", example}).status, 0);
}

} // namespace
} // namespace Quillmoran
