// Options that all programs share: refused arguments, names of channels, runs without output, the progress
// line.
#include "apps/ProgramTest.h"
#include "support/Errors.h"
#include "support/ExampleSurvey.h"
#include "support/LASClouds.h"
#include "support/SetOfSources.h"
#include <vxunpack/Base.h>
#include <vxunpack/VX7PointReader.h>

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::readFile;
using Testing::Result;
using Testing::writeFile;
using Strings = std::vector<std::string>;

class Options : public Testing::ProgramTest
{
protected:
    Options() { writeFile(directory / "survey.vxl", Testing::buildExampleSurvey()); }

    Strings linesOf(const std::string& file) const
    {
        succeed(VXUNPACK, "-o lines.txt -i " + file);
        std::istringstream text(readFile(directory / "lines.txt"));
        Strings lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }
};

TEST_F(Options, RefusesBadValues)
{
    const struct
    {
        const char* program;
        const char* arguments;
        const char* message;
    } cases[] = {
        {VXPACK, "-j abc", "vxpack usage error: bad value 'abc' of option -numThreads"},
        {VXPACK, "-skip abc", "vxpack usage error: bad value 'abc' of option -skipHeader"},
        {VXPACK, "-skip -1", "vxpack usage error: bad value '-1' of option -skipHeader"},
        {VXPACK, "-pe 5000000000", "vxpack usage error: bad value '5000000000' of option -pointsPerEntry"},
        {VXPACK, "-fileVersion 4294967297",
         "vxpack usage error: bad value '4294967297' of option -fileVersion"},
        {VXPACK, "-s abc", "vxpack usage error: bad value 'abc' of option -subsample"},
        {VXPACK, "-s nan", "vxpack usage error: bad value 'nan' of option -subsample"},
        {VXPACK, "-s 0", "vxpack usage error: the value of -subsample must be a number above 0"},
        {VXPACK, "-s -2", "vxpack usage error: the value of -subsample must be a number above 0"},
        {VXPACK, "-s inf", "vxpack usage error: the value of -subsample must be a number above 0"},
        {VXPACK, "-c 0 1 0 1x 0 1", "vxpack usage error: bad value '1x' of option -crop"},
        {VXPACK, "-c 0 1 0 nan 0 1", "vxpack usage error: bad value 'nan' of option -crop"},
        {VXPACK, "-c 0 1 7 5 -inf inf",
         "vxpack usage error: the box of -crop is inverted: y-min 7 is greater than y-max 5"},
        {VXPACK, "-quantize 0 0 0", "vxpack usage error: the steps of -quantize must be numbers above 0"},
        {VXPACK, "-quantize 1 inf 1", "vxpack usage error: the steps of -quantize must be numbers above 0"},
        {VXINFO, "-j 2x", "vxinfo usage error: bad value '2x' of option -numThreads"},
        {VXINDEX, "-d -1", "vxindex usage error: bad value '-1' of option -depth"},
        {VXINDEX, "-overviewFraction x", "vxindex usage error: bad value 'x' of option -overviewFraction"},
        {VXINDEX, "-overviewFraction 2",
         "vxindex usage error: the value of -overviewFraction must be above 0 and at most 1"},
    };
    for (const auto& [program, arguments, message] : cases) {
        const std::string output = program == std::string(VXPACK)    ? " -o out.vxl"
                                   : program == std::string(VXINDEX) ? " -o out.index"
                                                                     : "";
        const Result result = run(program, std::string(arguments) + output + " -i survey.vxl");
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_EQ(result.errors, std::string(message) + "\nUse -h or -help for list of options.\n\n");
        EXPECT_FALSE(exists("out.vxl")) << arguments;
        EXPECT_FALSE(exists("out.index")) << arguments;
    }
    // The parser of vxunpack is part of its interface and stays lenient.
    EXPECT_EQ(succeed(VXUNPACK, "-i survey.vxl -o null -j 2x -c 7 5 0 1x 0 1").errors, "");
}

TEST_F(Options, AcceptsOtherNamesOfChannels)
{
    // Whether columns 8 (class) and 4 (return) have these values.
    const auto isWanted = [](const std::string& line, const char* wantedClass, const char* wantedReturn) {
        std::istringstream words(line);
        const Strings values{std::istream_iterator<std::string>(words), {}};
        return line[0] == '#' || (values[8] == wantedClass && values[4] == wantedReturn);
    };
    Strings expected = linesOf("survey.vxl");
    expected.erase(std::remove_if(expected.begin(), expected.end(),
                                  [&](const std::string& line) { return !isWanted(line, "2", "1"); }),
                   expected.end());
    ASSERT_GT(expected.size(), 10u);
    for (const char* filters : {"-filter ClassId,2,include -filter ReturnNum,1,include",
                                "-filter return_number,1,include -filter CLASSIFICATION,2,include"}) {
        EXPECT_EQ(succeed(VXPACK, std::string("-i survey.vxl -o out.vxl ") + filters).errors, "");
        EXPECT_EQ(linesOf("out.vxl"), expected) << filters;
    }
    succeed(VXPACK, "-i survey.vxl -o out.vxl -t Classification=90 -sb gps_time=100 -sb red=200");
    const std::string report = succeed(VXINFO, "out.vxl").output;
    const auto lineOf = [&](const std::string& name) {
        const std::size_t begin = report.find("\n   " + name + ' ', report.find("Compression:")) + 1;
        return report.substr(begin, report.find('\n', begin) - begin);
    };
    EXPECT_NE(lineOf("ClassId").find(" 90 ("), std::string::npos) << report;
    EXPECT_NE(lineOf("GPSTime").find(" 100 "), std::string::npos) << report;
    EXPECT_NE(lineOf("Red").find(" 200 "), std::string::npos) << report;

    const char* const channels =
        "X, Y, Z, Intensity, ReturnNum, NumReturns, ScanDir, EdgeFlightLine, ClassId, "
        "ScanAngle, SourceId, GPSTime, Red, Green, Blue";
    const std::pair<const char*, std::string> refused[] = {
        {"-filter Classification,300,include",
         "the value 300 of -filter is out of the range of channel 'ClassId' (UINT8)"},
        {"-filter ClassId,-1,exclude",
         "the value -1 of -filter is out of the range of channel 'ClassId' (UINT8)"},
        {"-filter GpsTime,3,include",
         "-filter needs a channel of integers of at most 32 bits, channel 'GPSTime' is FLOAT64"},
        {"-filter Mood,1,include",
         std::string("the point source does not have channel: 'Mood', its channels are ") + channels},
        {"-t Mood=10", std::string("the output does not have channel: 'Mood', its channels are ") + channels},
        {"-ofld xyz -sb Red=64", "the output does not have channel: 'Red', its channels are X, Y, Z"},
    };
    for (const auto& [arguments, message] : refused)
        expectError(VXPACK, std::string("-i survey.vxl -o refused.vxl ") + arguments, message);
    EXPECT_FALSE(exists("refused.vxl"));
}

TEST_F(Options, ExplainsWhyNoPointsAreWritten)
{
    writeFile(directory / "empty.las", Testing::randomLASFile(1, 2, 0, 1).build());
    writeFile(directory / "one.txt", std::string("1 2 3\n"));
    const std::string bounds =
        "is outside the bounds of the input (x 499999.94 to 500179.76, y 4099999.94 to "
        "4100039.06, z 120.75 to 166.8)";
    const struct
    {
        std::string arguments;
        std::string reason;
    } cases[] = {
        {"-i survey.vxl -c 0 1 0 1 -inf +inf", "the crop box (x 0 to 1, y 0 to 1, z -inf to inf) " + bounds},
        {"-i one.txt -p xyz -c 2 3 0 9 0 9",
         "the crop box (x 2 to 3, y 0 to 9, z 0 to 9) is outside the bounds of the input (x 1 to 1, y 2 to "
         "2, z 3 "
         "to 3)"},
        {"-i survey.vxl -c 500000.001 500000.002 -inf inf -inf inf",
         "the input has no points in the crop box (x 500000.001 to 500000.002, y -inf to inf, z -inf to "
         "inf)"},
        {"-i survey.vxl -filter ClassId,77,include", "no point passes the filter 'ClassId,77,include'"},
        {"-i survey.vxl -filter ClassId,2,include -filter ClassId,6,include",
         "no point passes all of the filters 'ClassId,2,include' and 'ClassId,6,include'"},
        {"-i empty.las", "the input has no points"},
        {"-i survey.vxl -s 1000 -c 500000.26 500000.28 -inf +inf -inf +inf",
         "subsampling skipped all points in the crop box (x 500000.26 to 500000.28, y -inf to inf, z -inf to "
         "inf)"},
    };
    for (const auto& [arguments, reason] : cases) {
        const Result result = run(VXPACK, arguments + " -o out.vxl");
        EXPECT_EQ(result.status, 0) << arguments;
        EXPECT_NE(result.output.find("\n0 points written"), std::string::npos) << result.output;
        EXPECT_EQ(result.errors, "Warning: no points were written to 'out.vxl': " + reason + '\n')
            << arguments;
    }
    EXPECT_EQ(succeed(VXINDEX, "-o e.index empty.las").errors,
              "Warning: 'e.index': none of the files has points\n");
}

// A file that can be opened, but not decoded.
Testing::Bytes damagedSurvey(const std::string& path)
{
    Testing::Bytes whole = Testing::buildExampleSurvey();
    for (std::size_t at = 1000; at + 16 < whole.size(); at += 50) {
        Testing::Bytes damaged = whole;
        std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(at), 16, std::uint8_t{0xFF});
        writeFile(path, damaged);
        const Scoped<VX7PointReader> reader(VX7PointReader::create());
        try {
            reader->init(path.c_str());
        } catch (const Error&) {
            continue;
        }
        if (Testing::failureOf([&] { Testing::readRows(*reader, reader->getPointInfo()); }) != "no error")
            return damaged;
    }
    ADD_FAILURE() << "no damage was found";
    return whole;
}

TEST_F(Options, ErrorsNameTheFileAmongMany)
{
    std::filesystem::create_directory(directory / "tiles");
    for (const char* name : {"a", "b", "c"})
        writeFile(directory / ("tiles/" + std::string(name) + ".vxl"), Testing::buildExampleSurvey());
    directory.file("all.list", "tiles/a.vxl\ntiles/note.txt\n");
    succeed(VXINDEX, "-o tiles.index tiles");
    const std::string bad = directory / "tiles/b.vxl";
    writeFile(bad, damagedSurvey(bad));
    const struct
    {
        const char* program;
        const char* arguments;
        const char* file;
    } cases[] = {
        {VXPACK, "-o out.vxl -i tiles", "tiles/b.vxl"},
        {VXPACK, "-o out.vxl -i tiles/b.vxl", "tiles/b.vxl"},
        {VXPACK, "-o out.vxl -i tiles.index -order hilbert", "tiles/b.vxl"},
        {VXPACK, "-o out.vxl -i survey.vxl -i tiles.index -filter ClassId,2,include", "tiles/b.vxl"},
        {VXPACK, "-o out.vxl -i all.list", "tiles/note.txt"},
        {VXINDEX, "-o out.index all.list", "tiles/note.txt"},
        {VXINDEX, "-o tiles.index -u -overview o.las -createOverview -overviewFraction 1", "tiles/b.vxl"},
        {VXINFO, "-stats tiles.index", "tiles/b.vxl"},
    };
    for (const auto& [program, arguments, file] : cases) {
        const Result result = run(program, arguments);
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
        const std::string end = std::string(file) + '\n';
        const std::size_t path = result.errors.find(" path = ");
        ASSERT_NE(path, std::string::npos) << arguments << result.errors;
        EXPECT_EQ(result.errors.find(" path = ", path + 1), std::string::npos) << result.errors;
        EXPECT_EQ(result.errors.substr(result.errors.size() - end.size()), end) << result.errors;
    }
}

TEST_F(Options, WaveformsAreDroppedOnRequest)
{
    std::filesystem::create_directory(directory / "tiles");
    writeFile(directory / "tiles/plain.las", Testing::randomLASFile(1, 4, 100, 3).build());
    const std::string refusal =
        "Input LAS/LAZ file contains waveform data.  This is not currently supported.  -dropWaveforms reads "
        "its points without them. path = ";
    const std::string warning = "Warning: the waveform packets of 'tiles/wave.las' are dropped\n";
    for (const int format : {4, 5, 9, 10}) {
        Testing::LASFile file = Testing::randomLASFile(format, 4, 500, static_cast<unsigned>(format));
        file.records = {{"LASF_Spec", 100, "a waveform", Testing::LASBytes(26)}, {"Owner", 9, "", {1}}};
        writeFile(directory / "tiles/wave.las", file.build());
        for (const char* program : {VXPACK, VXINDEX})
            EXPECT_EQ(run(program, std::string("-i tiles -o out.") +
                                       (program == std::string(VXPACK) ? "vxl" : "index"))
                          .errors,
                      "Error: " + refusal + "tiles/wave.las\n");

        EXPECT_EQ(succeed(VXPACK, "-dropWaveforms -i tiles/wave.las -o wave.vxl").errors, warning);
        succeed(VXUNPACK, "-i wave.vxl -o wave.las");
        EXPECT_TRUE(Testing::LASFile::load(directory / "wave.las").points == file.points) << format;
        const std::string packed = succeed(VXINFO, "wave.vxl").output;
        EXPECT_EQ(packed.find("LASF_Spec::100"), std::string::npos);
        EXPECT_NE(packed.find("Owner::9"), std::string::npos);

        const Result indexed =
            succeed(VXINDEX, "-dropWaveforms -o tiles.index tiles -overview o.las -createOverview");
        EXPECT_EQ(indexed.errors.find(warning), 0u) << indexed.errors;
        EXPECT_EQ(indexed.errors.find(warning, 1), std::string::npos) << indexed.errors;
        const std::string unread = run(VXPACK, "-i tiles.index -o out.vxl").errors;
        EXPECT_NE(unread.find(refusal), std::string::npos) << unread;
        EXPECT_NE(unread.find("tiles/wave.las\n"), std::string::npos) << unread;
        EXPECT_NE(
            succeed(VXPACK, "-dropWaveforms -i tiles.index -o out.vxl").output.find("\n600 points written"),
            std::string::npos);

        EXPECT_NE(
            succeed(VXINFO, "-check tiles/wave.las").output.find("   Waveform Packets:  yes, not decoded\n"),
            std::string::npos);
        EXPECT_NE(succeed(VXINFO, "-json tiles/wave.las").output.find("\"hasWaveforms\": true"),
                  std::string::npos);
        EXPECT_NE(succeed(VXINFO, "-json tiles/plain.las").output.find("\"hasWaveforms\": false"),
                  std::string::npos);
        succeed(VXINFO, "-check tiles.index");
    }
}

// The percentages of all frames of the progress line.
std::vector<double> framesOf(const std::string& output)
{
    std::vector<double> frames;
    for (std::size_t at = output.find('\r'); at != std::string::npos; at = output.find('\r', at + 1)) {
        double percent = 0;
        char bracket = 0;
        EXPECT_EQ(std::sscanf(output.c_str() + at, "\r%lf%% %c", &percent, &bracket), 2)
            << output.substr(at, 40);
        frames.push_back(percent);
    }
    return frames;
}

TEST_F(Options, ProgressEndsAtOneHundredPercent)
{
    std::filesystem::create_directory(directory / "tiles");
    writeFile(directory / "tiles/a.las", Testing::randomLASFile(1, 2, 30000, 5).build());
    writeFile(directory / "tiles/b.las", Testing::randomLASFile(1, 2, 20000, 6).build());
    writeFile(directory / "tiles/c.las", Testing::randomLASFile(1, 2, 5, 7).build());
    // Most points are in a corner of the bounds, so that estimates of points in a box are bad.
    Testing::LASFile corner = Testing::randomLASFile(1, 2, 50000, 8);
    for (std::size_t i = 0; i < corner.points.size(); ++i) {
        corner.points[i].x = static_cast<std::int32_t>(i % 1000 == 0 ? i : i / 100);
        corner.points[i].y = corner.points[i].x;
    }
    corner.describePoints();
    writeFile(directory / "corner.las", corner.build());
    // The first lines are longer or shorter than the others, so that estimates of their number are bad.
    for (const bool startsLong : {true, false}) {
        std::string text;
        for (int i = 0; i < 60000; ++i)
            text += ((i < 100) == startsLong ? "100000.123456 200000.123456 " : "1 2 ") + std::to_string(i) +
                    '\n';
        writeFile(directory / (startsLong ? "long.xyz" : "short.xyz"), text);
    }
    succeed(VXPACK, "-i corner.las -o corner.vxl -pe 1000");
    succeed(VXINDEX, "-o tiles.index tiles");

    const std::string box = " -c 995 1010 -2100 -1990 -inf +inf";
    const std::pair<const char*, std::string> cases[] = {
        {VXUNPACK, "-i corner.vxl -o out.txt"},
        {VXUNPACK, "-i corner.vxl -o out.txt" + box},
        {VXUNPACK, "-i corner.vxl -o out.laz -s 3" + box},
        {VXUNPACK, "-i corner.vxl -o null" + box},
        {VXPACK, "-i corner.las -o out.vxl" + box},
        {VXPACK, "-i corner.vxl -o out.vxl -order hilbert" + box},
        {VXPACK, "-i tiles -o out.vxl -s 3" + box},
        {VXPACK, "-i tiles.index -o out.vxl -order hilbert -s 2"},
        {VXPACK, "-i corner.vxl -o out.vxl -filter ReturnNum,3,include"},
        {VXPACK, "-i long.xyz -o out.vxl -p xyz"},
        {VXPACK, "-i short.xyz -o out.vxl -p xyz"},
        {VXPACK, "-i long.xyz -i short.xyz -o out.vxl -p xyz -order hilbert"},
        {VXINFO, "-check -stats corner.vxl"},
        {VXINFO, "-stats short.xyz -p xyz"},
        {VXINFO, "-check tiles.index"},
        {VXINDEX, "-o again.index tiles"},
        {VXINDEX, "-o again.index long.xyz short.xyz -p xyz"},
    };
    for (const auto& [program, arguments] : cases) {
        const Result result = succeed(program, arguments);
        const std::vector<double> frames = framesOf(result.output);
        ASSERT_FALSE(frames.empty()) << arguments;
        EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end())) << arguments;
        EXPECT_EQ(frames.back(), 100.0) << arguments;
        EXPECT_EQ(std::count(frames.begin(), frames.end(), 100.0), 1) << arguments;
        EXPECT_EQ(result.output.find('%', result.output.find("100.00%") + 7), std::string::npos) << arguments;
    }
    // A failed run never shows it. The last line of this file is not a point.
    writeFile(directory / "bad.xyz", readFile(directory / "long.xyz") + "x y z\n");
    const Result failed = run(VXPACK, "-i bad.xyz -o out.vxl -p xyz");
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.output.find("100.00%"), std::string::npos) << failed.output;
}

} // namespace
} // namespace Quillmoran
