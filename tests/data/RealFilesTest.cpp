// Real files, if present: data/las, data/laz and data/broken, and in vectors/files compressed clouds made from
// two of them.
#include "support/Errors.h"
#include "support/LASClouds.h"
#include "support/TemporaryDirectory.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <laszip/laszip_api.h>
#include <tuple>

namespace Quillmoran {
namespace {

using Testing::LASBytes;
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

// A compressed file as LASzip itself reads it, without any of our code.
std::vector<LASFilePoint> readWithLASzip(const std::string& path)
{
    laszip_POINTER handle = nullptr;
    laszip_BOOL compressed = 0;
    laszip_point_struct* p = nullptr;
    laszip_I64 count = 0;
    EXPECT_EQ(laszip_create(&handle), 0);
    EXPECT_EQ(laszip_open_reader(handle, path.c_str(), &compressed), 0) << path;
    laszip_get_point_pointer(handle, &p);
    laszip_get_point_count(handle, &count);
    const LASFile header = LASFile::load(path);
    if (header.count != 0 || header.legacyCount != 0)
        count = static_cast<laszip_I64>(header.count != 0 ? header.count : header.legacyCount);
    std::vector<LASFilePoint> points;
    for (laszip_I64 i = 0; i < count; ++i) {
        EXPECT_EQ(laszip_read_point(handle), 0) << path;
        LASFilePoint q;
        q.x = p->X, q.y = p->Y, q.z = p->Z, q.intensity = p->intensity;
        q.scanDir = p->scan_direction_flag, q.edge = p->edge_of_flight_line;
        q.userData = p->user_data, q.sourceId = p->point_source_ID;
        q.returnNum = p->return_number, q.numReturns = p->number_of_returns;
        q.classId = static_cast<std::uint8_t>(p->classification + 32 * p->synthetic_flag +
                                              64 * p->keypoint_flag + 128 * p->withheld_flag);
        q.scanAngle = p->scan_angle_rank;
        if (header.format >= 6) {
            q.returnNum = p->extended_return_number, q.numReturns = p->extended_number_of_returns;
            q.classId = p->extended_classification, q.scanAngle = p->extended_scan_angle;
            q.classFlags = p->extended_classification_flags, q.scannerChannel = p->extended_scanner_channel;
        }
        if (header.format == 1 || header.format >= 3)
            q.gpsTime = p->gps_time;
        q.red = p->rgb[0], q.green = p->rgb[1], q.blue = p->rgb[2], q.nearInfrared = p->rgb[3];
        points.push_back(q);
    }
    laszip_close_reader(handle);
    laszip_destroy(handle);
    return points;
}

TEST(RealFiles, LAZFilesAreReadCompletely)
{
    for (const std::string& path : filesIn("data/laz")) {
        const LASFile header = LASFile::load(path);
        const auto reader = open(path);
        expectHeaderOf(*reader, header, path);
        const auto points = readLASPoints(*reader);
        EXPECT_EQ(points.size(), header.count != 0 ? header.count : header.legacyCount) << path;
        EXPECT_TRUE(points == readWithLASzip(path)) << path;
        const std::string twin = shared("data/las/" + std::filesystem::path(path).stem().string() + ".las");
        if (std::filesystem::exists(twin)) {
            EXPECT_TRUE(points == LASFile::load(twin).points) << path;
        }
    }
}

// From LAS to LAS, plain and compressed: all is kept, except for fields that a writer must set itself.
TEST(RealFiles, LASFilesSurviveBeingWrittenAgain)
{
    const Testing::TemporaryDirectory directory;
    for (const std::string& path : filesIn("data/las")) {
        const LASFile file = LASFile::load(path);
        const auto reader = open(path);
        for (const char* name : {"out.las", "out.laz"}) {
            const std::string output = directory / name;
            const Scoped<LASPointWriter> writer(LASPointWriter::create());
            writer->init(reader.get(), output.c_str(), -1);
            writer->setWriteLAZ(std::string(name) == "out.laz");
            writer->write(Bounds::Huge(), 1, reader->getPointInfo(), nullptr);
            const LASFile written = LASFile::load(output);
            EXPECT_TRUE(readLASPoints(*open(output)) == file.points) << path;
            EXPECT_EQ(written.format, file.format) << path;
            EXPECT_EQ(written.scale, file.scale) << path;
            EXPECT_EQ(written.offset, file.offset) << path;
            EXPECT_EQ(written.fileSourceID, file.fileSourceID) << path;
            EXPECT_EQ(std::string(written.systemID.c_str()), std::string(file.systemID.c_str())) << path;
            EXPECT_EQ(std::tie(written.guid1, written.guid2, written.guid3, written.guid4),
                      std::tie(file.guid1, file.guid2, file.guid3, file.guid4))
                << path;
            std::vector<LASBytes> kept, expected;
            for (const auto& record : written.records)
                if (record.userID == "LASF_Projection")
                    kept.push_back(record.value);
            // EVLRs after the points become VLRs before them.
            for (const auto* records : {&file.records, &file.extendedRecords})
                for (const auto& record : *records)
                    if (record.userID == "LASF_Projection" && (file.format < 6 || record.recordID < 34735))
                        expected.push_back(record.value);
            EXPECT_EQ(kept, expected) << path;
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

// Through a compressed file and back: all fields of the points are restored, the rest as the LAS writer does.
TEST(RealFiles, PackedFilesGiveBackTheirPoints)
{
    const Testing::TemporaryDirectory directory;
    const std::string packed = directory / "packed.vxl", output = directory / "out.las";
    std::vector<std::string> paths = filesIn("data/las");
    for (const std::string& path : filesIn("data/laz"))
        paths.push_back(path);
    std::size_t numPacked = 0;
    for (const std::string& path : paths) {
        Scoped<LASPointReader> reader(LASPointReader::create());
        reader->init(path.c_str(), true);
        const std::string commands[] = {
            std::string(VXPACK) + " -dropWaveforms -i " + path + " -o " + packed + " >/dev/null",
            std::string(VXUNPACK) + " -i " + packed + " -o " + output + " >/dev/null"};
        for (const std::string& command : commands)
            ASSERT_EQ(std::system(command.c_str()), 0) << command;
        ++numPacked;

        const std::string twin = directory / "twin.las";
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(reader.get(), twin.c_str(), -1);
        writer->write(Bounds::Huge(), 1, reader->getPointInfo(), nullptr);
        const LASFile original = LASFile::load(path), written = LASFile::load(output);
        const LASFile expected = LASFile::load(twin);
        EXPECT_TRUE(written.points == (original.compressed ? readWithLASzip(path) : original.points)) << path;
        EXPECT_EQ(written.scale, original.scale) << path;
        EXPECT_EQ(written.offset, original.offset) << path;
        EXPECT_EQ(written.format, expected.format) << path;
        EXPECT_EQ(written.versionMinor, expected.versionMinor) << path;
        EXPECT_EQ(written.min, expected.min) << path;
        EXPECT_EQ(written.max, expected.max) << path;
        EXPECT_EQ(written.count, expected.count) << path;
        EXPECT_EQ(written.byReturn, expected.byReturn) << path;
        EXPECT_EQ(written.legacyByReturn, expected.legacyByReturn) << path;
        EXPECT_EQ(written.globalEncoding, expected.globalEncoding) << path;
        EXPECT_EQ(written.fileSourceID, original.fileSourceID) << path;
        EXPECT_EQ(written.systemID, expected.systemID) << path;
        EXPECT_EQ(std::tie(written.guid1, written.guid2, written.guid3, written.guid4),
                  std::tie(original.guid1, original.guid2, original.guid3, original.guid4))
            << path;
        ASSERT_EQ(written.records.size(), expected.records.size()) << path;
        for (std::size_t i = 0; i < written.records.size(); ++i) {
            EXPECT_EQ(written.records[i].userID, expected.records[i].userID) << path;
            EXPECT_EQ(written.records[i].recordID, expected.records[i].recordID) << path;
            EXPECT_EQ(written.records[i].description, expected.records[i].description) << path;
            EXPECT_EQ(written.records[i].value, expected.records[i].value) << path;
        }
    }
    EXPECT_EQ(numPacked, paths.size());
}

// Joins files of formats 3, 6 and 1 with different clocks, scan angles and classifications.
TEST(RealFiles, JoinedFilesKeepTheMeaningOfTheirFields)
{
    constexpr int week = 1500;
    const Testing::TemporaryDirectory directory;
    const std::string packed = directory / "mix.vxl", output = directory / "mix.las";
    std::vector<std::string> names = {"4_6_crop", "test1_4", "vegetation_1_3", "mvk-thin"};
    const auto fieldsOf = [](std::vector<LASFilePoint> points) {
        std::vector<std::array<double, 16>> fields;
        for (const LASFilePoint& p : points)
            fields.push_back({p.gpsTime, double(p.intensity), double(p.returnNum), double(p.numReturns),
                              double(p.scanDir), double(p.edge), double(p.classId), double(p.classFlags),
                              double(p.scannerChannel), double(p.scanAngle), double(p.userData),
                              double(p.sourceId), double(p.red), double(p.green), double(p.blue)});
        std::sort(fields.begin(), fields.end());
        return fields;
    };
    const auto coordinatesOf = [](const LASFile& file, std::vector<double>& x) {
        for (const LASFilePoint& p : file.points)
            x.push_back(p.x * file.scale[0] + file.offset[0]);
    };
    std::vector<LASFilePoint> expected;
    std::vector<double> expectedX;
    for (const std::string& name : names) {
        const LASFile file = LASFile::load(shared("data/las/" + name + ".las"));
        for (const LASFilePoint& p : Testing::joinedPoints(file, week))
            expected.push_back(p);
        coordinatesOf(file, expectedX);
    }
    std::sort(expectedX.begin(), expectedX.end());
    for (int order = 0; order < 2; ++order, std::reverse(names.begin(), names.end())) {
        std::string pack = std::string(VXPACK) + " -gpsWeek " + std::to_string(week) + " -o " + packed;
        for (const std::string& name : names)
            pack += " -i " + shared("data/las/" + name + ".las");
        for (const std::string& command :
             {pack, std::string(VXUNPACK) + " -sc 0.01 0.01 0.01 -i " + packed + " -o " + output})
            ASSERT_EQ(std::system((command + " >/dev/null 2>&1").c_str()), 0) << command;
        const LASFile joined = LASFile::load(output);
        EXPECT_TRUE(fieldsOf(joined.points) == fieldsOf(expected)) << names[0] << " first";
        std::vector<double> x;
        coordinatesOf(joined, x);
        std::sort(x.begin(), x.end());
        ASSERT_EQ(x.size(), expectedX.size());
        for (std::size_t i = 0; i < x.size(); ++i)
            ASSERT_NEAR(x[i], expectedX[i], joined.scale[0] * 0.51);
    }
}

// Compares the program's outputs for two real clouds with the files that they were made from.
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
