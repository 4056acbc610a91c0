#include "utils/sets/TileSetFile.h"

#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/Layouts.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::ByteStore;
using Testing::errorOf;
using Testing::failureOf;

// Builds a file field by field.
struct IndexBytes
{
    std::string bytes;

    IndexBytes& number(std::uint64_t value, int size)
    {
        while (size-- > 0)
            bytes += static_cast<char>(value >> (8 * size));
        return *this;
    }
    IndexBytes& real(double value)
    {
        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        return number(bits, 8);
    }
    IndexBytes& text(const std::string& value)
    {
        number(value.size(), 2);
        bytes += value;
        return *this;
    }
    IndexBytes& bounds(double low, double high)
    {
        for (int axis = 0; axis < 3; ++axis)
            real(low).real(high);
        return *this;
    }
    IndexBytes& tile(const std::string& path, std::uint64_t timestamp, double low, double high,
                     unsigned count)
    {
        return text(path).number(timestamp, 8).bounds(low, high).number(count, 8);
    }
    IndexBytes& packet(const std::string& name, const std::string& payload)
    {
        bytes += name;
        number(payload.size(), 4);
        bytes += payload;
        return *this;
    }
};

std::string infoPayload()
{
    IndexBytes info;
    info.text("EPSG:1").number(3, 2);
    for (const char* name : {"X", "Y", "Z"})
        info.text(name).number(FLOAT64, 2).number(32, 2).real(0.01);
    info.number(7, 8).text("WKT").bounds(0, 9);
    for (int axis = 0; axis < 3; ++axis)
        info.real(0.01).real(5);
    return info.number(2, 2).text("ground").text("").bytes;
}

std::string overviewPayload(double fraction = 0.25)
{
    return IndexBytes().tile("o.vxl", 3, 0, 9, 2).real(fraction).bytes;
}

std::string pathPayload()
{
    return IndexBytes()
        .number(2, 4)
        .tile("a.vxl", 1, 0, 4, 3)
        .tile("d/b.vxl", static_cast<std::uint64_t>(-2), 5, 9, 4)
        .bytes;
}

// The tree on a grid of whole numbers.
std::string treePayload()
{
    IndexBytes tree;
    tree.number(10, 1).number(0, 1).number(2, 4);
    for (int axis = 0; axis < 3; ++axis)
        tree.real(1).real(0);
    tree.number(2, 1);
    for (int value = 0; value < 2; ++value) {
        for (int axis = 0; axis < 3; ++axis)
            tree.number(value == 0 ? 0 : 5, 4).number(value == 0 ? 4 : 9, 4);
        tree.number(static_cast<std::uint64_t>(value), 4);
    }
    tree.bytes.resize(54 + 281);
    return tree.bytes;
}

std::string start(unsigned version = 2)
{
    IndexBytes file;
    file.bytes = "rtre";
    return file.number(version, 4).bytes;
}

std::string wholeFile()
{
    IndexBytes file{start()};
    return file.packet("info", infoPayload())
        .packet("over", overviewPayload())
        .packet("path", pathPayload())
        .packet("tree", treePayload())
        .bytes;
}

struct Read
{
    explicit Read(const std::string& bytes) { TileSetFile::read(ByteStore::make(bytes).get(), set, *tree); }

    // The values of all boxes that contain a point.
    std::vector<std::int64_t> valuesAt(double at) const
    {
        const Scoped<RTree::Iterator> walk(tree->createIterator());
        std::vector<std::int64_t> values;
        for (std::int64_t value = 0; walk->next(at, at, at, value);)
            values.push_back(value);
        return values;
    }

    TileSet set;
    Scoped<DiskRTree> tree{DiskRTree::create()};
};

std::string failure(const std::string& bytes)
{
    return failureOf([&] { Read read(bytes); });
}

TEST(TileSetFile, ReadsEveryField)
{
    const Read read(wholeFile());
    const TileSet& set = read.set;
    EXPECT_EQ(set.srs, "EPSG:1");
    EXPECT_TRUE(set.info->getPointInfo().hasValidXYZ());
    EXPECT_EQ(set.info->getPointInfo().getChannel(2).getQuantization(), 0.01);
    EXPECT_EQ(set.info->getPointInfo().getChannel(2).getBits(), 32);
    EXPECT_EQ(set.info->getNumPoints(), 7);
    EXPECT_STREQ(set.info->getWKT(), "WKT");
    EXPECT_EQ(set.info->getBounds(), (Bounds{{0, 9}, {0, 9}, {0, 9}}));
    EXPECT_EQ(set.info->getOffset()[2], 5);
    ASSERT_EQ(set.info->getNumClassIdNames(), 2u);
    EXPECT_STREQ(set.info->getClassIdNames()[0], "ground");
    EXPECT_EQ(set.info->getClassIdNames()[1], nullptr);
    ASSERT_TRUE(set.overview);
    EXPECT_EQ(set.overview->fraction, 0.25);
    EXPECT_EQ(set.overview->tile.timestamp, 3);
    ASSERT_EQ(set.tiles.size(), 2u);
    EXPECT_STREQ(set.tiles[1].path.c_str(), "d/b.vxl");
    EXPECT_EQ(set.tiles[1].timestamp, -2);
    EXPECT_EQ(set.tiles[1].numPoints, 4);
    EXPECT_EQ(set.tiles[1].bounds.z.min, 5);
    EXPECT_EQ(read.valuesAt(3), (std::vector<std::int64_t>{0}));
    EXPECT_EQ(read.valuesAt(9), (std::vector<std::int64_t>{1}));
}

TEST(TileSetFile, WritesTheSameBytes)
{
    const Read read(wholeFile());
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (std::size_t i = 0; i < 2; ++i)
        tree->insert(read.set.tiles[i].bounds, static_cast<std::int64_t>(i));
    const double steps[] = {1, 1, 1};
    const auto store = ByteStore::make();
    TileSetFile::write(store.get(), read.set, *tree, steps);
    EXPECT_EQ(store->text(), wholeFile());
    EXPECT_EQ(store->openCount(), 0);

    TileSet plain;
    const auto empty = ByteStore::make();
    TileSetFile::write(empty.get(), plain, *Scoped<MemoryRTree>(MemoryRTree::create()), steps);
    EXPECT_EQ(empty->text().find("over"), std::string::npos);
    const Read back(empty->text());
    EXPECT_EQ(back.set.srs, "");
    EXPECT_EQ(back.set.info->getWKT(), nullptr);
    EXPECT_FALSE(back.set.overview);
    EXPECT_TRUE(back.set.tiles.empty());
}

TEST(TileSetFile, SkipsUnknownPackets)
{
    IndexBytes file{start(0)};
    file.packet("new1", "ignored").packet("info", infoPayload() + "more").packet("new2", "");
    file.packet("path", pathPayload()).packet("new3", std::string(10000, 'x')).packet("tree", treePayload());
    const Read read(file.bytes + "trailing");
    EXPECT_EQ(read.set.tiles.size(), 2u);
    EXPECT_FALSE(read.set.overview);
    EXPECT_EQ(read.valuesAt(9), (std::vector<std::int64_t>{1}));
}

TEST(TileSetFile, ReportsErrors)
{
    const std::string cut = "5 Input/output error: failed reading: ";
    EXPECT_EQ(failure(""), "-1 bad magic");
    EXPECT_EQ(failure("rtrf\0\0\0\2"), "-1 bad magic");
    EXPECT_EQ(failure("rtre\0"), cut + "version");
    EXPECT_EQ(failure(start(3)), "-1 unsupported version");
    EXPECT_EQ(failure(start()), cut + "'info' packet name");
    EXPECT_EQ(failure(start() + "info"), cut + "'info' packet length");
    EXPECT_EQ(failure(IndexBytes{start()}.packet("path", pathPayload()).bytes),
              "-1 unknown chunk name 'path' was expecting 'info'");
    const std::string info = IndexBytes{start()}.packet("info", infoPayload()).bytes;
    EXPECT_EQ(failure(info), cut + "'path' packet name");
    EXPECT_EQ(failure(IndexBytes{info}.packet("tree", treePayload()).bytes),
              "-1 unknown chunk name 'tree' was expecting 'path'");
    for (const double fraction : {0.0, -0.5, 1.001, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(failure(IndexBytes{info}.packet("over", overviewPayload(fraction)).bytes),
                  "-1 failed reading: overview fraction");
    EXPECT_EQ(failure(IndexBytes{info}.packet("path", pathPayload()).packet("info", infoPayload()).bytes),
              "-1 unknown chunk name 'info' was expecting 'tree'");
}

TEST(TileSetFile, RefusesEveryTruncation)
{
    const std::string whole = wholeFile();
    const std::size_t tree = whole.size() - treePayload().size(); // where its payload begins
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_NE(failure(whole.substr(0, length)), "no error") << length;
        if (length >= tree) {
            EXPECT_EQ(failure(whole.substr(0, length)), "-1 failed reading: 'tree' packet length");
        }
    }
    // Truncated packets, followed by more of the file.
    const std::string payloads[] = {infoPayload(), overviewPayload(), pathPayload(),
                                    treePayload().substr(0, 111)};
    const char* const names[] = {"info", "over", "path", "tree"};
    for (std::size_t cutPacket = 0; cutPacket < 4; ++cutPacket)
        for (std::size_t length = 0; length < payloads[cutPacket].size(); ++length) {
            IndexBytes file{start()};
            for (std::size_t i = 0; i < 4; ++i)
                file.packet(names[i], i == cutPacket ? payloads[i].substr(0, length) : payloads[i]);
            EXPECT_NE(failure(file.bytes + std::string(1000, '\1')), "no error")
                << names[cutPacket] << length;
        }
}

TEST(TileSetFile, ChecksCountsAgainstTheSizeOfTheFile)
{
    // Sets every 1, 2, 4 and 8 bytes to the largest signed and unsigned count. The result must be an error or a
    // set no larger than the file.
    const std::string whole = wholeFile();
    for (std::size_t at = 8; at < whole.size(); ++at)
        for (const std::size_t size : {1u, 2u, 4u, 8u})
            for (const char first : {'\x7F', '\xFF'}) {
                std::string bytes = whole;
                for (std::size_t i = 0; i < size && at + i < bytes.size(); ++i)
                    bytes[at + i] = i == 0 ? first : '\xFF';
                try {
                    const Read read(bytes);
                    EXPECT_LE(read.set.tiles.size(), whole.size() / 66);
                    read.valuesAt(3);
                } catch (const Error&) {
                    continue;
                }
            }
    const auto huge = [](std::string payload, std::size_t at, std::size_t size) {
        return payload.replace(at, size, std::string(size, '\xFF'));
    };
    IndexBytes info{start()};
    EXPECT_EQ(failure(info.packet("info", huge(infoPayload(), 8, 2)).bytes),
              "-1 failed reading: number of channels");
    IndexBytes path{start()};
    path.packet("info", infoPayload()).packet("path", huge(pathPayload(), 0, 4));
    EXPECT_EQ(failure(path.bytes), "-1 failed reading: number of files");
    IndexBytes open{start() + "info" + "\xFF\xFF\xFF\xFF" + infoPayload()};
    EXPECT_EQ(failure(open.bytes), "-1 failed reading: 'info' packet length");
}

TEST(TileSetFile, RefusesTextsThatAreTooLong)
{
    const double steps[] = {1, 1, 1};
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    const auto writing = [&](const TileSet& set) {
        return failureOf([&] { TileSetFile::write(ByteStore::make().get(), set, *tree, steps); });
    };
    TileSet set;
    set.tiles.resize(1);
    set.tiles[0].path = std::string(65535, 'a');
    EXPECT_EQ(writing(set), "no error");
    set.tiles[0].path = std::string(65536, 'a');
    EXPECT_EQ(writing(set), "-1 failed writing: path: string is too long");
    const auto full = ByteStore::make();
    full->setCapacity(100);
    EXPECT_EQ(errorOf(40002, [&] { TileSetFile::write(full.get(), TileSet(), *tree, steps); }),
              "write error");
}

} // namespace
} // namespace Quillmoran
