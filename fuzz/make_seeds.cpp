// Writes the inputs that fuzzing starts from: files of our own writers, in each form that a reader supports,
// and texts of each kind.
//
//   make_seeds DIRECTORY        writes DIRECTORY/TARGET/NAME
#include "encode/coders/SubblockWriter.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include "support/LASClouds.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/SampleCloud.h"
#include "support/TemporaryDirectory.h"
#include "utils/sets/TileSetFile.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/VX7PointWriter.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>

namespace Quillmoran::Fuzz {

namespace {

using Testing::Bytes;
using Testing::ByteStore;
using Testing::FilePlan;
using Testing::Random;
using Testing::SampleCloud;

class Seeds
{
public:
    explicit Seeds(std::filesystem::path root) : m_root(std::move(root)) {}

    void add(const std::string& target, const std::string& name, const Bytes& bytes) const
    {
        std::filesystem::create_directories(m_root / target);
        Testing::writeFile(m_root / target / name, bytes);
    }
    void add(const std::string& target, const std::string& name, const std::string& text) const
    {
        add(target, name, Bytes(text.begin(), text.end()));
    }

private:
    std::filesystem::path m_root;
};

// Choices of other writers of this format, one at a time.
void addFilesOfAllVersions(const Seeds& seeds)
{
    for (int i = 0; i < 24; ++i) {
        const SampleCloud cloud =
            SampleCloud::make(static_cast<std::size_t>(40 + 11 * i), static_cast<unsigned>(i));
        FilePlan plan = cloud.toFile();
        plan.version = static_cast<std::uint8_t>(1 + i % 4);
        plan.headerVersion = static_cast<std::uint8_t>(1 + i % 2);
        plan.bandVersion = static_cast<std::uint8_t>(1 + i / 4 % 3);
        plan.swapRanges = i % 5 == 4;
        plan.planeLengthsWithoutLifting = plan.version < 4 && i % 3 == 0;
        plan.numLevels = static_cast<std::uint32_t>(1 + i % 5);
        plan.extendedHeader = plan.version == 4;
        plan.wkt = "LOCAL_CS[\"grid\"]";
        plan.classNames = {"never", std::nullopt, "ground"};
        plan.metadata.add("Vendor", "who made it", METADATA_STRING, "somebody", 0);
        constexpr TransformType codes[] = {1, 3, 10, 11, 13, 81, 83, 90, 91, 93};
        for (std::size_t c = 0; c < 6; ++c) {
            plan.channels[c].transform = codes[(c + static_cast<std::size_t>(i)) % std::size(codes)];
            plan.channels[c].subblockSize = 16u << i % 4;
            plan.channels[c].rawPlanes = i % 3;
        }
        plan.channels.back().transform = static_cast<TransformType>(70 + i % 3 + (i % 3 == 2)); // 70, 71, 73
        cloud.addIndex(plan, static_cast<std::uint8_t>(1 + i % 2), 16);
        seeds.add("container", "version" + std::to_string(i), buildFile(plan));
    }
}

void addPackedFiles(const Seeds& seeds)
{
    Random random(1);
    for (int i = 0; i < 24; ++i) {
        const auto cloud = Testing::makeRandomCloud(random, 1 + random.below(400), 6);
        cloud->setWKT("LOCAL_CS[\"grid\"]");
        EncodeOptions options;
        options.numLevels = static_cast<std::uint32_t>(1 + i % 6);
        options.pointsPerEntry = 32;
        if (i % 2 != 0)
            options.all.subblockSize = 32;
        const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
        const Scoped<ByteStore> store(ByteStore::create());
        writer->init(cloud.get(), store.get());
        writer->setOptions(options);
        writer->write(Bounds::Huge(), 1.0, cloud->getPointInfo(), nullptr);
        seeds.add("container", "packed" + std::to_string(i), store->bytes());
    }
}

void append(Bytes& bytes, const Bytes& more)
{
    bytes.reserve(bytes.size() + more.size());
    std::copy(more.begin(), more.end(), std::back_inserter(bytes));
}

// The first bytes choose type, transform, size and mode; see targets/subblocks.cpp.
void addSubblocks(const Seeds& seeds)
{
    constexpr std::uint8_t modes = 3; // per-plane lengths, round trip
    Random random(2);
    int number = 0;
    for (std::uint8_t type = 0; type < 5; ++type) {
        for (std::uint8_t transform = 0; transform < 8; ++transform) {
            Bytes samples;
            for (int i = 0; i < 128; ++i)
                samples.push_back(static_cast<std::uint8_t>(i % 4 < 2 ? random.below(4) : 0));
            const std::string name = "subblock" + std::to_string(number++);
            Bytes trip = {type, transform, 31, 0, modes};
            append(trip, samples);
            seeds.add("subblocks", name + "-trip", trip);

            constexpr DataType types[] = {SINT16, SINT32, SINT64, FLOAT32, FLOAT64};
            constexpr TransformType codes[] = {1, 3, 10, 11, 13, 70, 90, 91};
            SubblockFormat format;
            format.type = types[type];
            format.transform = codes[transform];
            format.subblockSize = 16;
            try {
                const auto writer = SubblockWriter::create(format);
                Bytes headers, data;
                writer->encode(samples.data(), 16, headers, data);
                SubblockWriter::putZeroRun(format.transform, 3, headers);
                Bytes read = {type, transform, 15, 0, 4, static_cast<std::uint8_t>(headers.size())};
                append(read, headers);
                append(read, data);
                seeds.add("subblocks", name, read);
            } catch (const Error&) {
                // no such coder for the type, or the coder cannot hold the samples
            }
        }
    }
}

// Options, a layout and samples in any order; see targets/pack.cpp.
void addClouds(const Seeds& seeds)
{
    for (unsigned i = 0; i < 40; ++i) {
        Random random(100 + i);
        Bytes bytes;
        for (std::size_t size = 60 + random.below(300); size > 0; --size)
            bytes.push_back(static_cast<std::uint8_t>(random.below(i % 2 != 0 ? 256 : 5)));
        seeds.add("pack", "cloud" + std::to_string(i), bytes);
    }
}

Bytes written(const std::function<void(StreamWriter&)>& write)
{
    const Scoped<ByteStore> store(ByteStore::create());
    StreamWriter stream;
    stream.init(store.get(), true, 4096);
    write(stream);
    stream.close(true);
    return store->bytes();
}

void addTrees(const Seeds& seeds)
{
    const double scale[3] = {0.01, 0.01, 0.01};
    for (const int count : {0, 1, 9, 40, 300}) {
        Random random(static_cast<unsigned>(count));
        const Scoped<MemoryRTree> tree(MemoryRTree::create());
        const Bytes front(1 + 6 * sizeof(float), 0x42); // form and query; see targets/rtree.cpp
        Bytes memory = front;
        memory.front() = 1;
        Bytes disk = front;
        disk.front() = 0;
        const Bytes boxes = written([&](StreamWriter& stream) {
            stream.put_be(static_cast<std::uint32_t>(count));
            for (int i = 0; i < count; ++i) {
                Bounds box;
                for (Bounds::Range* range : {&box.x, &box.y, &box.z}) {
                    range->min = random.real() * 100;
                    range->max = range->min + random.real();
                    stream.put_be(range->min);
                    stream.put_be(range->max);
                }
                tree->insert(box, i);
            }
        });
        const Bytes saved = written([&](StreamWriter& stream) { tree->save(stream, scale); });
        append(memory, boxes);
        append(disk, saved);
        seeds.add("rtree", "memory" + std::to_string(count), memory);
        seeds.add("rtree", "disk" + std::to_string(count), disk);
    }
}

void addTileSets(const Seeds& seeds)
{
    for (const int count : {0, 1, 5, 30}) {
        TileSet set;
        set.srs = "LOCAL_CS[\"grid\"]";
        const Scoped<MemoryRTree> tree(MemoryRTree::create());
        for (int i = 0; i < count; ++i) {
            TileInfo tile;
            tile.path = ("tile" + std::to_string(i) + ".vxl").c_str();
            tile.bounds = {{10.0 * i, 10.0 * i + 10}, {0, 10}, {0, 10}};
            tile.numPoints = 3;
            set.tiles.push_back(tile);
            tree->insert(tile.bounds, i);
        }
        if (count > 1)
            set.overview = Overview{set.tiles.front(), 0.25};
        const double scale[3] = {0.01, 0.01, 0.01};
        const Scoped<ByteStore> store(ByteStore::create());
        TileSetFile::write(store.get(), set, *tree, scale);
        seeds.add("tileset", "tiles" + std::to_string(count), store->bytes());
    }
}

void addMetadata(const Seeds& seeds)
{
    Metadata metadata;
    seeds.add("metadata", "empty", written([&](StreamWriter& stream) { metadata.write(stream); }));
    const double values[3] = {1, -2.5, 1e300};
    metadata.add("Key", "what it is", METADATA_STRING, "a text", 0);
    metadata.add("Key", nullptr, METADATA_FLOAT64_ARRAY, values, 3);
    metadata.add("Blob", nullptr, METADATA_BLOB, "\1\2\3", 3);
    seeds.add("metadata", "records", written([&](StreamWriter& stream) { metadata.write(stream); }));
}

void addLASFiles(const Seeds& seeds)
{
    for (int format = 0; format <= 10; ++format) {
        const Testing::TemporaryDirectory directory;
        const Testing::LASBytes plain = Testing::randomLASFile(format, format < 6 ? 2 : 4, 30, 1).build();
        const std::string name = "format" + std::to_string(format);
        seeds.add("las", name, Bytes(plain.begin(), plain.end()));
        const std::string path = directory / "plain.las";
        const std::string compressed = directory / "compressed.laz";
        Testing::writeFile(path, plain);
        const Scoped<LASPointReader> reader(LASPointReader::create());
        reader->init(path.c_str(), true);
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(reader.get(), compressed.c_str(), format < 6 ? 12 : 14);
        writer->setWriteLAZ(true);
        writer->write(Bounds::Huge(), 1.0, reader->getPointInfo(), nullptr);
        seeds.add("las", name + "-compressed", Testing::readFile(compressed));
    }
}

void addTexts(const Seeds& seeds)
{
    const std::string points = "1.5 2.5 3.5 7\n-1e3,4,5,8 # a comment\n\n0x10 inf nan 9\n1 2 3 65536\n";
    seeds.add("text", "coordinates", "xyzi\nxy@0.01,z@0.001\nIntensity,7,include\n" + points);
    seeds.add("text", "skipped", "xsyz\n\n\n1 text 2 3\n4 'more text' 5 6\n");
    seeds.add("text", "all", "xyzirnescaAuptRGB\nt@1e-6\nClassId,2,exclude\n" + points);
    seeds.add("list", "files", std::string("a.vxl\n/b.las\n c d.laz \nself.list\npoints.txt\n\r\n"));
    seeds.add("list", "unknown", std::string("null\n\n"));
    for (const char* arguments : {"-c\n0\n10\n0\n10\n-inf\n+inf\n-s\n4\nfile", "-h", "-help\ncrop", "-v",
                                  "-V\n-j\n2\n-ofld\nxyzi\na\nb", "-filter\nIntensity,7,include\n-d\n3",
                                  "-parse\nxyzi\n-skip\n2\nname", "-b\ntrue\n-si\n-5\n-ua\n1\n-ua\n0x10",
                                  "-sa\n1\n2\n-rest\na\n-b", "--crop\n1", "-unknown"})
        seeds.add("commandline", std::to_string(std::hash<std::string>()(arguments)), std::string(arguments));
}

} // namespace

} // namespace Quillmoran::Fuzz

int main(int argc, char** argv)
{
    using namespace Quillmoran::Fuzz;
    if (argc != 2) {
        std::fprintf(stderr, "make_seeds DIRECTORY\n");
        return 1;
    }
    try {
        const Seeds seeds(argv[1]);
        addFilesOfAllVersions(seeds);
        addPackedFiles(seeds);
        addSubblocks(seeds);
        addClouds(seeds);
        addTrees(seeds);
        addTileSets(seeds);
        addMetadata(seeds);
        addLASFiles(seeds);
        addTexts(seeds);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
