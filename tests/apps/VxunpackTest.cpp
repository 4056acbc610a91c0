// Runs of the program.
#include "support/ExampleSurvey.h"
#include "support/LASFile.h"
#include "support/Program.h"
#include "support/SampleCloud.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::Program;
using Testing::readFile;
using Testing::Result;
using Testing::SampleCloud;
using Testing::TemporaryDirectory;
using Testing::writeFile;

class Vxunpack : public testing::Test
{
protected:
    Vxunpack() { writeFile(input, Testing::buildExampleSurvey()); }

    Result run(const std::vector<std::string>& arguments)
    {
        return Program(VXUNPACK, directory, arguments).wait();
    }
    // Decodes the example and returns the text.
    std::string decode(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"-i", input, "-o", output});
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        return readFile(output);
    }
    static std::size_t countLines(const std::string& text)
    {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }
    bool exists(const std::string& path) const { return std::filesystem::exists(path); }

    TemporaryDirectory directory;
    std::string input = directory / "in.vxl";
    std::string output = directory / "out.txt";
};

TEST_F(Vxunpack, DecodesTheExampleOfTheRepository)
{
    EXPECT_EQ(readFile(EXAMPLES "/survey.vxl"), readFile(input)) << "make_survey writes other bytes";
    const Result result = run({"-i", input, "-o", output});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_NE(result.output.find("\r100.00% (writing text file)\n2400 points written\n"), std::string::npos);
    const std::string text = readFile(output);
    EXPECT_EQ(countLines(text), 2401u);
    EXPECT_EQ(text.substr(0, text.find('\n', text.find('\n') + 1)),
              "# X Y Z Intensity ReturnNum NumReturns ScanDir EdgeFlightLine ClassId ScanAngle SourceId "
              "GPSTime Red "
              "Green Blue\n"
              "500000.030 4100008.980 124.510 159 1 1 1 1 2 10 101 245380 122 119 87");
}

TEST_F(Vxunpack, WritesTheSameBytesForAnyThreadsAndBlocks)
{
    const std::string expected = decode({"-j", "1"});
    for (const std::vector<std::string>& options :
         std::initializer_list<std::vector<std::string>>{{"-j", "2"},
                                                         {"-j", "7", "-cs", "1"},
                                                         {"-cs", "999"},
                                                         {"-numThreads", "0"},
                                                         {"-chunckSize", "5000000"}})
        EXPECT_EQ(decode(options), expected) << options[0] << " " << options[1];
}

TEST_F(Vxunpack, SelectsFieldsBoxAndFraction)
{
    EXPECT_EQ(decode({"-ofld", "zyxRtx"}).substr(0, 72),
              "# Z Y X Red GPSTime X\n124.510 4100008.980 500000.030 122 245380 500000.0");
    EXPECT_EQ(countLines(decode({"-s", "4"})), 601u);
    EXPECT_EQ(countLines(decode({"-s", "0.5"})), 2401u);
    EXPECT_EQ(countLines(decode({"-s", "-2"})), 1u);
    const std::string boxed = decode({"-c", "500020", "500030", "-inf", "+inf", "-inf", "inf"});
    EXPECT_GT(countLines(boxed), 100u);
    EXPECT_LT(countLines(boxed), 300u);
    EXPECT_EQ(countLines(decode({"-c", "0", "1", "0", "1", "0", "1"})), 1u);
}

TEST_F(Vxunpack, WritesLASAndLAZ)
{
    struct
    {
        std::vector<std::string> options;
        std::string name;
        int version;
        bool compressed;
    } const cases[] = {
        {{}, "out.las", 12, false},
        {{}, "out.LAZ", 12, true},
        {{"-of", "LAS11"}, "out.dat", 11, false},
        {{"-of", "las10"}, "out.laz", 10, true},
        {{"-of", "LAZ"}, "out.dat", 0, true},
        {{"-of", "Las12", "-ofld", "xyz"}, "null", 12, false},
    };
    for (const auto& c : cases) {
        const std::string path = directory / c.name;
        std::vector<std::string> arguments = {"-i", input, "-o", path};
        arguments.insert(arguments.end(), c.options.begin(), c.options.end());
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_NE(result.output.find("\r100.00% (writing LAS file)\n2400 points written\n"),
                  std::string::npos);
        const Testing::LASFile file = Testing::LASFile::load(path);
        EXPECT_EQ(10 * file.versionMajor + file.versionMinor, c.version) << c.name;
        EXPECT_EQ(file.compressed, c.compressed) << c.name;
        EXPECT_EQ(file.legacyCount, 2400u);
        EXPECT_EQ(file.scale[0], 0.01);
        EXPECT_EQ(file.offset[1], 4100000.0);
    }
    const Result scaled = run({"-i", input, "-o", directory / "s.las", "-sc", "1", "2", "4", "-s", "2"});
    EXPECT_EQ(scaled.status, 0) << scaled.errors;
    const Testing::LASFile file = Testing::LASFile::load(directory / "s.las");
    EXPECT_EQ(file.scale, (std::array<double, 3>{1, 2, 4}));
    EXPECT_EQ(file.offset[0], 499999.94) << "the lower corner";
    EXPECT_EQ(file.legacyCount, 1200u);
}

TEST_F(Vxunpack, WritesNothingToNull)
{
    const Result result = run({"-i", input, "-o", "null"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.output.find("\n2400 points written\n"), std::string::npos);
    EXPECT_FALSE(exists(directory / "null"));
}

TEST_F(Vxunpack, WritesBPFWhereItsModuleIs)
{
    const std::string path = directory / "out.Bpf";
    writeFile(path, std::string("precious"));
    for (const std::vector<std::string>& format : {std::vector<std::string>{}, {"-of", "BPF"}}) {
        std::vector<std::string> arguments = {"-i", input, "-o", path};
        arguments.insert(arguments.end(), format.begin(), format.end());
        const Result result = run(arguments);
        if (HAS_PDAL) {
            EXPECT_EQ(result.status, 0) << result.errors;
            EXPECT_NE(result.output.find("(writing BPF file)\n2400 points written\n"), std::string::npos);
            EXPECT_EQ(readFile(path).substr(0, 8), "BPF!0003");
        } else {
            EXPECT_EQ(result.status, 1);
            EXPECT_EQ(result.errors, "Error: this installation cannot read or write BPF files: its PDAL "
                                     "module is not there\n");
            EXPECT_EQ(readFile(path), "precious");
        }
    }
}

TEST_F(Vxunpack, ExplainsWhatItCannotDo)
{
    const std::string text = directory / "x.xyz", missing = directory / "none.vxl";
    struct Case
    {
        std::vector<std::string> arguments;
        std::string error;
    };
    const Case cases[] = {
        {{"-i", text, "-o", output}, "unsupported input file format '" + text + "'"},
        {{"-i", missing, "-o", output}, "No such file or directory path = " + missing},
        {{"-i", input, "-o", output, "-of", "PLY"}, "unsupported output format 'PLY'"},
        {{"-i", input, "-o", directory / "o.vxl"}, "unknown output format"},
        {{"-i", input, "-o", directory / "o.list"}, "unknown output format"},
        {{"-i", input, "-o", directory / "none/o.las"},
         "Unable to create output " + (directory / "none/o.las") +
             ". No such file or directory path = " + (directory / "none/o.las")},
        {{"-i", input, "-o", ""}, "the name of the output file is empty"},
        {{"-i", input, "-o", "", "-of", "laz"}, "the name of the output file is empty"},
        {{"-i", "", "-o", output}, "unsupported input file format ''"},
        {{"-i", input, "-o", output, "-of", "laz", "-sc", "0.01", "nan", "0.01"},
         "the scale nan of Y cannot be used"},
        {{"-i", input, "-o", input, "-of", "las10"}, "the output '" + input + "' is the input file"},
        {{"-i", input, "-o", input, "-of", "txt"}, "the output '" + input + "' is the input file"},
        {{"-i", input, "-o", output, "-ofld", "xyzQ"}, "'Q' is not a supported format token"},
        {{"-i", input, "-o", output, "-ofld", "xyzT"},
         "'GPSTime_Adjusted' is not in the input channel mapping"},
        {{"-i", input, "-o", output, "-ofld", "xyi"}, "must have x, y, and z channels"},
        {{"-i", input, "-o", directory / "none/out.txt"},
         "No such file or directory path = " + (directory / "none/out.txt")},
    };
    for (const Case& c : cases) {
        const Result result = run(c.arguments);
        EXPECT_EQ(result.status, 1) << c.error;
        EXPECT_EQ(result.errors, "Error: " + c.error + "\n");
        EXPECT_FALSE(exists(output)) << c.error;
    }
    EXPECT_EQ(countLines(decode({})), 2401u) << "the input was harmed";
}

TEST_F(Vxunpack, ReportsUsageErrorsOnStandardError)
{
    const Result missing = run({"-o", output});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.output, "");
    EXPECT_EQ(missing.errors, "vxunpack usage error: required switch -inputFile not present\n"
                              "Use -h or -help for list of options.\n\n");
    const Result version = run({"-version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output.substr(0, 19), "Version 1.1.4.4709.");
    EXPECT_NE(version.output.find("\nBuilt Dec 21 2017 14:39:27 (release, 64 bits)\n"), std::string::npos);
    const Result help = run({"-help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("  -s or -subsample FLOAT\n"), std::string::npos);
}

// A verbose run ends by looking up an undeclared option; scripts rely on the status.
TEST_F(Vxunpack, EndsAVerboseRunWithTheOutputComplete)
{
    const Result result = run({"-V", "-i", input, "-o", output});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "vxunpack QMCmdLine configuration error: switch name -parse invalid\n");
    EXPECT_EQ(countLines(readFile(output)), 2401u);
    for (const char* line :
         {"Basic LiDAR Info:\n   Filename:          ", "   Format:            VX7 4.0.0.4\n",
          "   Number of Points:  2400\n   Bounds Min:        499999.940000 4099999.940000 120.750000\n",
          "   Scale:             0.01 0.01 0.01\n   Offset:            500000.000000 4100000.000000 "
          "100.000000\n",
          "   Pre-compression point count check:  lossless (2400)\n   Supported Fields:  'X' 'Y' 'Z' "
          "'Intensity'",
          "   Spatial Reference: PROJCS[\"WGS 84 / UTM zone 13N\",\n    GEOGCS[\"WGS 84\",\n",
          "\n2400 points written\n"})
        EXPECT_NE(result.output.find(line), std::string::npos) << line << "in\n" << result.output;
}

TEST_F(Vxunpack, ComparesThePointCountThatWasPacked)
{
    const SampleCloud cloud = SampleCloud::make(70, 1);
    const double whole = 71, broken = 70.5;
    const auto summary = [&](MetadataDataType type, const void* value) {
        Testing::FilePlan plan = cloud.toFile();
        plan.metadata.add("PreCompressionPointCount", nullptr, type, value, 1);
        writeFile(input, buildFile(plan));
        const std::string text = run({"-V", "-i", input, "-o", "null"}).output;
        const std::size_t at = text.find("count check:  ") + 14;
        return text.substr(at, text.find('\n', at) - at);
    };
    EXPECT_EQ(summary(METADATA_STRING, "70"), "lossless (70)");
    EXPECT_EQ(summary(METADATA_FLOAT64_ARRAY, &whole), "lossy (71, 70)");
    for (const char* text : {"70 ", "+70", "seventy", ""})
        EXPECT_EQ(summary(METADATA_STRING, text), "not present / indeterminate") << text;
    EXPECT_EQ(summary(METADATA_FLOAT64_ARRAY, &broken), "not present / indeterminate");
    EXPECT_EQ(summary(METADATA_BLOB, "F"), "not present / indeterminate");
}

TEST_F(Vxunpack, LeavesNoPartOfAnOutputThatFailed)
{
    // Damage after the first blocks, when the writer has begun.
    const SampleCloud cloud = SampleCloud::make(60000, 1);
    Testing::FilePlan plan = cloud.toFile();
    plan.channels.resize(3);
    Testing::Bytes bytes = buildFile(plan);
    const auto chunkAt = [&](std::size_t at) { return bytes[at + 3]; };
    std::size_t at = 28, last = 0; // the last band of Z, whose headers end in zeros
    while (chunkAt(at) != 5) {
        last = at;
        std::size_t length = 0;
        for (int i = 4; i < 12; ++i)
            length = length << 8 | bytes[at + static_cast<std::size_t>(i)];
        at += 12 + length;
    }
    ASSERT_NE(last, 0u);
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(at) - 40,
              bytes.begin() + static_cast<std::ptrdiff_t>(at), std::uint8_t{0xFF});
    const std::string damaged = directory / "damaged.vxl";
    writeFile(damaged, bytes);
    const Result result = run({"-i", damaged, "-o", output, "-cs", "100"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors.rfind("Error: bad read -- subblock ", 0), 0u) << result.errors;
    EXPECT_NE(result.output.find("writing text file"), std::string::npos) << "the writer had not begun";
    EXPECT_FALSE(exists(output));

    // A run that fails before writing keeps an existing file.
    writeFile(output, std::string("precious"));
    bytes.resize(500);
    writeFile(damaged, bytes);
    EXPECT_EQ(run({"-i", damaged, "-o", output}).status, 1);
    EXPECT_EQ(readFile(output), "precious");
}

TEST_F(Vxunpack, StopsAtASignalAndRemovesItsOutput)
{
    const SampleCloud cloud = SampleCloud::make(400000, 1);
    const std::string big = directory / "big.vxl";
    writeFile(big, buildFile(cloud.toFile()));
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        // Each kind of writer once.
        output = directory / (number == SIGINT ? "out.txt" : number == SIGTERM ? "out.las" : "out.laz");
        Program program(VXUNPACK, directory, {"-i", big, "-o", output, "-cs", "200", "-j", "1"});
        program.interrupt("writing", number);
        EXPECT_FALSE(exists(output));
    }
}

} // namespace
} // namespace Quillmoran
