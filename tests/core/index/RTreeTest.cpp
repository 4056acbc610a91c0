#include "index/BoxGrid.h"
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

using Bytes = std::vector<std::uint8_t>;
using Values = std::vector<std::int64_t>;

constexpr std::size_t preambleSize = 54;
constexpr std::size_t recordSize = 281;

Bytes first(std::size_t count, const Bytes& bytes)
{
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

// Big-endian bytes of hand-made files.
struct Builder
{
    Bytes bytes;

    Builder& number(std::uint64_t value, int size)
    {
        while (size-- > 0)
            bytes.push_back(static_cast<std::uint8_t>(size < 8 ? value >> (8 * size) : 0));
        return *this;
    }
    Builder& reals(std::initializer_list<double> values)
    {
        for (const double value : values) {
            std::uint64_t bits;
            std::memcpy(&bits, &value, sizeof bits);
            number(bits, 8);
        }
        return *this;
    }
    Builder& preamble(unsigned level)
    {
        return number(10, 1).number(level, 1).number(1, 4).reals({1, 0, 1, 0, 1, 0});
    }
    // A record of nodes with the box [0, 9] on every axis.
    Builder& branch(const std::vector<std::uint64_t>& payloads)
    {
        const std::size_t end = bytes.size() + recordSize;
        number(payloads.size(), 1);
        for (const std::uint64_t payload : payloads)
            number(9, 8).number(9, 8).number(9, 8).number(payload, 4);
        bytes.resize(std::max(bytes.size(), end));
        return *this;
    }
};

struct Reader : StreamReader
{
    explicit Reader(const Bytes& bytes) { init(Scoped<ByteStore>(ByteStore::create(bytes)).get(), true, 64); }
};

Scoped<DiskRTree> openDisk(const Bytes& bytes, std::size_t length)
{
    Reader reader(bytes);
    Scoped<DiskRTree> tree(DiskRTree::create());
    tree->init(reader, static_cast<std::int64_t>(length));
    return tree;
}

Bytes saved(const MemoryRTree& tree, const Numbers& scale = {1, 1, 1}, std::int64_t position = 0)
{
    return writtenBytes([&](StreamWriter& writer) {
        writer.seek(position, StreamWriter::SEEK_FROM_START);
        tree.save(writer, scale.data());
    });
}

// The remaining values of an iterator; the query is nothing, a box or a point.
template <class... Query>
Values rest(RTree::Iterator& iterator, const Query&... query)
{
    Values values;
    for (std::int64_t value; iterator.next(query..., value);)
        values.push_back(value);
    std::sort(values.begin(), values.end());
    return values;
}

template <class... Query>
Values found(const RTree& tree, const Query&... query)
{
    const Scoped<RTree::Iterator> iterator(tree.createIterator());
    return rest(*iterator, query...);
}

struct Entry
{
    Bounds box;
    std::int64_t value;
};

// The linear scan.
Values scan(const std::vector<Entry>& entries, const Bounds& query)
{
    const auto meets = [&](const Bounds::Range& a, const Bounds::Range& b) {
        return a.max >= b.min && b.max >= a.min;
    };
    Values values;
    for (const auto& [box, value] : entries)
        if (meets(box.x, query.x) && meets(box.y, query.y) && meets(box.z, query.z))
            values.push_back(value);
    std::sort(values.begin(), values.end());
    return values;
}

// With integer coordinates and lengths from 0: some touch, are flat, points or equal.
Bounds randomBox(Random& random, std::uint64_t space)
{
    Bounds box;
    for (Bounds::Range* range : {&box.x, &box.y, &box.z}) {
        range->min = static_cast<double>(random.below(space)) - 7;
        range->max = range->min + static_cast<double>(random.below(4));
    }
    return box;
}

std::vector<Entry> randomEntries(std::size_t count, std::uint64_t space)
{
    Random random(count + space);
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < count; ++i)
        entries.push_back({randomBox(random, space), static_cast<std::int64_t>(i)});
    return entries;
}

Scoped<MemoryRTree> build(const std::vector<Entry>& entries)
{
    Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (const Entry& entry : entries)
        tree->insert(entry.box, entry.value);
    return tree;
}

void expectScan(const RTree& tree, const std::vector<Entry>& entries, std::uint64_t space)
{
    ASSERT_EQ(tree.getCount(), entries.size());
    EXPECT_EQ(found(tree), scan(entries, Bounds::Huge()));
    Random random(99);
    for (int i = 0; i < 30; ++i) {
        const Bounds query = randomBox(random, space);
        EXPECT_EQ(found(tree, query), scan(entries, query)) << "query " << i;
        const double x = query.x.min, y = query.y.min, z = query.z.min;
        EXPECT_EQ(found(tree, x, y, z), scan(entries, {{x, x}, {y, y}, {z, z}})) << "point " << i;
    }
    Bounds all;
    for (const Entry& entry : entries)
        all.grow(entry.box);
    EXPECT_EQ(failureOf([&] { EXPECT_EQ(tree.getBounds(), all); }),
              entries.empty() ? "40016 invalid index -- zero points" : "no error");
}

// Tests both trees: the grid of the disk form represents integers exactly.
TEST(RTree, AgreesWithALinearScan)
{
    for (const std::size_t count : {0u, 1u, 10u, 11u, 100u, 5000u})
        for (const std::uint64_t space : {1u, 20u, 1000u}) {
            SCOPED_TRACE(std::to_string(count) + " boxes in a space of " + std::to_string(space));
            const std::vector<Entry> entries = randomEntries(count, space);
            const Scoped<MemoryRTree> memory = build(entries);
            EXPECT_TRUE(memory->checkBounds());
            expectScan(*memory, entries, space);

            // All branches but the root have at least 4 nodes.
            const Bytes alone = saved(*memory);
            for (std::size_t i = preambleSize + recordSize; i < alone.size(); i += recordSize)
                EXPECT_GE(alone[i], 4) << i;

            // With bytes before and after the tree, since positions count from the start of the file.
            Bytes bytes = saved(*memory, {0.25, 0.5, 1}, 100);
            const auto end = static_cast<std::int64_t>(bytes.size());
            bytes.resize(bytes.size() + 50, 0xEE);
            Reader reader(bytes);
            reader.seek(100, Reader::SEEK_FROM_START);
            const Scoped<DiskRTree> disk(DiskRTree::create());
            disk->init(reader, end - 100);
            EXPECT_EQ(reader.tell(), end);
            reader.close();
            expectScan(*disk, entries, space);
        }
}

// Squares in each of the three planes, whose volumes are all 0, and cubes.
TEST(RTree, QueriesReadFewBranches)
{
    for (const auto& [flat, height, most] :
         {std::array{0, 0, 14000}, {1, 0, 14000}, {2, 0, 14000}, {2, 1, 2200}}) {
        std::vector<Entry> entries;
        for (int i = 0; i < 1024; ++i) {
            const int shuffled = i * 389 % 1024;
            const double u = shuffled % 32, v = shuffled / 32;
            Bounds box{{0, 0.0 + height}, {0, 0.0 + height}, {0, 0.0 + height}};
            Bounds::Range* const ranges[] = {&box.x, &box.y, &box.z};
            *ranges[(flat + 1) % 3] = {u, u + 1};
            *ranges[(flat + 2) % 3] = {v, v + 1};
            entries.push_back({box, shuffled});
        }
        const Scoped<ByteStore> file(ByteStore::create(saved(*build(entries))));
        StreamReader reader;
        reader.init(file.get(), true, 64);
        const Scoped<DiskRTree> disk(DiskRTree::create());
        disk->init(reader, file->size());
        for (const auto& [box, value] : entries)
            EXPECT_EQ(found(*disk, (box.x.min + box.x.max) / 2, (box.y.min + box.y.max) / 2,
                            (box.z.min + box.z.max) / 2),
                      Values{value});
        EXPECT_LT(file->reads(), most) << flat;
    }
}

TEST(BoxGrid, HasTheFinestStepsThatFitTheDiskForm)
{
    const Bounds box{{0, 0x1p30}, {-0x1p50, -0x1p50}, {0, 0.25}};
    const BoxGrid grid(box);
    EXPECT_EQ(Numbers(grid.steps(), grid.steps() + 3), (Numbers{1, 2, 1e-9}));
    EXPECT_EQ(grid.widen({{1, 2}, {3, 4}, {5, 6}}), (Bounds{{0, 3}, {1, 6}, {5 - 1e-9, 6 + 1e-9}}));
    EXPECT_EQ(BoxGrid(Bounds()).steps()[0], 1);
}

TEST(RTree, IteratorsOutliveTheirTreeAndRewind)
{
    const std::vector<Entry> entries = randomEntries(300, 5);
    const Bounds query{{0, 3}, {-2, 9}, {-9, 0}};
    const Bytes bytes = saved(*build(entries));
    for (RTree::Iterator* created :
         {build(entries)->createIterator(), openDisk(bytes, bytes.size())->createIterator()}) {
        const Scoped<RTree::Iterator> walk(created);
        std::int64_t value;
        for (int i = 0; i < 100; ++i)
            EXPECT_TRUE(walk->next(value));
        walk->rewind();
        EXPECT_EQ(rest(*walk, query), scan(entries, query));
        EXPECT_FALSE(walk->next(value));
        walk->rewind();
        EXPECT_EQ(rest(*walk).size(), entries.size());
    }
}

TEST(MemoryRTree, StaysShallowAndCompleteForAllBoxes)
{
    constexpr std::size_t count = 20000;
    const Bounds kinds[] = {{{1, 1}, {2, 2}, {3, 3}},
                            Bounds::Huge(),
                            {{5, 3}, {5, 3}, {5, 3}},
                            {},
                            {{nan, nan}, {nan, nan}, {nan, nan}},
                            {{nan, 5}, {-infinity, 3}, {0, infinity}}};
    for (std::size_t kind = 0; kind <= std::size(kinds); ++kind) {
        SCOPED_TRACE(kind);
        const Scoped<MemoryRTree> tree(MemoryRTree::create());
        for (std::size_t i = 0; i < count; ++i)
            tree->insert(kinds[kind < std::size(kinds) ? kind : i % std::size(kinds)], 7);
        EXPECT_EQ(found(*tree).size(), count);
        EXPECT_TRUE(tree->checkBounds());
        // The points and the unbounded boxes, also among other boxes.
        EXPECT_EQ(found(*tree, 1, 2, 3).size(), kind < 2 ? count : kind < std::size(kinds) ? 0 : 6668);
        // A deeper tree has 2 * 4^7 leaves at least, with four boxes each.
        EXPECT_TRUE(kind != 0 || saved(*tree)[1] < 7);
    }
}

TEST(MemoryRTree, RemovesOneEntryAtATime)
{
    std::vector<Entry> entries = randomEntries(700, 12);
    entries.push_back(entries.back());
    const Scoped<MemoryRTree> tree = build(entries);
    EXPECT_FALSE(tree->remove(-1) || tree->remove(entries[0].box, -1));
    EXPECT_FALSE(tree->remove({{0, 0}, {0, 0}, {0, 0.5}}, entries[0].value));
    Random random(3);
    while (!entries.empty()) {
        const auto victim = entries.begin() + static_cast<std::ptrdiff_t>(random.below(entries.size()));
        const auto [box, value] = *victim;
        EXPECT_TRUE(random.chance(0.5) ? tree->remove(value) : tree->remove(box, value));
        entries.erase(victim);
        ASSERT_TRUE(tree->checkBounds());
        if (entries.size() % 50 == 0)
            expectScan(*tree, entries, 12);
    }
    const Bounds unit{{0, 1}, {0, 1}, {0, 1}};
    tree->insert(unit, 5);
    tree->insert(Bounds::Huge(), 5);
    EXPECT_TRUE(tree->remove(Bounds::Huge(), 5));
    expectScan(*tree, {{unit, 5}}, 12);
    tree->clear();
    expectScan(*tree, {}, 12);
}

TEST(MemoryRTree, LoadsACompleteMemoryFormAndMovesToItsEnd)
{
    Builder file;
    file.number(2, 4).reals({0, 1, 2, 3, 4, 5, -1, 0, 2, 2, 5, 9}).number(0x99, 13);
    const Scoped<MemoryRTree> tree = build(randomEntries(30, 5));
    Reader reader(file.bytes);
    tree->load(reader, 4 + 2 * 48 + 10);
    EXPECT_EQ(reader.tell(), 110);
    expectScan(*tree, {{{{0, 1}, {2, 3}, {4, 5}}, 0}, {{{-1, 0}, {2, 2}, {5, 9}}, 1}}, 5);

    const auto refusal = [&](std::uint64_t count, std::size_t size, std::int64_t length) {
        Reader truncated(first(size, Builder().number(count, 4).number(0, 1000).bytes));
        const std::string error = failureOf([&] { tree->load(truncated, length); });
        EXPECT_EQ(tree->getCount(), 2u) << "unchanged";
        return error;
    };
    for (std::size_t size = 0; size < 4 + 3 * 48; ++size) {
        const char* expected = size < 4 ? "40014 bad read -- count" : "40014 bad read -- index bounds";
        EXPECT_EQ(refusal(3, size, 4 + 3 * 48), expected) << "file of " << size;
        EXPECT_EQ(refusal(3, 1000, static_cast<std::int64_t>(size)), expected) << "chunk of " << size;
    }
    EXPECT_EQ(refusal(3, 1000, -1), "40014 bad read -- count");
    EXPECT_EQ(refusal(UINT32_MAX, 1000, INT64_MAX), "40014 bad read -- index bounds");
    Reader empty(Builder().number(0, 20).bytes);
    tree->load(empty, 17);
    EXPECT_EQ(empty.tell(), 17);
    expectScan(*tree, {}, 5);
}

TEST(MemoryRTree, RejectsValuesThatDoNotFitTheDiskForm)
{
    const auto refusal = [](const Bounds& box, std::int64_t value, double scale = 1) {
        return failureOf([&] {
            saved(*build({{{{0, 1}, {0, 1}, {0, 0}}, 0}, {box, value}}), {1, 1, scale});
        });
    };
    const std::string tooBig = "40015 the rtree is too big";
    const double largest = UINT32_MAX;
    const Bounds fits{{0, 1}, {0, 1}, {0, largest}};
    EXPECT_EQ(refusal(fits, UINT32_MAX), "no error");
    EXPECT_EQ(refusal(fits, std::int64_t{UINT32_MAX} + 1), tooBig);
    EXPECT_EQ(refusal(fits, -1), tooBig);
    for (const double scale : {0., -1., nan, infinity, 0.999, 1e-320})
        EXPECT_EQ(refusal(fits, 1, scale), tooBig) << scale;
    EXPECT_EQ(refusal({{0, 1}, {0, 1}, {0, 0}}, 1, -1), tooBig) << "although all of z is on the grid";
    for (const double bound : {largest + 1, -infinity, infinity, nan})
        EXPECT_EQ(refusal({{0, 1}, {0, 1}, {bound, bound}}, 1), tooBig) << bound;
    EXPECT_EQ(refusal({}, 1), tooBig);
}

TEST(MemoryRTree, SavesTheDocumentedBytes)
{
    Builder leaf;
    leaf.number(10, 1).number(0, 1).number(2, 4).reals({0.5, 10, 1, -3, 4, 0});
    leaf.number(2, 1).number(5, 8).number(2, 8).number(2, 8).number(0xDEADBEEF, 4);
    leaf.number(3, 4).number(4, 4).number(0, 8).number(1, 4).number(2, 4).number(7, 4).number(0, 8 * 28);
    EXPECT_EQ(saved(*build({{{{10, 12.4}, {-3, -1}, {0, 8}}, 0xDEADBEEF},
                            {{{11.3, 11.8}, {-3, -3}, {5.9, 6.1}}, 7}}),
                    {0.5, 1, 4}),
              leaf.bytes);

    // The eleventh box makes a root with two leaves, which follow it.
    for (const auto& [count, records] : {std::pair{10, 1}, {11, 3}})
        EXPECT_EQ(saved(*build(randomEntries(count, 9))).size(), preambleSize + records * recordSize);
}

TEST(DiskRTree, NamesTheTruncatedField)
{
    const Bytes whole = Builder().preamble(0).branch({1, 2}).bytes;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        std::string expected = "40014 bad read -- node bounds";
        if (size < preambleSize)
            expected = "40014 bad read -- count";
        else if (size == preambleSize)
            expected = "40014 bad read -- node count";
        else if (size >= preambleSize + 1 + 2 * 28)
            expected = "no error"; // only padding is missing
        else if ((size - preambleSize - 1) % 28 >= 24)
            expected = "40014 bad read -- node payload";
        EXPECT_EQ(failureOf([&] { openDisk(first(size, whole), INT64_MAX); }), expected) << size;
        EXPECT_EQ(failureOf([&] { openDisk(whole, size); }), expected) << size;
    }
    const Scoped<DiskRTree> tree = openDisk(whole, whole.size());
    Reader bad(first(60, whole));
    EXPECT_EQ(failureOf([&] { tree->init(bad, 335); }), "40014 bad read -- node bounds");
    EXPECT_EQ(tree->getCount(), 0u) << "empty after an error";
    const Bytes noNodes = Builder().preamble(0).branch({}).bytes;
    EXPECT_EQ(failureOf([&] { openDisk(noNodes, noNodes.size())->getBounds(); }),
              "40016 invalid index -- zero points");
}

TEST(DiskRTree, RejectsInvalidPositionsOfBranches)
{
    const auto walk = [](const Builder& file, std::size_t outside = 0) {
        const Scoped<DiskRTree> tree = openDisk(file.bytes, file.bytes.size() - outside);
        const Scoped<RTree::Iterator> iterator(tree->createIterator());
        const std::string error = failureOf([&] { rest(*iterator); });
        EXPECT_EQ(failureOf([&] { rest(*iterator); }), error) << "damage must stay damage";
        return error;
    };
    const auto one = [](unsigned level, std::uint64_t child) {
        return Builder().preamble(level).branch({child});
    };
    const std::size_t root = preambleSize, second = root + recordSize;
    const std::vector<std::uint64_t> eleven(11);
    const std::string refused = "40014 bad read -- node count";

    EXPECT_EQ(failureOf([&] { walk(Builder().preamble(0).branch(eleven)); }), refused);
    EXPECT_EQ(walk(one(1, second).branch(eleven)), refused);
    EXPECT_EQ(walk(one(255, second).branch({root})), refused) << "a loop";
    for (const std::uint64_t child : {root, root - 1, second, std::size_t{0}, std::size_t{UINT32_MAX}})
        EXPECT_EQ(walk(one(1, child)), refused) << child;
    // The child exists, but it is after the range, completely or from its first node on.
    const Builder two = one(1, second).branch({1});
    EXPECT_EQ(walk(two, recordSize), refused);
    EXPECT_EQ(walk(two, recordSize - 5), "40014 bad read -- node bounds");
    EXPECT_EQ(walk(two), "no error");

    EXPECT_EQ(walk(Builder().preamble(1).branch({second, second, second}).branch({1})), refused);
    // All ten nodes of each branch have the same child: 10^255 paths to the leaves.
    Builder chain;
    chain.preamble(255);
    for (std::size_t i = 1; i <= 256; ++i)
        chain.branch(std::vector<std::uint64_t>(10, root + i * recordSize));
    EXPECT_EQ(walk(chain), refused);
}

}} // namespace Quillmoran::Testing
