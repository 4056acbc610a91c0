#include "robustness/DamagedKinds.h"

#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "pdal/PDALFormats.h"
#include "platform/Stream.h"
#include "support/LASClouds.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/SampleCloud.h"
#include "support/TileFiles.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/PersistentPointSourceWriter.h>
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/VX7PointWriter.h>

#include <laszip/laszip_api.h>
#include <sstream>

namespace Quillmoran::Testing {

namespace {

using FileBytes = DamagedKind::FileBytes;

FileBytes bytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

// Ends queries of files that claim a huge number of points.
class Patience final : public ProgressDelegate
{
public:
    void reportProgress(double, const char*) override {}
    bool getCancelled() override { return ++m_questions > 1000; }

private:
    int m_questions = 0;
};

void query(const PointSource& source, const PointInfo& layout, const Bounds& box, double fraction)
{
    constexpr std::size_t maxPoints = 3000;
    Patience patience;
    const Scoped<PointIterator> iterator(source.createIterator(box, fraction, layout, &patience));
    PointData block;
    block.init(layout, 64);
    try {
        std::size_t got = 1;
        for (std::size_t count = 0; got != 0 && count < maxPoints; count += got)
            got = iterator->getNextPoints(block);
    } catch (const Error&) {
        // A caller may call it again after the end.
        try {
            iterator->getNextPoints(block);
        } catch (const Error&) {
        }
        throw;
    }
}

void readSource(const PointSource& source)
{
    Metadata metadata;
    source.loadMetadata(metadata, false);
    source.loadMetadata(metadata, true);
    source.getWKT();
    source.getScale();
    std::size_t named = 0;
    for (std::size_t i = 0; i < source.getNumClassIdNames(); ++i)
        named += source.getClassIdNames()[i] ? std::strlen(source.getClassIdNames()[i]) : 0;
    static_cast<void>(named);
    Bounds box = source.getBounds();
    for (Bounds::Range* range : {&box.x, &box.y, &box.z})
        range->max = range->min + (range->max - range->min) / 2;
    source.getTotalWork(box, 0.1);
    query(source, source.getPointInfo(), Bounds::Huge(), 1);
    query(source, source.getPointInfo(), box, 1);
    PointInfo coordinates;
    for (const char* name : {"X", "Y", "Z"})
        if (const ChannelInfo* info = source.getChannel(name))
            coordinates.append(*info);
    query(source, coordinates, Bounds::Huge(), 0.05);
}

void readByName(const std::string& path)
{
    PointInfo columns;
    for (const char* name : {"X", "Y", "Z", "GPSTime"}) {
        ChannelInfo info;
        info.init(name, FLOAT64, 0, 0);
        columns.append(info);
    }
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    files->setTextOptions(false, columns, 0);
    files->addFile(path.c_str());
    for (std::size_t i = 0; i < files->getNumSources(); ++i)
        readSource(*Scoped<PointSource>(files->createPointSource(i)));
}

// Waveforms are skipped here, while the programs reject them.
void readLAS(const std::string& path)
{
    const Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init(path.c_str(), true);
    readSource(*reader);
}

void readTree(const std::string& path)
{
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(path.c_str(), "r");
    StreamReader reader;
    reader.init(file.get(), true, 64);
    const Scoped<DiskRTree> tree(DiskRTree::create());
    tree->init(reader, file->size());
    const Bounds all = tree->getBounds();
    const Bounds some{{all.x.min, (all.x.min + all.x.max) / 2}, all.y, all.z};
    for (const Bounds& box : {all, some}) {
        const Scoped<RTree::Iterator> walk(tree->createIterator());
        for (std::int64_t value; walk->next(box, value);)
            ;
    }
}

// A file with all optional parts.
FilePlan wholePlan(std::size_t count)
{
    const SampleCloud cloud = SampleCloud::make(count, 5);
    FilePlan plan = cloud.toFile();
    plan.numLevels = 2;
    plan.wkt = "LOCAL_CS";
    plan.classNames = {std::string("a"), std::nullopt, std::string("Ground")};
    plan.extendedHeader = true;
    const double value = 100;
    plan.metadata.add("PreCompressionPointCount", "count", METADATA_FLOAT64_ARRAY, &value, 1);
    cloud.addIndex(plan, 2, 10);
    return plan;
}

FileBytes makeNewVX7(const TemporaryDirectory&)
{
    return buildFile(wholePlan(100));
}

FileBytes makeOldVX7(const TemporaryDirectory&)
{
    FilePlan plan = wholePlan(100);
    plan.headerVersion = plan.bandVersion = plan.indexVersion = 1;
    return buildFile(plan);
}

// The transforms that the other two do not use, and byte ranges in the other order.
FileBytes makeLiftedVX7(const TemporaryDirectory&)
{
    FilePlan plan = wholePlan(60);
    plan.swapRanges = true;
    plan.bandVersion = 2;
    const TransformType integers[] = {3, 11, 13, 3, 81, 93, 11, 3, 83};
    for (std::size_t i = 0; i < plan.channels.size(); ++i)
        plan.channels[i].transform = plan.channels[i].reals.empty() ? integers[i % 9] : 63;
    return buildFile(plan);
}

FileBytes makeWrittenVX7(const TemporaryDirectory&)
{
    Random random(11);
    const auto cloud = makeRandomCloud(random, 150, 6);
    const Scoped<ByteStore> store(ByteStore::create());
    const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
    writer->init(cloud.get(), store.get());
    writer->write(Bounds::Huge(), 1, cloud->getPointInfo(), nullptr);
    return store->bytes();
}

LASFile recordsAndPoints(int format, int minor)
{
    LASFile file = randomLASFile(format, minor, 30, static_cast<std::uint64_t>(format));
    file.records = {{"LASF_Projection", 34735, "", LASBytes(24, 1)}, {"user", 2, "some", LASBytes(10)}};
    if (minor == 4) {
        file.globalEncoding = 16;
        file.extendedRecords = {{"LASF_Projection", 2112, "", {'L', 'O', 'C'}}, {"x", 3, "", LASBytes(40)}};
    }
    return file;
}

template <int format, int minor>
FileBytes makeLAS(const TemporaryDirectory&)
{
    return recordsAndPoints(format, minor).build();
}

template <int format, int minor>
FileBytes makeWrittenLAZ(const TemporaryDirectory& directory)
{
    writeFile(directory / "source.las", makeLAS<format, minor>(directory));
    const Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init((directory / "source.las").c_str(), true);
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    writer->init(reader.get(), (directory / "written.laz").c_str(), 10 + minor);
    writer->setWriteLAZ(true);
    writer->write(Bounds::Huge(), 1, reader->getPointInfo(), nullptr);
    return bytesOf(readFile(directory / "written.laz"));
}

// Features that LASPointWriter does not write: several chunks, extra bytes, waveforms.
template <int format, int minor>
FileBytes makeChunkedLAZ(const TemporaryDirectory&)
{
    constexpr unsigned extraBytes = 3, chunkSize = 12, count = 40;
    laszip_POINTER laszip = nullptr;
    laszip_header_struct* header = nullptr;
    laszip_point_struct* point = nullptr;
    laszip_create(&laszip);
    laszip_request_native_extension(laszip, 1);
    laszip_get_header_pointer(laszip, &header);
    header->version_major = 1;
    header->version_minor = minor;
    header->header_size = minor == 4 ? 375 : minor == 3 ? 235 : 227;
    header->offset_to_point_data = header->header_size;
    header->point_data_format = format;
    header->point_data_record_length = static_cast<laszip_U16>(LASFile::recordBytes(format) + extraBytes);
    header->x_scale_factor = header->y_scale_factor = header->z_scale_factor = 0.01;
    header->number_of_point_records = format < 6 ? count : 0;
    header->extended_number_of_point_records = count;
    laszip_set_chunk_size(laszip, chunkSize);
    std::ostringstream stream;
    laszip_open_writer_stream(laszip, stream, 1, 0);
    laszip_get_point_pointer(laszip, &point);
    Random random(format);
    for (unsigned i = 0; i < count; ++i) {
        point->X = static_cast<laszip_I32>(random.below(1000));
        point->Y = static_cast<laszip_I32>(i);
        point->intensity = static_cast<laszip_U16>(random.below(100));
        point->extended_point_type = format > 5;
        point->extended_scanner_channel = i % 5 == 0;
        point->number_of_returns = (1 + i % 3) & 7;
        point->extended_number_of_returns = (1 + i % 3) & 15;
        point->extended_return_number = point->return_number = 1;
        point->gps_time = i * 1.5;
        for (laszip_U16& colour : point->rgb)
            colour = static_cast<laszip_U16>(random.below(9));
        for (laszip_U8& byte : point->wave_packet)
            byte = static_cast<laszip_U8>(random.below(4));
        for (unsigned k = 0; k < extraBytes; ++k)
            point->extra_bytes[k] = static_cast<laszip_U8>(random.below(3));
        laszip_write_point(laszip);
        laszip_update_inventory(laszip);
    }
    laszip_close_writer(laszip);
    laszip_destroy(laszip);
    return bytesOf(stream.str());
}

FileBytes makeText(const TemporaryDirectory&)
{
    std::ostringstream text;
    text.precision(15);
    text << "# x y z time\n";
    for (int i = 0; i < 20; ++i)
        text << 500000.25 + i << " " << i * 1e-3 << ", " << -i << "\t" << 1e300 * i << "\n";
    return bytesOf(text.str());
}

#if HAS_PDAL
FileBytes makeBPF(const TemporaryDirectory& directory)
{
    const auto tile = openFile(buildTile(0, 0, 50));
    const Scoped<PointWriter> writer(createPDALPointWriter(tile.get(), (directory / "made.bpf").c_str()));
    writer->write(Bounds::Huge(), 1, tile->getPointInfo(), nullptr);
    return bytesOf(readFile(directory / "made.bpf"));
}
#endif

FileBytes makeList(const TemporaryDirectory& directory)
{
    writeFile(directory / "a.vxl", buildTile(0, 0));
    writeFile(directory / "b.las", makeLAS<0, 2>(directory));
    writeFile(directory / "c.txt", makeText(directory));
    writeFile(directory / "d.list", "a.vxl\nb.las\n");
    return bytesOf("a.vxl\nb.las\n c.txt\nd.list\n");
}

FileBytes makeTileIndex(const TemporaryDirectory& directory)
{
    const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
    const Scoped<PersistentPointSourceWriter> index(PersistentPointSourceWriter::create());
    index->init(opener.get());
    for (int i = 0; i < 13; ++i) {
        const std::string path = directory / ("t" + std::to_string(i) + ".vxl");
        writeFile(path, buildTile(i % 4 * 10, i / 4 * 10, 5));
        index->add(path.c_str());
    }
    writeFile(directory / "small.vxl", buildTile(0, 0, 3));
    index->setOverview((directory / "small.vxl").c_str(), 0.1);
    index->write((directory / "made.index").c_str());
    return bytesOf(readFile(directory / "made.index"));
}

FileBytes makeTree(const TemporaryDirectory& directory)
{
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (int i = 0; i < 60; ++i)
        tree->insert({{i % 8 * 1.0, i % 8 + 2.0}, {i / 8 * 1.0, i / 8 + 1.0}, {0, 1.0 * i}}, i);
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init((directory / "made.tree").c_str(), "w");
    StreamWriter writer;
    writer.init(file.get(), true, 4096);
    const double scale[] = {1, 1, 1};
    tree->save(writer, scale);
    writer.close(true);
    return bytesOf(readFile(directory / "made.tree"));
}

} // namespace

const std::vector<DamagedKind>& damagedKinds()
{
    static const std::vector<DamagedKind> kinds = {
        {"new.vxl", makeNewVX7, 1, readByName},
        {"old.vxl", makeOldVX7, 1, readByName},
        {"lifted.vxl", makeLiftedVX7, 1, readByName},
        {"written.vxl", makeWrittenVX7, 1, readByName},
        {"format_0.las", makeLAS<0, 2>, 1, readLAS},
        {"format_5.las", makeLAS<5, 3>, 1, readLAS},
        {"format_10.las", makeLAS<10, 4>, 1, readLAS},
        {"format_1.laz", makeWrittenLAZ<1, 2>, 6, readLAS},
        {"format_8.laz", makeWrittenLAZ<8, 4>, 6, readLAS},
        {"chunked_3.laz", makeChunkedLAZ<3, 2>, 6, readLAS},
        {"chunked_5.laz", makeChunkedLAZ<5, 3>, 6, readLAS},
        {"chunked_6.laz", makeChunkedLAZ<6, 4>, 6, readLAS},
        {"chunked_10.laz", makeChunkedLAZ<10, 4>, 6, readLAS},
        {"points.txt", makeText, 1, readByName},
        {"files.list", makeList, 1, readByName},
        {"tiles.index", makeTileIndex, 3, readByName},
        {"boxes.tree", makeTree, 1, readTree},
#if HAS_PDAL
        {"points.bpf", makeBPF, 1, readByName},
#endif
    };
    return kinds;
}

} // namespace Quillmoran::Testing
