// Runs of the program: formats of its outputs, and the summary of verbose runs.
#include "apps/AppTest.h"
#include "support/ExampleSurvey.h"
#include "support/LASFile.h"
#include "support/SampleCloud.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

class Vxunpack : public AppTest
{
protected:
    Vxunpack() { writeFile(directory / "in.vxl", buildExampleSurvey()); }
};

TEST_F(Vxunpack, WritesLASAndLAZ)
{
    const struct
    {
        std::string options, name;
        int version;
        bool isCompressed;
        std::array<double, 3> scale, offset;
        std::uint32_t count;
    } cases[] = {
        {"", "out.las", 12, false, {0.01, 0.01, 0.01}, {500000, 4100000, 100}, 2400},
        {"", "out.LAZ", 12, true, {0.01, 0.01, 0.01}, {500000, 4100000, 100}, 2400},
        {"-of LAS11", "out.dat", 11, false, {0.01, 0.01, 0.01}, {500000, 4100000, 100}, 2400},
        {"-of las10", "out.laz", 10, true, {0.01, 0.01, 0.01}, {500000, 4100000, 100}, 2400},
        {"-of LAZ", "out.dat", 0, true, {0.01, 0.01, 0.01}, {500000, 4100000, 100}, 2400},
        {"-of Las12 -ofld xyz", "null", 12, false, {0.01, 0.01, 0.01}, {500000, 4100000, 100}, 2400},
        {"-sc 1 2 4 -s 2",
         "s.las",
         12,
         false,
         {1, 2, 4},
         {499999.94, 4099999.94, 120.75},
         1200}, // the lower corner
        {"-ofs 1 2 3", "s.las", 12, false, {0.01, 0.01, 0.01}, {1, 2, 3}, 2400},
        {"-sc 1 2 4 -ofs 7 8 9", "s.las", 12, false, {1, 2, 4}, {7, 8, 9}, 2400},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options + ' ' + c.name);
        const std::string count = std::to_string(c.count);
        expectContains(succeed("vxunpack -i in.vxl -o " + c.name + ' ' + c.options),
                       {"\r100.00% (writing LAS file)\n" + count + " points written\n"});
        const LASFile file = LASFile::load(directory / c.name);
        EXPECT_EQ(10 * file.versionMajor + file.versionMinor, c.version);
        EXPECT_EQ(file.compressed, c.isCompressed);
        EXPECT_EQ(file.legacyCount, c.count);
        EXPECT_EQ(file.scale, c.scale);
        EXPECT_EQ(file.offset, c.offset);
    }
    std::filesystem::remove(directory / "null");
    expectContains(succeed("vxunpack -i in.vxl -o NULL"), {"\n2400 points written\n"});
    EXPECT_FALSE(exists("NULL"));
}

// A verbose run ends by looking up an undeclared option; scripts rely on the status.
TEST_F(Vxunpack, EndsAVerboseRunWithTheOutputComplete)
{
    const std::string expected = decode("in.vxl");
    const Result result = run("vxunpack -V -i in.vxl -o out.txt");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "vxunpack QMCmdLine configuration error: switch name -parse invalid\n");
    EXPECT_EQ(readFile(directory / "out.txt"), expected);
    expectContains(result.output,
                   {"Basic LiDAR Info:\n   Filename:          in.vxl\n", "\n2400 points written\n"});
}

TEST_F(Vxunpack, ComparesThePointCountThatWasPacked)
{
    const SampleCloud cloud = SampleCloud::make(70, 1);
    const auto summary = [&](MetadataDataType type, const void* value, std::size_t length) {
        FilePlan plan = cloud.toFile();
        plan.metadata.add("PreCompressionPointCount", nullptr, type, value, length);
        writeFile(directory / "in.vxl", buildFile(plan));
        const std::string text = run("vxunpack -V -i in.vxl -o null").output;
        const std::size_t at = text.find("count check:  ") + 14;
        return text.substr(at, text.find('\n', at) - at);
    };
    const std::pair<const char*, const char*> texts[] = {{"70", "lossless (70)"}, {"-71", "lossy (-71, 70)"}};
    for (const auto& [text, verdict] : texts)
        EXPECT_EQ(summary(METADATA_STRING, text, 1), verdict);
    const double largest = 9223372036854774784.0; // below 2^63
    const std::pair<double, const char*> numbers[] = {{71, "lossy (71, 70)"},
                                                      {largest, "lossy (9223372036854774784, 70)"}};
    for (const auto& [number, verdict] : numbers)
        EXPECT_EQ(summary(METADATA_FLOAT64_ARRAY, &number, 1), verdict);
    const std::string none = "not present / indeterminate";
    for (const char* text : {"70 ", "+70", "seventy", ""})
        EXPECT_EQ(summary(METADATA_STRING, text, 1), none) << text;
    for (const double number : {70.5, 9223372036854775808.0, -1e19, std::nan("")})
        EXPECT_EQ(summary(METADATA_FLOAT64_ARRAY, &number, 1), none) << number;
    EXPECT_EQ(summary(METADATA_FLOAT64_ARRAY, "", 0), none);
    EXPECT_EQ(summary(METADATA_BLOB, "F", 1), none);
}

}} // namespace Quillmoran::Testing
