#include "support/SampleFiles.h"

#include "index/MemoryRTree.h"
#include "support/LASClouds.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/SampleCloud.h"
#include "utils/sets/TileSetFile.h"

#include <laszip/laszip_api.h>
#include <sstream>

namespace Quillmoran::Testing {

namespace {

Bytes bytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

// Choices of other writers of this format: each i is another combination of versions, coders and levels.
template <unsigned i>
Bytes makeVersion()
{
    const SampleCloud cloud = SampleCloud::make(40 + 11 * i, i);
    FilePlan plan = cloud.toFile();
    plan.version = static_cast<std::uint8_t>(1 + i % 4);
    plan.headerVersion = static_cast<std::uint8_t>(1 + i % 2);
    plan.bandVersion = static_cast<std::uint8_t>(1 + i / 4 % 3);
    plan.swapRanges = i % 5 == 4;
    plan.planeLengthsWithoutLifting = plan.version < 4 && i % 3 == 0;
    plan.numLevels = 1 + i % 5;
    plan.extendedHeader = plan.version == 4;
    plan.wkt = "LOCAL_CS[\"grid\"]";
    plan.classNames = {"never", std::nullopt, "ground"};
    plan.metadata.add("Vendor", "who made it", METADATA_STRING, "somebody", 0);
    const double value = 100;
    plan.metadata.add("PreCompressionPointCount", "count", METADATA_FLOAT64_ARRAY, &value, 1);
    constexpr TransformType integers[] = {1, 3, 10, 11, 13, 81, 83, 90, 91, 93},
                            reals[] = {70, 71, 73, 61, 63};
    for (unsigned c = 0; c < 6; ++c) { // the others are parts of times, which not all coders can hold
        plan.channels[c].transform = integers[(c + i) % std::size(integers)];
        plan.channels[c].subblockSize = 16u << i % 4;
        plan.channels[c].rawPlanes = i % 3;
    }
    plan.channels.back().transform = reals[i % std::size(reals)];
    cloud.addIndex(plan, static_cast<std::uint8_t>(1 + i % 2), 16);
    return buildFile(plan);
}

Bytes makePacked()
{
    Random random(11);
    return packWith(*makeRandomCloud(random, 150, 6));
}

template <int format, int minor>
Bytes makeLAS()
{
    LASFile file = randomLASFile(format, minor, 30, format);
    file.records = {{"LASF_Projection", 34735, "", LASBytes(24, 1)}, {"user", 2, "some", LASBytes(10)}};
    if (minor == 4) {
        file.globalEncoding = 16;
        file.extendedRecords = {{"LASF_Projection", 2112, "", {'L', 'O', 'C'}}, {"x", 3, "", LASBytes(40)}};
    }
    return file.build();
}

// LASPointWriter does not write several chunks, extra bytes and waveforms.
template <int format, int minor>
Bytes makeChunkedLAZ()
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

// Format, quantization, filter and table; see fuzz/targets/text.cpp.
Bytes makeText()
{
    std::ostringstream text;
    text.precision(15);
    text << "xyztu\nxy@0.01,z@0.001\nUserData,7,exclude\n# x y z time\n";
    for (int i = 0; i < 20; ++i)
        text << 500000.25 + i << " " << i * 1e-3 << ", " << -i << "\t" << 1e300 * i << " " << i << "\n";
    return bytesOf(text.str());
}

Bytes makeList()
{
    return bytesOf("a.vxl\n/b.las\n c d.laz \r\npoints.txt\ntiles.index\n");
}

constexpr double scale[3] = {0.01, 0.01, 0.01};

Bounds boxAt(unsigned i)
{
    return {{i % 4 * 10.0, i % 4 * 10.0 + 12}, {i / 4 * 10.0, i / 4 * 10.0 + 10}, {0, 1.0 * i}};
}

Scoped<MemoryRTree> treeOf(unsigned count)
{
    Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (unsigned i = 0; i < count; ++i)
        tree->insert(boxAt(i), i);
    return tree;
}

Bytes makeTileSet()
{
    constexpr unsigned count = 13;
    TileSet set;
    set.srs = "LOCAL_CS[\"grid\"]";
    for (unsigned i = 0; i < count; ++i) {
        TileInfo& tile = set.tiles.emplace_back();
        tile.path = ("tile" + std::to_string(i) + ".vxl").c_str();
        tile.bounds = boxAt(i);
        tile.numPoints = 3;
    }
    set.overview = Overview{set.tiles.front(), 0.25};
    const auto store = ByteStore::make();
    TileSetFile::write(store.get(), set, *treeOf(count), scale);
    return store->bytes();
}

// The form and a query, then the tree; see fuzz/targets/rtree.cpp.
template <bool isMemoryForm>
Bytes makeTree()
{
    constexpr std::uint32_t count = 60;
    return writtenBytes([](StreamWriter& stream) {
        stream.put_be(static_cast<std::uint8_t>(isMemoryForm));
        const float box[] = {0, 40, 0, 500, 0, 50};
        stream.write(box, sizeof box);
        if (!isMemoryForm)
            return treeOf(count)->save(stream, scale);
        stream.put_be(count);
        for (unsigned i = 0; i < count; ++i) {
            const Bounds tile = boxAt(i);
            for (const Bounds::Range& range : {tile.x, tile.y, tile.z}) {
                stream.put_be(range.min);
                stream.put_be(range.max);
            }
        }
    });
}

Bytes makeMetadata()
{
    Metadata metadata;
    const double values[3] = {1, -2.5, 1e300};
    metadata.add("Key", "what it is", METADATA_STRING, "a text", 0);
    metadata.add("Key", nullptr, METADATA_FLOAT64_ARRAY, values, 3);
    metadata.add("Blob", nullptr, METADATA_BLOB, "\1\2\3", 3);
    return writtenBytes([&](StreamWriter& stream) { metadata.write(stream); });
}

// The answer to a request for some ranges of a file of 4096 bytes.
template <bool hasMany>
Bytes makeHTTPAnswer()
{
    std::string text = "HTTP/1.1 206 Partial Content\r\nETag: \"a\"\r\n";
    const auto addPart = [&](std::size_t first, std::size_t length) {
        text += "Content-Range: bytes " + std::to_string(first) + '-' + std::to_string(first + length - 1) +
                "/4096\r\n\r\n" + std::string(length, 'x');
    };
    if (hasMany) {
        text += "Content-Type: multipart/byteranges; boundary=bound\r\n\r\n";
        for (const std::size_t first : {0, 1000}) {
            text += "\r\n--bound\r\nContent-Type: text/plain\r\n";
            addPart(first, 150);
        }
        text += "\r\n--bound--\r\n";
    } else {
        addPart(0, 150);
    }
    return {text.begin(), text.end()};
}

constexpr SampleFile files[] = {
    {"container", "version0", makeVersion<0>},
    {"container", "version4", makeVersion<4>},
    {"container", "version5", makeVersion<5>},
    {"container", "version10", makeVersion<10>},
    {"container", "version11", makeVersion<11>},
    {"container", "version19", makeVersion<19>},
    {"container", "packed", makePacked},
    {"http", "one", makeHTTPAnswer<false>},
    {"http", "many", makeHTTPAnswer<true>},
    {"las", "format0", makeLAS<0, 2>},
    {"las", "format5", makeLAS<5, 3>},
    {"las", "format10", makeLAS<10, 4>},
    {"las", "chunked3", makeChunkedLAZ<3, 2>, 6},
    {"las", "chunked5", makeChunkedLAZ<5, 3>, 6},
    {"las", "chunked6", makeChunkedLAZ<6, 4>, 6},
    {"las", "chunked10", makeChunkedLAZ<10, 4>, 6},
    {"list", "files", makeList},
    {"metadata", "records", makeMetadata},
    {"rtree", "disk", makeTree<false>},
    {"rtree", "memory", makeTree<true>},
    {"text", "points", makeText},
    {"tileset", "tiles", makeTileSet, 3},
};

} // namespace

std::span<const SampleFile> sampleFiles()
{
    return files;
}

} // namespace Quillmoran::Testing
