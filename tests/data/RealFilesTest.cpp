// Real files, where they are: data/las, data/laz and data/broken, and in vectors/files compressed clouds that
// were made from two of them.
#include "las/LASPointReader.h"
#include "support/Errors.h"
#include "support/LASClouds.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::LASFile;
using Testing::LASFilePoint;
using Testing::readLASPoints;

std::string shared(const std::string& path)
{
    return VX_SHARED "/" + path;
}

std::vector<std::string> filesIn(const std::string& folder)
{
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(shared(folder)))
        files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    EXPECT_FALSE(files.empty()) << folder;
    return files;
}

Scoped<LASPointReader> open(const std::string& path)
{
    Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init(path.c_str(), true);
    return reader;
}

void expectHeaderOf(const PointSource& source, const LASFile& file, const std::string& path)
{
    const std::uint64_t count = file.count != 0 ? file.count : file.legacyCount;
    EXPECT_EQ(source.getNumPoints(), static_cast<std::int64_t>(count)) << path;
    const Bounds& bounds = source.getBounds();
    EXPECT_EQ((std::array<double, 3>{bounds.x.min, bounds.y.min, bounds.z.min}), file.min) << path;
    EXPECT_EQ((std::array<double, 3>{bounds.x.max, bounds.y.max, bounds.z.max}), file.max) << path;
}

TEST(RealFiles, LASFilesAreReadCompletely)
{
    for (const std::string& path : filesIn("data/las")) {
        const LASFile file = LASFile::load(path);
        const auto reader = open(path);
        expectHeaderOf(*reader, file, path);
        EXPECT_TRUE(readLASPoints(*reader) == file.points) << path;
        Metadata metadata;
        reader->loadMetadata(metadata, false);
        const std::size_t others =
            metadata.getNumRecords() - file.records.size() - file.extendedRecords.size();
        EXPECT_LE(others, 7u) << path;
        reader->getWKT();
    }
}

// Compressed files: the points lie within the header's bounds and counts, and where the same cloud is there
// uncompressed, they are those.
TEST(RealFiles, LAZFilesAreReadCompletely)
{
    for (const std::string& path : filesIn("data/laz")) {
        const LASFile header = LASFile::load(path);
        const auto reader = open(path);
        expectHeaderOf(*reader, header, path);
        const auto points = readLASPoints(*reader);
        LASFile read = header;
        read.points = points;
        read.describePoints();
        EXPECT_EQ(points.size(), header.count != 0 ? header.count : header.legacyCount) << path;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            EXPECT_NEAR(read.min[axis], header.min[axis], header.scale[axis]) << path;
            EXPECT_NEAR(read.max[axis], header.max[axis], header.scale[axis]) << path;
        }
        const std::string twin = shared("data/las/" + std::filesystem::path(path).stem().string() + ".las");
        if (std::filesystem::exists(twin)) {
            EXPECT_TRUE(points == LASFile::load(twin).points) << path;
        }
    }
}

TEST(RealFiles, BrokenFilesEndInAnErrorOrInTheirPoints)
{
    for (const std::string& path : filesIn("data/broken")) {
        const std::string outcome = Testing::failureOf([&] {
            const auto reader = open(path);
            const auto points = readLASPoints(*reader);
            EXPECT_TRUE(points == LASFile::load(path).points) << path;
        });
        const bool isRead = outcome == "no error";
        EXPECT_TRUE(isRead ||
                    outcome.rfind("40606 Failed to create LASReader for path = '" + path + "': ", 0) == 0)
            << outcome;
    }
}

// The program's outputs of the two real clouds against the files that they were made from.
TEST(RealFiles, DecodedCloudsGiveBackTheirLASFiles)
{
    const Testing::TemporaryDirectory directory;
    for (const auto& [cloud, original] :
         {std::pair("autzen", "autzen_trim"), std::pair("color", "1.2-with-color")}) {
        const LASFile expected = LASFile::load(shared(std::string("data/las/") + original + ".las"));
        for (const char* format : {"las", "laz"}) {
            const std::string output = directory / (std::string(cloud) + '.' + format);
            const std::string command = std::string(VXUNPACK) + " -i " +
                                        shared(std::string("vectors/files/") + cloud + ".vxl") + " -o " +
                                        output + " >/dev/null";
            ASSERT_EQ(std::system(command.c_str()), 0) << command;
            const LASFile written = LASFile::load(output);
            EXPECT_EQ(written.scale, expected.scale);
            EXPECT_EQ(written.offset, expected.offset);
            EXPECT_EQ(written.legacyCount, expected.legacyCount);
            EXPECT_EQ(written.legacyByReturn, expected.legacyByReturn);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                EXPECT_DOUBLE_EQ(written.min[axis], expected.min[axis]);
                EXPECT_DOUBLE_EQ(written.max[axis], expected.max[axis]);
            }
            EXPECT_EQ(written.compressed, std::string(format) == "laz");
            EXPECT_TRUE((written.compressed ? readLASPoints(*open(output)) : written.points) ==
                        expected.points)
                << command;
        }
    }
}

} // namespace
} // namespace Quillmoran
