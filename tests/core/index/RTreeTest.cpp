#include "core/index/RTreeModel.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

namespace Quillmoran {
namespace {

using namespace RTreeModel;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

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
    if (entries.empty())
        EXPECT_EQ(errorOf([&] { tree.getBounds(); }), "40016 invalid index -- zero points");
    else
        EXPECT_EQ(tree.getBounds(), all);
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

TEST(RTree, IteratorsOutliveTheirTreeAndRewind)
{
    const std::vector<Entry> entries = randomEntries(300, 5);
    const Bounds query{{0, 3}, {-2, 9}, {-9, 0}};
    const Scoped<MemoryRTree> memory = build(entries);
    const Bytes bytes = saved(*memory);
    const Scoped<RTree::Iterator> walks[] = {
        Scoped<RTree::Iterator>(build(entries)->createIterator()),
        Scoped<RTree::Iterator>(openDisk(bytes, bytes.size())->createIterator())};
    for (const auto& walk : walks) {
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
    constexpr std::size_t count = 100000;
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
        EXPECT_EQ(found(*tree, 1, 2, 3).size(), kind < 2 ? count : kind < std::size(kinds) ? 0 : 33334);
        // A deeper tree has 2 * 4^8 branches at least, more than there are boxes.
        EXPECT_TRUE(kind != 0 || saved(*tree)[1] < 8);
    }
}

TEST(MemoryRTree, RemovesOneEntryAtATime)
{
    std::vector<Entry> entries = randomEntries(700, 12);
    entries.push_back(entries.back());
    const Scoped<MemoryRTree> tree = build(entries);
    EXPECT_FALSE(tree->remove(-1));
    EXPECT_FALSE(tree->remove(entries[0].box, -1));
    EXPECT_FALSE(tree->remove({{0, 0}, {0, 0}, {0, 0.5}}, entries[0].value));
    Random random(3);
    while (!entries.empty()) {
        const auto victim = entries.begin() + static_cast<std::ptrdiff_t>(random() % entries.size());
        const auto [box, value] = *victim;
        EXPECT_TRUE(random() % 2 ? tree->remove(value) : tree->remove(box, value));
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

TEST(MemoryRTree, LoadsTheMemoryFormAndMovesToItsEnd)
{
    Builder file;
    file.number(2, 4).reals({0, 1, 2, 3, 4, 5, -1, 0, 2, 2, 5, 9}).number(0x99, 13);
    const Scoped<MemoryRTree> tree = build(randomEntries(30, 5));
    Reader reader(file.bytes);
    tree->load(reader, 4 + 2 * 48 + 10);
    EXPECT_EQ(reader.tell(), 110);
    expectScan(*tree, {{{{0, 1}, {2, 3}, {4, 5}}, 0}, {{{-1, 0}, {2, 2}, {5, 9}}, 1}}, 5);

    Reader empty(Builder().number(0, 20).bytes);
    tree->load(empty, 17);
    EXPECT_EQ(empty.tell(), 17);
    expectScan(*tree, {}, 5);
}

TEST(MemoryRTree, RejectsATruncatedMemoryFormAndKeepsItsContent)
{
    const Scoped<MemoryRTree> tree = build(randomEntries(1, 5));
    const auto refusal = [&](std::uint64_t count, std::size_t size, std::int64_t length) {
        Reader reader(first(size, Builder().number(count, 4).number(0, 1000).bytes));
        const std::string error = errorOf([&] { tree->load(reader, length); });
        EXPECT_EQ(tree->getCount(), 1u);
        return error;
    };
    for (std::size_t size = 0; size < 4 + 3 * 48; ++size) {
        const char* expected = size < 4 ? "40014 bad read -- count" : "40014 bad read -- index bounds";
        EXPECT_EQ(refusal(3, size, 4 + 3 * 48), expected) << "file of " << size;
        EXPECT_EQ(refusal(3, 1000, static_cast<std::int64_t>(size)), expected) << "chunk of " << size;
    }
    EXPECT_EQ(refusal(3, 1000, -1), "40014 bad read -- count");
    EXPECT_EQ(refusal(UINT32_MAX, 1000, INT64_MAX), "40014 bad read -- index bounds");
}

TEST(MemoryRTree, RejectsValuesThatDoNotFitTheDiskForm)
{
    const auto refusal = [](const Bounds& box, std::int64_t value, double scale = 1) {
        return errorOf([&] { saved(*build({{{{0, 1}, {0, 1}, {0, 0}}, 0}, {box, value}}), {1, 1, scale}); });
    };
    const std::string tooBig = "40015 the rtree is too big";
    const double largest = UINT32_MAX;
    const Bounds fits{{0, 1}, {0, 1}, {0, largest}};
    EXPECT_EQ(refusal(fits, UINT32_MAX), "none");
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
    leaf.number(10, 1).number(0, 1).number(1, 4).reals({0.5, 10, 1, -3, 4, 0});
    leaf.number(1, 1).number(5, 8).number(2, 8).number(2, 8).number(0xDEADBEEF, 4).number(0, 9 * 28);
    EXPECT_EQ(saved(*build({{{{10, 12.4}, {-3, -1}, {0, 8}}, 0xDEADBEEF}}), {0.5, 1, 4}), leaf.bytes);

    // The eleventh box makes a root with two leaves, which follow it.
    EXPECT_EQ(saved(*build(randomEntries(10, 9))).size(), preambleSize + recordSize);
    const Bytes split = saved(*build(randomEntries(11, 9)));
    ASSERT_EQ(split.size(), preambleSize + 3 * recordSize);
    EXPECT_EQ(split[1], 1);
    EXPECT_EQ(split[preambleSize], 2);
    EXPECT_EQ(split[preambleSize + recordSize] + split[preambleSize + 2 * recordSize], 11);
}

TEST(DiskRTree, MovesFacesByUpToHalfAStep)
{
    const std::vector<Entry> entries = randomEntries(2000, 40);
    const double step = 1.7;
    const Bytes bytes = saved(*build(entries), {step, step, step});
    const Scoped<DiskRTree> disk = openDisk(bytes, bytes.size());
    Random random(5);
    for (int i = 0; i < 100; ++i) {
        const Bounds query = randomBox(random, 40);
        const Values values = found(*disk, query);
        const Values inner = scan(entries, query, -step / 2 * 1.000001);
        const Values outer = scan(entries, query, step / 2 * 1.000001);
        EXPECT_TRUE(std::includes(values.begin(), values.end(), inner.begin(), inner.end()));
        EXPECT_TRUE(std::includes(outer.begin(), outer.end(), values.begin(), values.end()));
    }
}

TEST(DiskRTree, CanBeUsedByThreadsWithTheirOwnIterators)
{
    const std::vector<Entry> entries = randomEntries(2000, 40);
    const Bytes bytes = saved(*build(entries));
    const Scoped<DiskRTree> disk = openDisk(bytes, bytes.size());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] { expectScan(*disk, entries, 40); });
    for (std::thread& thread : threads)
        thread.join();
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
            expected = "none"; // only padding is missing
        else if ((size - preambleSize - 1) % 28 >= 24)
            expected = "40014 bad read -- node payload";
        EXPECT_EQ(errorOf([&] { openDisk(first(size, whole), INT64_MAX); }), expected) << size;
        EXPECT_EQ(errorOf([&] { openDisk(whole, size); }), expected) << size;
    }
}

TEST(DiskRTree, RejectsInvalidPositionsOfBranches)
{
    const auto walk = [](const Builder& file, std::size_t outside = 0) {
        const Scoped<DiskRTree> tree = openDisk(file.bytes, file.bytes.size() - outside);
        const Scoped<RTree::Iterator> iterator(tree->createIterator());
        const std::string error = errorOf([&] { rest(*iterator); });
        EXPECT_EQ(errorOf([&] { rest(*iterator); }), error) << "damage must stay damage";
        return error;
    };
    const auto one = [](unsigned level, std::uint64_t child) {
        return Builder().preamble(level).branch({child});
    };
    const std::size_t root = preambleSize, second = root + recordSize;
    const std::vector<std::uint64_t> eleven(11);
    const std::string refused = "40014 bad read -- node count";

    EXPECT_EQ(errorOf([&] { walk(Builder().preamble(0).branch(eleven)); }), refused);
    EXPECT_EQ(walk(one(1, second).branch(eleven)), refused);
    EXPECT_EQ(walk(one(255, second).branch({root})), refused) << "a loop";
    for (const std::uint64_t child : {root, root - 1, second, std::size_t{0}, std::size_t{UINT32_MAX}})
        EXPECT_EQ(walk(one(1, child)), refused) << child;
    // The child exists, but it is after the range, completely or from its first node on.
    const Builder two = one(1, second).branch({1});
    EXPECT_EQ(walk(two, recordSize), refused);
    EXPECT_EQ(walk(two, recordSize - 5), "40014 bad read -- node bounds");
    EXPECT_EQ(walk(two), "none");

    EXPECT_EQ(walk(Builder().preamble(1).branch({second, second, second}).branch({1})), refused);
    // All ten nodes of each branch have the same child: 10^255 paths to the leaves.
    Builder chain;
    chain.preamble(255);
    for (std::size_t i = 1; i <= 256; ++i)
        chain.branch(std::vector<std::uint64_t>(10, root + i * recordSize));
    EXPECT_EQ(walk(chain), refused);
}

// Every iteration over a malformed file ends, with 40014 or with no more values than fit into the file. A
// truncated file never gives a wrong result.
TEST(DiskRTree, EndsEveryIterationOverAMalformedFile)
{
    const std::vector<Entry> entries = randomEntries(120, 12);
    const Bytes whole = saved(*build(entries));
    const Bounds query{{0, 3}, {0, 3}, {-7, 3}};
    const auto walk = [&](const Bytes& bytes, std::size_t length, bool right) {
        try {
            const Scoped<DiskRTree> tree = openDisk(bytes, length);
            EXPECT_LE(found(*tree).size(), 10 * (whole.size() / recordSize + 1));
            EXPECT_TRUE(!right || found(*tree, query) == scan(entries, query))
                << bytes.size() << ' ' << length;
        } catch (const Error& error) {
            EXPECT_EQ(error.error(), 40014) << error.what();
        }
    };
    for (std::size_t size = 0; size < whole.size(); ++size) {
        walk(first(size, whole), whole.size(), true);
        walk(whole, size, true);
        for (const int flip : {0x01, 0xFF}) {
            Bytes bytes = whole;
            bytes[size] = static_cast<unsigned char>(bytes[size] ^ flip);
            walk(bytes, bytes.size(), false);
        }
    }
}

} // namespace
} // namespace Quillmoran
