// Runs of the program: formats of its outputs, and the summary of verbose runs.
#include "apps/AppTest.h"
#include "support/LASFile.h"
#include "support/SampleCloud.h"

namespace Quillmoran::Testing { namespace {

using Vxunpack = AppTest;

TEST_F(Vxunpack, WritesLASAndLAZ)
{
    const struct
    {
        std::string options, name;
        int version;
        bool isCompressed;
        std::array<double, 3> scale = {0.01, 0.01, 0.01}, offset = {500000, 4100000, 100};
        std::uint32_t count = 2400;
    } cases[] = {
        {"", "out.las", 12, false},
        {"", "out.LAZ", 12, true},
        {"-of LAS11", "out.dat", 11, false},
        {"-of las10", "out.laz", 10, true},
        {"-of LAZ", "out.dat", 0, true},
        {"-of Las12 -ofld xyz", "null", 12, false},
        // The offset is the lower corner.
        {"-sc 1 2 4 -s 2", "s.las", 12, false, {1, 2, 4}, {499999.94, 4099999.94, 120.75}, 1200},
        {"-ofs 1 2 3", "s.las", 12, false, {0.01, 0.01, 0.01}, {1, 2, 3}},
        {"-sc 1 2 4 -ofs 7 8 9", "s.las", 12, false, {1, 2, 4}, {7, 8, 9}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options + ' ' + c.name);
        const std::string count = std::to_string(c.count);
        expectContains(succeed("vxunpack -i survey.vxl -o " + c.name + ' ' + c.options),
                       {"\r100.00% (writing LAS file)\n" + count + " points written\n"});
        const LASFile file = LASFile::load(directory / c.name);
        EXPECT_EQ(10 * file.versionMajor + file.versionMinor, c.version);
        EXPECT_EQ(file.compressed, c.isCompressed);
        EXPECT_EQ(file.legacyCount, c.count);
        EXPECT_EQ(file.scale, c.scale);
        EXPECT_EQ(file.offset, c.offset);
    }
    std::filesystem::remove(directory / "null");
    expectContains(succeed("vxunpack -i survey.vxl -o NULL"), {"\n2400 points written\n"});
    EXPECT_FALSE(exists("NULL"));
}

// A verbose run ends by looking up an undeclared option; scripts rely on the status.
TEST_F(Vxunpack, EndsAVerboseRunWithTheOutputComplete)
{
    const std::string expected = decode("survey.vxl");
    const Result result = run("vxunpack -V -i survey.vxl -o out.txt");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "vxunpack QMCmdLine configuration error: switch name -parse invalid\n");
    EXPECT_EQ(readFile(directory / "out.txt"), expected);
    expectContains(result.output,
                   {"Basic LiDAR Info:\n   Filename:          survey.vxl\n", "\n2400 points written\n"});
}

TEST_F(Vxunpack, ComparesThePointCountThatWasPacked)
{
    const SampleCloud cloud = SampleCloud::make(70, 1);
    const auto summary = [&](MetadataDataType type, const void* value, std::size_t length) {
        FilePlan plan = cloud.toFile();
        plan.metadata.add("PreCompressionPointCount", nullptr, type, value, length);
        writeFile(directory / "survey.vxl", buildFile(plan));
        const std::string text = run("vxunpack -V -i survey.vxl -o null").output;
        const std::size_t at = text.find("count check:  ") + 14;
        return text.substr(at, text.find('\n', at) - at);
    };
    const std::string none = "not present / indeterminate", same = "lossless (70)";
    for (const auto& [text, verdict] :
         {std::pair("70", same), {"-71", "lossy (-71, 70)"}, {"70 ", none}, {"+70", none}, {"", none}})
        EXPECT_EQ(summary(METADATA_STRING, text, 1), verdict) << text;
    const double largest = 9223372036854774784.0; // below 2^63
    for (const auto& [number, verdict] : {std::pair(70.0, same),
                                          {70.5, none},
                                          {-1e19, none},
                                          {std::nan(""), none},
                                          {largest, "lossy (9223372036854774784, 70)"},
                                          {largest + 1024, none}})
        EXPECT_EQ(summary(METADATA_FLOAT64_ARRAY, &number, 1), verdict) << number;
    EXPECT_EQ(summary(METADATA_FLOAT64_ARRAY, "", 0), none);
    EXPECT_EQ(summary(METADATA_BLOB, "F", 1), none);
}

}} // namespace Quillmoran::Testing
