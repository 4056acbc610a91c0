#include "utils/sets/TileSetFile.h"

#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

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
    // The three axes differ by 100.
    IndexBytes& bounds(double low, double high)
    {
        for (int axis = 0; axis < 3; ++axis)
            real(low + 100 * axis).real(high + 100 * axis);
        return *this;
    }
    IndexBytes& tile(const std::string& path, std::uint64_t timestamp, double low, double high,
                     std::uint64_t count)
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

std::string infoPayload(std::uint64_t count = 7)
{
    IndexBytes info;
    info.text("EPSG:1").number(3, 2);
    for (const char* name : {"X", "Y", "Z"})
        info.text(name).number(FLOAT64, 2).number(32, 2).real(0.01);
    info.number(count, 8).text("WKT").bounds(0, 9);
    for (int axis = 0; axis < 3; ++axis)
        info.real(0.01 * (axis + 1)).real(5 + axis);
    return info.number(2, 2).text("ground").text("").bytes;
}

std::string overviewPayload(double fraction = 0.25, std::uint64_t count = 2)
{
    return IndexBytes().tile("o.vxl", 3, 0, 9, count).real(fraction).bytes;
}

std::string pathPayload(std::uint64_t count = 4)
{
    IndexBytes path;
    path.number(2, 4).tile("a.vxl", 1, 0, 4, 3);
    return path.tile("d/b.vxl", std::uint64_t(-2), 5, 9, count).bytes;
}

// The tree on a grid of whole numbers.
std::string treePayload()
{
    IndexBytes tree;
    tree.number(10, 1).number(0, 1).number(2, 4);
    for (int axis = 0; axis < 3; ++axis)
        tree.real(1).real(100 * axis);
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

// In the order of a file.
using Packets = std::map<std::string, std::string>;
Packets packets()
{
    return {{"info", infoPayload()},
            {"over", overviewPayload()},
            {"path", pathPayload()},
            {"tree", treePayload()}};
}

// A whole file, or one with other packets.
std::string fileOf(Packets all = {})
{
    all.merge(packets());
    IndexBytes file{start()};
    for (const auto& [name, payload] : all)
        file.packet(name, payload);
    return file.bytes;
}

struct Read
{
    explicit Read(const std::string& bytes)
    {
        const auto tiles = TileSetFile::read(ByteStore::make(bytes).get(), set, *tree);
        for (std::size_t i = 0; i < tiles->size(); ++i)
            set.tiles.push_back(tiles->get(i));
    }

    // The values of all boxes that contain a point.
    std::vector<std::int64_t> valuesAt(double at) const
    {
        const Scoped<RTree::Iterator> walk(tree->createIterator());
        std::vector<std::int64_t> values;
        for (std::int64_t value = 0; walk->next(at, at + 100, at + 200, value);)
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
    const Read read(fileOf());
    const TileSet& set = read.set;
    ASSERT_TRUE(set.overview && set.tiles.size() == 2 && set.info->getNumClassIdNames() == 2);
    const ChannelInfo& z = set.info->getPointInfo().getChannel(2);
    std::ostringstream fields;
    fields << set.srs << ' ' << z.getName() << ' ' << z.getQuantization() << ' ' << z.getBits() << ' '
           << set.info->getNumPoints() << ' ' << set.info->getWKT() << ' ' << set.info->getScale()[1] << ' '
           << set.info->getOffset()[2] << ' ' << set.info->getClassIdNames()[0] << ' '
           << set.overview->fraction << ' ' << set.overview->tile.timestamp << ' '
           << set.tiles[1].path.c_str() << ' ' << set.tiles[1].timestamp << ' ' << set.tiles[1].numPoints;
    EXPECT_EQ(fields.str(), "EPSG:1 Z 0.01 32 7 WKT 0.02 7 ground 0.25 3 d/b.vxl -2 4");
    EXPECT_EQ(set.info->getClassIdNames()[1], nullptr);
    EXPECT_EQ(set.info->getBounds(), (Bounds{{0, 9}, {100, 109}, {200, 209}}));
    EXPECT_EQ(set.tiles[1].bounds, (Bounds{{5, 9}, {105, 109}, {205, 209}}));
    EXPECT_EQ(read.valuesAt(3), (std::vector<std::int64_t>{0}));
    EXPECT_EQ(read.valuesAt(9), (std::vector<std::int64_t>{1}));
}

TEST(TileSetFile, WritesTheSameBytes)
{
    Read read(fileOf());
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (std::size_t i = 0; i < 2; ++i)
        tree->insert(read.set.tiles[i].bounds, static_cast<std::int64_t>(i));
    const double steps[] = {1, 1, 1};
    const auto written = [&](const TileSet& set) {
        const auto store = ByteStore::make();
        TileSetFile::write(store.get(), set, *tree, steps);
        EXPECT_EQ(store->openCount(), 0);
        return store->text();
    };
    EXPECT_EQ(written(read.set), fileOf());
    read.set.gpsWeek = 2100;
    const std::string week = IndexBytes().packet("week", IndexBytes().number(2100, 4).bytes).bytes;
    EXPECT_EQ(written(read.set), fileOf().insert(fileOf().find("over"), week));
    EXPECT_EQ(Read(written(read.set)).set.gpsWeek, 2100);
    const TileSet back = Read(written(TileSet())).set;
    EXPECT_EQ(back.info->getWKT(), nullptr);
    EXPECT_FALSE(back.overview || back.gpsWeek);
    EXPECT_EQ(back.srs.size() + back.tiles.size(), 0u);

    // Texts and numbers of items have two bytes.
    const auto failing = [&](const TileSet& set) { return failureOf([&] { written(set); }); };
    TileSet set;
    set.tiles.resize(1);
    set.tiles[0].path = std::string(65535, 'a');
    EXPECT_EQ(Read(written(set)).set.tiles[0].path, set.tiles[0].path);
    set.tiles[0].path += 'a';
    EXPECT_EQ(failing(set), "-1 failed writing: path: string is too long");
    const std::vector<const char*> names(65536, "n");
    set.tiles.clear();
    set.info->setClassIdNames(names.data(), 65535);
    EXPECT_EQ(Read(written(set)).set.info->getNumClassIdNames(), 65535u);
    set.info->setClassIdNames(names.data(), 65536);
    EXPECT_EQ(failing(set), "-1 failed writing: number of classes");
    const auto full = ByteStore::make();
    full->setCapacity(100);
    EXPECT_EQ(errorOf(40002, [&] { TileSetFile::write(full.get(), TileSet(), *tree, steps); }),
              "write error");
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
    const std::string path = IndexBytes().number(1, 4).tile(std::string("a\0b", 3), 1, 0, 4, 3).bytes;
    EXPECT_EQ(Read(fileOf({{"path", path}})).set.tiles[0].path, std::string("a"));
    // A file of the smallest items: one channel and one class without names, one tile without a path.
    IndexBytes small;
    small.number(1, 4).text("").number(FLOAT64, 2).bytes.append(2 + 8 + 8 + 2 + 48 + 48, '\0');
    const std::string tile = IndexBytes().number(1, 4).tile("", 1, 0, 4, 0).bytes;
    const Read least(fileOf({{"info", small.number(1, 2).text("").bytes}, {"path", tile}}));
    EXPECT_EQ(least.set.tiles.size(), 1u);
}

TEST(TileSetFile, ReportsErrors)
{
    const std::string cut = "5 Input/output error: failed reading: ", expecting = "' was expecting '";
    const std::string impossible = "-1 failed reading: ", unknown = "-1 unknown chunk name '";
    const std::string info = IndexBytes{start()}.packet("info", infoPayload()).bytes;
    const std::string path = IndexBytes{info}.packet("path", pathPayload()).bytes;
    const auto week = [&](std::uint64_t value) {
        return IndexBytes{info}.packet("week", IndexBytes().number(value, 4).bytes).bytes;
    };
    const auto huge = [](std::string payload, std::size_t at, std::size_t size) {
        return payload.replace(at, size, std::string(size, '\xFF'));
    };
    const auto negative = std::uint64_t(-1);
    const std::pair<std::string, std::string> cases[] = {
        {"", "-1 bad magic"},
        {"rtrf\0\0\0\2", "-1 bad magic"},
        {"rtre\0", cut + "version"},
        {start(3), "-1 unsupported version"},
        {start(), cut + "'info' packet name"},
        {start() + "info", cut + "'info' packet length"},
        {start() + "info" + "\xFF\xFF\xFF\xFF" + infoPayload(), impossible + "'info' packet length"},
        {IndexBytes{start()}.packet("path", pathPayload()).bytes, unknown + "path" + expecting + "info'"},
        {info, cut + "'path' packet name"},
        {IndexBytes{info}.packet("tree", treePayload()).bytes, unknown + "tree" + expecting + "path'"},
        {IndexBytes{path}.packet("info", infoPayload()).bytes, unknown + "info" + expecting + "tree'"},
        {week(0x7FFFFFFF), cut + "'path' packet name"},
        {week(0x80000000), impossible + "GPS week"},
        {fileOf({{"info", infoPayload(negative)}}), impossible + "number of points"},
        {fileOf({{"over", overviewPayload(0.25, negative)}}), impossible + "number of points"},
        {fileOf({{"path", pathPayload(negative)}}), impossible + "number of points"},
        {fileOf({{"over", overviewPayload(1)}}), "no error"},
        {fileOf({{"over", overviewPayload(0)}}), impossible + "overview fraction"},
        {fileOf({{"over", overviewPayload(1.001)}}), impossible + "overview fraction"},
        {fileOf({{"over", overviewPayload(std::nan(""))}}), impossible + "overview fraction"},
        {fileOf({{"info", huge(infoPayload(), 8, 2)}}), impossible + "number of channels"},
        {fileOf({{"info", huge(infoPayload(), 13, 2)}}), impossible + "data type"},
        {fileOf({{"info", huge(infoPayload(), infoPayload().size() - 12, 2)}}),
         impossible + "number of classes"},
        {fileOf({{"path", huge(pathPayload(), 0, 4)}}), impossible + "number of files"},
    };
    for (const auto& [bytes, outcome] : cases)
        EXPECT_EQ(failure(bytes), outcome) << bytes;
}

TEST(TileSetFile, RefusesEveryTruncation)
{
    const std::string whole = fileOf();
    const std::size_t tree = whole.size() - treePayload().size(); // where its payload begins
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const std::string outcome = failure(whole.substr(0, length));
        EXPECT_NE(outcome, "no error") << length;
        EXPECT_EQ(outcome == "-1 failed reading: 'tree' packet length", length >= tree) << length;
    }
    // Truncated packets, followed by more of the file.
    for (const auto& [name, payload] : packets())
        for (std::size_t length = 0; length < (name == "tree" ? 111 : payload.size()); ++length) {
            const std::string cut = fileOf({{name, payload.substr(0, length)}});
            EXPECT_NE(failure(cut + std::string(1000, '\1')), "no error") << name << ' ' << length;
        }
}

}} // namespace Quillmoran::Testing
