// Real files, if present: data/las, data/laz and data/broken, and in vectors/files compressed clouds made from
// two of them.
#include "support/LASClouds.h"
#include "support/Program.h"
#include "support/Test.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>

#include <laszip/laszip_api.h>

namespace Quillmoran::Testing { namespace {

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

// Writes a file anew, without a compressed cloud in between.
LASFile rewrite(const std::string& path, const std::string& output)
{
    const auto reader = open(path);
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    writer->init(reader.get(), output.c_str(), -1);
    writer->setWriteLAZ(output.back() == 'z');
    writer->write(Bounds::Huge(), 1, reader->getPointInfo(), nullptr);
    return LASFile::load(output);
}

// A compressed file as LASzip itself reads it, without any of our code.
std::vector<LASFilePoint> readWithLASzip(const std::string& path, const LASFile& header)
{
    laszip_POINTER handle = nullptr;
    laszip_BOOL compressed = 0;
    laszip_point_struct* p = nullptr;
    EXPECT_EQ(laszip_create(&handle), 0);
    EXPECT_EQ(laszip_open_reader(handle, path.c_str(), &compressed), 0) << path;
    laszip_get_point_pointer(handle, &p);
    std::vector<LASFilePoint> points(header.count != 0 ? header.count : header.legacyCount);
    for (LASFilePoint& q : points) {
        EXPECT_EQ(laszip_read_point(handle), 0) << path;
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
    }
    laszip_close_reader(handle);
    laszip_destroy(handle);
    return points;
}

void expectSameHeader(const LASFile& written, const LASFile& expected)
{
    const auto fieldsOf = [](const LASFile& f) {
        return std::tie(f.format, f.scale, f.offset, f.fileSourceID, f.guid1, f.guid2, f.guid3, f.guid4);
    };
    EXPECT_EQ(fieldsOf(written), fieldsOf(expected));
    EXPECT_STREQ(written.systemID.c_str(), expected.systemID.c_str());
}

class RealFiles : public ProgramTest
{
protected:
    std::string output(const std::string& name) const { return directory / name; }
};

TEST_F(RealFiles, AreReadCompletely)
{
    for (const std::string folder : {"data/las", "data/laz"})
        for (const std::string& path : filesIn(folder)) {
            SCOPED_TRACE(path);
            const LASFile file = LASFile::load(path);
            const auto reader = open(path);
            EXPECT_EQ(reader->getNumPoints(),
                      static_cast<std::int64_t>(file.count != 0 ? file.count : file.legacyCount));
            const Bounds& bounds = reader->getBounds();
            EXPECT_EQ((std::array<double, 3>{bounds.x.min, bounds.y.min, bounds.z.min}), file.min);
            EXPECT_EQ((std::array<double, 3>{bounds.x.max, bounds.y.max, bounds.z.max}), file.max);
            const auto points = readLASPoints(*reader);
            EXPECT_TRUE(points == (file.compressed ? readWithLASzip(path, file) : file.points));
            const std::string twin =
                shared("data/las/" + std::filesystem::path(path).stem().string() + ".las");
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
    for (const std::string& path : filesIn("data/las")) {
        SCOPED_TRACE(path);
        const LASFile file = LASFile::load(path);
        std::vector<LASBytes> expected;
        // EVLRs after the points become VLRs before them.
        for (const auto* records : {&file.records, &file.extendedRecords})
            for (const auto& record : *records)
                if (record.userID == "LASF_Projection" && (file.format < 6 || record.recordID < 34735))
                    expected.push_back(record.value);
        for (const char* name : {"out.las", "out.laz"}) {
            const LASFile written = rewrite(path, output(name));
            EXPECT_TRUE(readLASPoints(*open(output(name))) == file.points);
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
    for (const std::string& path : filesIn("data/broken")) {
        const std::string outcome = failureOf([&] {
            const auto points = readLASPoints(*open(path));
            EXPECT_TRUE(points == LASFile::load(path).points) << path;
        });
        const std::string refusal = "40606 Failed to create LASReader for path = '" + path + "': ";
        EXPECT_TRUE(outcome == "no error" || outcome.rfind(refusal, 0) == 0) << outcome;
    }
}

// Through a compressed file and back: all fields of the points are restored, the rest as the LAS writer does.
TEST_F(RealFiles, AreRestoredFromCompressedFiles)
{
    std::vector<std::string> paths = filesIn("data/las");
    for (const std::string& path : filesIn("data/laz"))
        paths.push_back(path);
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        ASSERT_EQ(run("vxpack -dropWaveforms -i " + path + " -o packed.vxl").status, 0);
        ASSERT_EQ(run("vxunpack -i packed.vxl -o out.las").status, 0);
        const LASFile original = LASFile::load(path), written = LASFile::load(output("out.las"));
        const LASFile expected = rewrite(path, output("twin.las"));
        EXPECT_TRUE(written.points ==
                    (original.compressed ? readWithLASzip(path, original) : original.points));
        expectSameHeader(written, expected);
        EXPECT_EQ(written.scale, original.scale);
        EXPECT_EQ(written.offset, original.offset);
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
    for (const std::string& path : {shared("vectors/files/autzen.vxl"), shared("vectors/files/color.vxl")}) {
        const bool isAutzen = path.find("autzen") != std::string::npos;
        const LASFile expected =
            LASFile::load(shared(isAutzen ? "data/las/autzen_trim.las" : "data/las/1.2-with-color.las"));
        for (const std::string name : {"out.las", "out.laz"}) {
            SCOPED_TRACE(path + ' ' + name);
            ASSERT_EQ(run("vxunpack -i " + path + " -o " + name).status, 0);
            const LASFile written = LASFile::load(output(name));
            EXPECT_EQ(written.scale, expected.scale);
            EXPECT_EQ(written.offset, expected.offset);
            EXPECT_EQ(written.legacyByReturn, expected.legacyByReturn);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                EXPECT_DOUBLE_EQ(written.min[axis], expected.min[axis]);
                EXPECT_DOUBLE_EQ(written.max[axis], expected.max[axis]);
            }
            EXPECT_EQ(written.compressed, name == "out.laz");
            EXPECT_TRUE(readLASPoints(*open(output(name))) == expected.points);
        }
    }
}

}} // namespace Quillmoran::Testing
