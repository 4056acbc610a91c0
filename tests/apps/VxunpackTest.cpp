// Runs of the program: formats of its outputs, and the summary of verbose runs.
#include "apps/AppTest.h"
#include "support/LASFile.h"
#include "support/SampleCloud.h"
#include "support/VX7Chunks.h"

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

TEST_F(Vxunpack, FailsOnDamagedPointsUnlessToldOtherwise)
{
    Bytes bytes = buildExampleSurvey();
    const VX7Chunks chunks = VX7Chunks::parse(bytes);
    constexpr std::size_t channel = 3, finest = 5, levels = 6;
    bytes[VX7Chunks(chunks).find(CHUNK_SUBBAND, channel * levels + finest)->position + 100] ^= 1;
    writeFile(directory / "damaged.vxl", bytes);
    const std::string error = "channel Intensity, points 0 to 2399: digest differs path = damaged.vxl";
    for (const char* output : {"out.txt", "out.las", "null"})
        expectError(std::string("vxunpack -i damaged.vxl -o ") + output,
                    error + "  -noVerify ignores the digests.");
    EXPECT_FALSE(exists("out.txt") || exists("out.las"));
    EXPECT_NE(decode("damaged.vxl -noVerify"), decode("survey.vxl"));
    // All programs that read the file, also as one of several.
    expectError("vxpack -i damaged.vxl -o out.vxl", error);
    succeed("vxindex -o all.index survey.vxl damaged.vxl");
    expectError("vxpack -i all.index -o out.vxl", error);
    EXPECT_FALSE(exists("out.vxl"));
    // Digests are computed from the points that are written, never copied.
    for (const char* options :
         {"-i survey.vxl -c 500000 500100 -inf +inf -inf +inf", "-i survey.vxl -i survey.vxl",
          "-i survey.vxl -filter ClassId,2,include -ofld xyzc"}) {
        succeed(std::string("vxpack -o part.vxl ") + options);
        EXPECT_GT(describe("-check part.vxl")["check"]["numDigests"], 2) << options;
        decode("part.vxl");
    }
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
