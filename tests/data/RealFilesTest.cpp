// Real files, if present: data/las, data/laz and data/broken, and in vectors/files compressed clouds made from
// two of them.
#include "support/BitFlips.h"
#include "support/LASClouds.h"
#include "support/Program.h"

namespace Quillmoran::Testing { namespace {

std::string shared(const std::string& path)
{
    return VX_SHARED "/" + path;
}

#ifdef VX_SANITIZED
constexpr std::uintmax_t largestFile = 1 << 20; // the larger ones have no other content
#else
constexpr std::uintmax_t largestFile = UINTMAX_MAX;
#endif

Strings filesIn(const Strings& folders)
{
    Strings files;
    for (const std::string& folder : folders)
        for (const auto& entry : std::filesystem::directory_iterator(shared(folder)))
            if (entry.file_size() <= largestFile)
                files.push_back(entry.path().string());
    EXPECT_GT(files.size(), 5u);
    return files;
}

Scoped<LASPointReader> open(const std::string& path)
{
    Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init(path.c_str(), true);
    return reader;
}

void expectSameHeader(const LASFile& written, const LASFile& expected)
{
    const auto fieldsOf = [](const LASFile& f) {
        return std::tie(f.format, f.scale, f.offset, f.fileSourceID, f.guid1, f.guid2, f.guid3, f.guid4);
    };
    EXPECT_EQ(fieldsOf(written), fieldsOf(expected));
    EXPECT_STREQ(written.systemID.c_str(), expected.systemID.c_str());
}

using RealFiles = ProgramTest;

TEST_F(RealFiles, AreReadCompletely)
{
    for (const std::string& path : filesIn({"data/las", "data/laz"})) {
        SCOPED_TRACE(path);
        const LASFile file = LASFile::load(path);
        const auto reader = open(path);
        EXPECT_EQ(reader->getNumPoints(),
                  static_cast<std::int64_t>(file.count != 0 ? file.count : file.legacyCount));
        const Bounds& bounds = reader->getBounds();
        EXPECT_EQ((std::array<double, 3>{bounds.x.min, bounds.y.min, bounds.z.min}), file.min);
        EXPECT_EQ((std::array<double, 3>{bounds.x.max, bounds.y.max, bounds.z.max}), file.max);
        const auto points = readLASPoints(*reader);
        EXPECT_EQ(std::ssize(points), reader->getNumPoints());
        const std::string twin = shared("data/las/" + std::filesystem::path(path).stem().string() + ".las");
        if (std::filesystem::exists(twin)) {
            EXPECT_TRUE(points == LASFile::load(twin).points);
        }
        Metadata metadata;
        reader->loadMetadata(metadata, false);
        EXPECT_GE(metadata.getNumRecords(),
                  file.records.size() + file.extendedRecords.size() - file.compressed);
        reader->getWKT();
    }
}

// From LAS to LAS, plain and compressed: all is kept, except for fields that a writer must set itself.
TEST_F(RealFiles, SurviveBeingWrittenAgain)
{
    for (const std::string& path : filesIn({"data/las"})) {
        SCOPED_TRACE(path);
        const LASFile file = LASFile::load(path);
        std::vector<LASBytes> expected;
        // EVLRs after the points become VLRs before them.
        for (const auto* records : {&file.records, &file.extendedRecords})
            for (const auto& record : *records)
                if (record.userID == "LASF_Projection" && (file.format < 6 || record.recordID < 34735))
                    expected.push_back(record.value);
        for (const char* name : {"out.las", "out.laz"}) {
            const LASFile written = rewriteLAS(path, directory / name);
            EXPECT_TRUE(readLASPoints(*open(directory / name)) == file.points);
            expectSameHeader(written, file);
            std::vector<LASBytes> kept;
            for (const auto& record : written.records)
                if (record.userID == "LASF_Projection")
                    kept.push_back(record.value);
            EXPECT_EQ(kept, expected);
        }
    }
}

TEST_F(RealFiles, EndInAnErrorOrInTheirPointsIfBroken)
{
    for (const std::string& path : filesIn({"data/broken"})) {
        const std::string outcome = failureOf([&] {
            const auto points = readLASPoints(*open(path));
            EXPECT_TRUE(points == LASFile::load(path).points) << path;
        });
        const std::string refusal = "40606 Failed to create LASReader for path = '" + path + "': ";
        EXPECT_TRUE(outcome == "no error" || outcome.rfind(refusal, 0) == 0) << outcome;
    }
}

TEST_F(RealFiles, HaveDigestsThatReportChangedBits)
{
    const Bytes file = packWith(*open(shared("data/las/1.2-with-color.las")));
    Random random(1);
#ifdef VX_SANITIZED
    std::vector<std::size_t> bits(500);
#else
    std::vector<std::size_t> bits(10000);
#endif
    for (std::size_t& bit : bits)
        bit = random.below(8 * file.size());
    EXPECT_GT(flipBits(file, bits), bits.size() / 10);
}

// Through a compressed file and back: all fields of the points are restored, the rest as the LAS writer does.
TEST_F(RealFiles, AreRestoredFromCompressedFiles)
{
    for (const std::string& path : filesIn({"data/las", "data/laz"})) {
        SCOPED_TRACE(path);
        ASSERT_EQ(run("vxpack -dropWaveforms -i " + path + " -o packed.vxl").status, 0);
        EXPECT_EQ(run("vxdiff -dropWaveforms packed.vxl " + path).status, 0);
        ASSERT_EQ(run("vxunpack -i packed.vxl -o out.las").status, 0);
        const LASFile original = LASFile::load(path), written = LASFile::load(directory / "out.las");
        const LASFile expected = rewriteLAS(path, directory / "twin.las");
        EXPECT_TRUE(written.points == (original.compressed ? readLASPoints(*open(path)) : original.points));
        expectSameHeader(written, expected);
        EXPECT_EQ(std::tie(written.scale, written.offset), std::tie(original.scale, original.offset));
        // On request all bytes, but for waveforms.
        const std::string again = std::string("again.") + (original.compressed ? "laz" : "las");
        ASSERT_EQ(run("vxunpack -i packed.vxl -restore -o " + again).status, 0);
        EXPECT_EQ(readFile(directory / again) == readFile(path), !open(path)->hasWaveforms());
        const auto fieldsOf = [](const LASFile& f) {
            return std::tie(f.versionMinor, f.min, f.max, f.count, f.byReturn, f.legacyByReturn,
                            f.globalEncoding);
        };
        EXPECT_EQ(fieldsOf(written), fieldsOf(expected));
        const auto sameRecord = [](const LASFileRecord& a, const LASFileRecord& b) {
            return std::tie(a.userID, a.recordID, a.description, a.value) ==
                   std::tie(b.userID, b.recordID, b.description, b.value);
        };
        EXPECT_TRUE(std::equal(written.records.begin(), written.records.end(), expected.records.begin(),
                               expected.records.end(), sameRecord));
    }
}

// Compares the program's outputs for two real clouds with the files that they were made from.
TEST_F(RealFiles, AreDecodedFromTheirClouds)
{
    for (const auto& [cloud, original] : {std::pair("autzen", "autzen_trim"), {"color", "1.2-with-color"}}) {
        const LASFile expected = LASFile::load(shared("data/las/" + std::string(original) + ".las"));
        for (const std::string name : {"out.las", "out.laz"}) {
            const std::string command =
                "vxunpack -i " + shared("vectors/files/" + std::string(cloud)) + ".vxl -o " + name;
            ASSERT_EQ(run(command).status, 0) << command;
            const LASFile written = LASFile::load(directory / name);
            EXPECT_EQ(written.legacyByReturn, expected.legacyByReturn) << command;
            EXPECT_DOUBLE_EQ(written.max[0], expected.max[0]) << command;
            const auto reader = open(directory / name);
            EXPECT_TRUE(readLASPoints(*reader) == expected.points) << command;
        }
    }
}

}} // namespace Quillmoran::Testing
