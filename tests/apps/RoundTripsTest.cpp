// Compressed files decode to the files that they were made from.
#include "apps/AppTest.h"
#include "support/LASClouds.h"
#include "support/SampleCloud.h"

#include <functional>
#include <map>
#include <regex>
#include <set>

namespace Quillmoran::Testing { namespace {

using RoundTrips = AppTest;

// The bytes, without the day on which the file was made.
std::string bytesOf(const std::string& path)
{
    constexpr std::size_t creationDate = 90;
    return readFile(path).replace(creationDate, 4, 4, '\0');
}

LASFile surveyLAS(int format)
{
    LASFile file = randomLASFile(format, format < 6 ? 2 : 4, 1500, 50u + static_cast<unsigned>(format));
    file.fileSourceID = 4711;
    file.guid1 = 0xDEADBEEF, file.guid2 = 0x0102, file.guid3 = 0xABCD;
    file.guid4 = {1, 2, 3, 4, 5, 6, 7, 8};
    file.systemID = "a scanner on a mast";
    file.scale = {0.001, 0.25, 1e-7};
    file.offset = {674521.920013, -2000, 50};
    file.describePoints();
    const LASBytes keys = {1, 0, 1, 0, 0, 0, 2, 0, 0, 4, 0, 0, 1, 0, 1, 0, 0, 12, 0, 0, 1, 0, 0x65, 0x7F};
    const std::string wkt("LOCAL_CS[\"site\"]\0", 17);
    if (format < 6)
        file.records = {{"LASF_Projection", 34735, "keys", keys}};
    else
        file.records = {{"LASF_Projection", 2112, "the site", LASBytes(wkt.begin(), wkt.end())}};
    file.globalEncoding = format < 6 ? 0 : 16;
    file.records.push_back({"Owner", 9, "of nobody else", {1, 2, 3}});
    return file;
}

// The header fields and records of LAS output are those of a rewritten file, which has tests of its own.
TEST_F(RoundTrips, RestoreLASAndLAZFiles)
{
    for (const int format : {0, 1, 2, 3, 6, 7, 8}) {
        const LASFile original = surveyLAS(format);
        writeFile(directory / "in.las", original.build());
        rewriteLAS(directory / "in.las", directory / "in.laz");
        for (const std::string ending : {"las", "laz"}) {
            SCOPED_TRACE(ending + " of format " + std::to_string(format));
            const std::string input = "in." + ending, output = "out." + ending;
            succeed("vxpack -i " + input + " -o out.vxl");
            const bool hasRecord = ending == "las"; // rewriteLAS() does not write it
            succeed("vxunpack -i out.vxl -o " + output,
                    hasRecord ? "Warning: '" + output +
                                    "': this file leaves out the record Owner::9; -restore keeps them\n"
                              : "");
            rewriteLAS(directory / input, directory / "twin." + ending);
            EXPECT_TRUE(bytesOf(directory / output) == bytesOf(directory / "twin." + ending));
            if (ending == "las") {
                EXPECT_TRUE(LASFile::load(directory / output).points == original.points);
            }
            succeed("vxunpack -i out.vxl -restore -o " + output);
            EXPECT_TRUE(bytesOf(directory / output) == bytesOf(directory / input));
            // The compressed file keeps records that LAS writers omit.
            const json packed = describe("out.vxl -check"), source = describe(input);
            for (const char* key : {"numPoints", "scale", "offset", "bounds", "wkt"})
                EXPECT_EQ(packed[key], source[key]) << key;
            json metadata = source["metadata"];
            EXPECT_EQ(metadata.dump().find("\"Owner::9\"") != std::string::npos, hasRecord);
            metadata.push_back(
                json::parse(R"({"key": "PreCompressionPointCount", "description": null, "type": "string",
                                          "length": 5, "value": "1500"})"));
            EXPECT_EQ(packed["metadata"], metadata);
        }
    }
}

TEST_F(RoundTrips, RestoredFilesOfSortedPointsHaveAnotherOrder)
{
    const LASFile original = surveyLAS(3);
    writeFile(directory / "in.las", original.build());
    const std::string warning =
        "Warning: 'out.las': the points were sorted when they were packed, so their order "
        "may differ from that of the file that was packed\n";
    for (const std::string order : {"time", "hilbert"}) {
        succeed("vxpack -i in.las -o out.vxl -order " + order);
        succeed("vxpack -f -i out.vxl -o again.vxl"); // keeps the record
        succeed("vxunpack -i again.vxl -restore -o out.las", warning);
        EXPECT_TRUE(bytesOf(directory / "out.las") != bytesOf(directory / "in.las"));
        succeed("vxdiff -unordered in.las out.las");
        succeed("vxdiff -unordered in.las out.vxl");
        succeed("vxdiff out.las out.vxl");
    }
}

// The rows of a table in README.md or a man page: field, by default, with -restore.
std::map<std::string, std::pair<std::string, std::string>> keptFields(const std::string& file,
                                                                      const std::regex& row)
{
    std::map<std::string, std::pair<std::string, std::string>> table;
    std::smatch match;
    // In a man page, a cell that is set over several lines is enclosed in lines of its own.
    const std::string text = std::regex_replace(readFile(file), std::regex("T\\{\n|\nT\\}"), "");
    for (const std::string& line : linesOf(text))
        if (std::regex_match(line, match, row))
            table[match[1]] = {match[2], match[3]};
    return table;
}

TEST_F(RoundTrips, KeepTheFieldsThatTheDocumentsName)
{
    struct Case
    {
        const LASFile& original;
        const LASFile& written;
    };
    const auto valuesOf = [](const LASFile& file, bool isProjection) {
        std::vector<LASBytes> values;
        for (const LASFileRecord& record : file.records)
            if ((record.userID == "LASF_Projection") == isProjection)
                values.push_back(record.value);
        return values;
    };
    const auto orderOf = [](const LASFile& file) {
        std::string order;
        for (const LASFileRecord& record : file.records)
            order +=
                record.userID + std::to_string(record.recordID) + ' ' + std::to_string(record.reserved) + ' ';
        return order;
    };
    // The bytes between VLRs and points, or before the EVLRs.
    const auto gapsOf = [](const LASFile& file) {
        std::size_t vlrs = file.headerSize;
        for (const LASFileRecord& record : file.records)
            vlrs += 54 + record.value.size();
        return file.pointDataOffset - vlrs;
    };
    const std::map<std::string, std::function<bool(const Case&)>> fields = {
        {"coordinates, scale and offset",
         [](const Case& c) {
             return std::equal(c.original.points.begin(), c.original.points.end(), c.written.points.begin(),
                               [](const LASFilePoint& a, const LASFilePoint& b) {
                                   return std::tie(a.x, a.y, a.z) == std::tie(b.x, b.y, b.z);
                               }) &&
                    c.original.scale == c.written.scale && c.original.offset == c.written.offset;
         }},
        {"all fields of the point format",
         [](const Case& c) { return c.original.points == c.written.points; }},
        {"point format", [](const Case& c) { return c.original.format == c.written.format; }},
        {"extra bytes, record length",
         [](const Case& c) { return c.original.recordLength == c.written.recordLength; }},
        {"version", [](const Case& c) { return c.original.versionMinor == c.written.versionMinor; }},
        {"system identifier, project ID, file source ID",
         [](const Case& c) {
             const auto of = [](const LASFile& f) {
                 return std::tie(f.systemID, f.guid1, f.guid2, f.guid3, f.guid4, f.fileSourceID);
             };
             return of(c.original) == of(c.written);
         }},
        {"generating software, creation date",
         [](const Case& c) {
             const auto of = [](const LASFile& f) { return std::tie(f.software, f.day, f.year); };
             return of(c.original) == of(c.written);
         }},
        {"type of GPS time",
         [](const Case& c) { return ((c.original.globalEncoding ^ c.written.globalEncoding) & 1) == 0; }},
        {"other bits of the global encoding",
         [](const Case& c) { return c.original.globalEncoding == c.written.globalEncoding; }},
        {"bounds, counts, counts by return",
         [](const Case& c) {
             const auto of = [](const LASFile& f) {
                 return std::tie(f.min, f.max, f.legacyCount, f.legacyByReturn, f.count, f.byReturn);
             };
             return of(c.original) == of(c.written);
         }},
        {"bytes after the fields of the header",
         [](const Case& c) { return c.original.headerSize == c.written.headerSize; }},
        {"values of the VLRs of the coordinate system",
         [&](const Case& c) { return valuesOf(c.original, true) == valuesOf(c.written, true); }},
        {"other VLRs",
         [&](const Case& c) { return valuesOf(c.original, false) == valuesOf(c.written, false); }},
        {"EVLRs",
         [](const Case& c) { return c.original.extendedRecords.size() == c.written.extendedRecords.size(); }},
        {"reserved fields and order of VLRs",
         [&](const Case& c) { return orderOf(c.original) == orderOf(c.written); }},
        {"gaps between VLRs, points and EVLRs; bytes after them",
         [&](const Case& c) { return gapsOf(c.original) == gapsOf(c.written); }}};

    // Whether each field survives in all files; the counts also in files that have the right ones.
    std::map<std::string, std::pair<std::string, std::string>> found;
    for (const auto& [name, isKept] : fields)
        found[name] = {"yes", "yes"};
    bool areCountsComputed = true;
    for (const int format : {0, 1, 2, 3, 6, 7, 8}) {
        for (const bool hasRightCounts : {true, false}) {
            LASFile file = surveyLAS(format);
            file.versionMinor = format < 6 ? 3 : 4;
            file.globalEncoding |= static_cast<std::uint16_t>(8 | (LASFile::hasTime(format) ? 1 : 0));
            file.headerSize = format < 6 ? 245 : 385;
            file.recordLength = static_cast<std::uint16_t>(LASFile::recordBytes(format) + 3);
            if (format >= 6)
                file.extendedRecords = {{"Owner", 10, "", {4, 5}}};
            file.records.front().reserved = 0;
            file.pointDataOffset = 5000;
            if (hasRightCounts)
                file.describePoints();
            else
                file.legacyByReturn[2] = 12345;
            writeFile(directory / "in.las", file.build());
            succeed("vxpack -i in.las -o out.vxl");
            ASSERT_EQ(run("vxunpack -i out.vxl -o default.las").status, 0);
            succeed("vxunpack -i out.vxl -o restored.las -restore");
            const LASFile original = LASFile::load(directory / "in.las"),
                          plain = LASFile::load(directory / "default.las"),
                          restored = LASFile::load(directory / "restored.las");
            for (const auto& [name, isKept] : fields) {
                const bool isCounts = name == "bounds, counts, counts by return";
                if (isCounts)
                    areCountsComputed = areCountsComputed && isKept({original, plain}) == hasRightCounts;
                else if (!isKept({original, plain}))
                    found[name].first = "no";
                if (!isKept({original, restored}))
                    found[name].second = "no";
            }
        }
    }
    if (areCountsComputed)
        found["bounds, counts, counts by return"].first = "computed";
    const std::string cell = "(yes|no|computed)";
    const std::string root = EXAMPLES "/..";
    EXPECT_EQ(keptFields(root + "/README.md", std::regex("\\| (.+) \\| " + cell + " \\| " + cell + " \\|")),
              found);
    EXPECT_EQ(keptFields(root + "/docs/man/vxunpack.1", std::regex("(.+)\t" + cell + "\t" + cell)), found);
}

TEST_F(RoundTrips, RestoreTextByteForByte)
{
    Random random(3);
    std::string text = "# X Y Z Intensity ReturnNum NumReturns ScanDir EdgeFlightLine ClassId ClassFlags "
                       "ScannerChannel ScanAngle UserData SourceId GPSTime GPSTime_Adjusted Red Green Blue "
                       "NearInfrared Amplitude Noise\n";
    const auto below = [&](int end) { return static_cast<int>(random.between(0, end - 1)); };
    for (int i = 0; i < 3000; ++i) {
        char line[500];
        // Heights from 4.06 to 6152.6 that are no exact multiples of 0.01; Y has its own scale.
        std::snprintf(line, sizeof line,
                      "%.3f %.2f %.3f %d %d %d %d 1 %d %d %d %d %d %d %.6f %.9f %d %d %d %d %.3f %.18g\n",
                      636000 + 0.01 * (i * 7 % 5000), 848900.25 + 0.25 * (i / 9) + 0.5 * (i % 2 == 0),
                      below(615260) / 100.0, below(65536), below(16), below(16), below(2), below(256),
                      below(16), below(4), below(65536) - 32768, below(256), below(65536),
                      245379 + i * 0.000125, below(1000000) / 1e9, below(65536), below(65536), below(65536),
                      below(65536), (below(2000) - 1000) / 1000.0, random.real());
        text += line;
    }
    writeFile(directory / "in.txt", text);
    succeed("vxpack -i in.txt -o out.vxl");
    const json channels = describe("out.vxl -check")["channels"];
    EXPECT_EQ(find(channels, "X")["quantization"], 0.01);
    EXPECT_EQ(find(channels, "Z")["type"], "FLOAT64");
    EXPECT_EQ(find(channels, "ScanAngle")["type"], "SINT16");
    // Multiples of 0.25 and 0.5 are written without trailing zeros.
    const auto withoutZeros = [](const std::string& lines) {
        return std::regex_replace(lines, std::regex("(\\.[0-9]*[1-9])0+ |\\.0+ "), "$1 ");
    };
    EXPECT_EQ(withoutZeros(decode("out.vxl")), withoutZeros(text));

    // The same columns by name give the same file, and so does the file itself.
    std::replace(text.begin(), text.end(), ' ', ',');
    directory.file("in.csv", "made by hand\n" + text);
    succeed(
        "vxpack -i in.csv -o csv.vxl -skip 2 -parse x,y,z,i,r,n,d,e,c,ClassFlags,scannerchannel,a,u,p,t,T,"
        "R,G,B,NearInfrared,Amplitude:FLOAT64,Noise:FLOAT64");
    EXPECT_TRUE(readFile(directory / "csv.vxl") == readFile(directory / "out.vxl"));
    succeed("vxpack -i csv.vxl -o again.vxl");
    EXPECT_TRUE(readFile(directory / "again.vxl") == readFile(directory / "out.vxl"));

    directory.file("wraps.xyz", "1 2 3 70000 -5 ignored\n");
    succeed("vxpack -i wraps.xyz -o wraps.vxl -parse xyzic -lenient");
    EXPECT_EQ(samplesOf("wraps.vxl"), (Rows{{1, 2, 3, 4464, 251}}));
}

TEST_F(RoundTrips, RestoreCompressedFilesInEveryVersion)
{
    const SampleCloud cloud = SampleCloud::make(5000, 8);
    FilePlan plan = cloud.toFile(); // with an infinity, a zero below 0 and single precision
    cloud.addIndex(plan, 2, 64);
    writeFile(directory / "cloud.vxl", buildFile(plan));
    const char* const versions[] = {"",
                                    "-fileVersion 3",
                                    "-fileVersion 2 -bandVersion 2",
                                    "-fileVersion 1 -headerVersion 1 -indexVersion 1 -bandVersion 1",
                                    "-prefer size",
                                    "-prefer speed -levels 3",
                                    "-smooth -levels 9"};
    for (const std::string options : versions) {
        SCOPED_TRACE(options);
        succeed("vxpack -i cloud.vxl -o out.vxl " + options);
        succeed("vxdiff cloud.vxl out.vxl");
        succeed("vxpack -i survey.vxl -o out.vxl " + options);
        describe("out.vxl -check");
        // The first version has no class names.
        const bool old = options.find("-fileVersion 1") == 0;
        const json differences = json::parse(run("vxdiff -json survey.vxl out.vxl").output);
        EXPECT_EQ(differences["classNames"].size(), old ? 6u : 0u);
        EXPECT_EQ(differences["equal"], !old);
        EXPECT_EQ(differences["metadata"].size() + differences["samples"].size(), 0u);
    }
    const std::set<int> usual = {10, 11, 13, 90, 91, 93, 70, 71, 73}; // which do not smooth
    const json records = describe("out.vxl")["compression"]["records"];
    EXPECT_TRUE(std::any_of(records.begin(), records.end(), [&](const json& record) {
        return usual.count(record["transform"]) == 0;
    })) << records;
}

TEST_F(RoundTrips, RestoreTheExampleOfTheRepository)
{
    const std::string example = readFile(EXAMPLES "/survey.vxl");
    EXPECT_TRUE(readFile(directory / "survey.vxl") == example) << "make_samples writes other bytes";
    succeed("vxpack -i survey.vxl -o again.vxl -levels 6 -pe 64 -sb 256 -t GPSTime=11");
    EXPECT_TRUE(readFile(directory / "again.vxl") == example);
    const std::string output = succeed("vxunpack -i survey.vxl -o out.txt");
    EXPECT_EQ(output.substr(output.rfind('\r')), "\r100.00% (writing text file)\n2400 points written\n");
    const auto lines = linesOf(readFile(directory / "out.txt"));
    ASSERT_EQ(lines.size(), 2401u);
    EXPECT_EQ(lines[0], "# X Y Z Intensity ReturnNum NumReturns ScanDir EdgeFlightLine ClassId ScanAngle "
                        "SourceId GPSTime Red Green Blue");
    EXPECT_EQ(lines[1], "500000.030 4100008.980 124.510 159 1 1 1 1 2 10 101 245380 122 119 87");
}

TEST_F(RoundTrips, RestoreBPFFilesWhereTheModuleIs)
{
    const std::string missing =
        "Error: this installation cannot read or write BPF files: its PDAL module is not there";
    directory.file("in.Bpf", "BPF!0003");
    for (const std::string format : {"", " -of BPF"}) {
        const Result written = run("vxunpack -i survey.vxl -o in.Bpf" + format);
        EXPECT_EQ(written.errors, HAS_PDAL ? "" : missing + '\n');
        expectContains(written.output, {HAS_PDAL ? "(writing BPF file)\n2400 points written\n" : ""});
        EXPECT_EQ(readFile(directory / "in.Bpf").substr(0, 8), "BPF!0003");
    }
    const Result packed = run("vxpack -i in.Bpf -o out.vxl");
    EXPECT_EQ(packed.errors, HAS_PDAL ? "" : missing + " path = in.Bpf\n");
    ASSERT_EQ(exists("out.vxl"), bool(HAS_PDAL));
    if (!HAS_PDAL)
        return;
    const json expected = describe("in.Bpf -stats"), file = describe("out.vxl -stats -check");
    EXPECT_EQ(file["wkt"], expected["wkt"]);
    ASSERT_EQ(file["statistics"].size(), 15u);
    for (json channel : expected["statistics"]) {
        json packedChannel = find(file["statistics"], channel["name"]);
        for (json* each : {&channel, &packedChannel})
            each->erase("histogram"); // the edges depend on the quantization, which BPF does not have
        EXPECT_EQ(packedChannel, channel);
    }
}

TEST_F(RoundTrips, MakeTheSameBytesWithAnyNumberOfThreads)
{
    writeFile(directory / "in.las", randomLASFile(7, 4, 100000, 9).build());
    for (const std::string options : {"", " -order hilbert -quantize 1 1 1"}) {
        succeed("vxpack -i in.las -o one.vxl -j 1" + options);
        succeed("vxpack -i in.las -o many.vxl -j 4" + options);
        EXPECT_TRUE(readFile(directory / "many.vxl") == readFile(directory / "one.vxl")) << options;
    }
    const std::string expected = decode("survey.vxl -j 1");
    for (const char* options : {"-j 7 -cs 1", "-cs 999", "-numThreads 0", "-chunckSize 5000000"})
        EXPECT_TRUE(decode(std::string("survey.vxl ") + options) == expected) << options;
}

}} // namespace Quillmoran::Testing
