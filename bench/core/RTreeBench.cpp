// Building an R-tree and querying it, in memory and from a file. The boxes are those of a tiled survey:
// small, in rows, with little height. Every query is checked against a linear scan before it is timed.
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include <vxunpack/FileIO.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

namespace Quillmoran {
namespace {

constexpr std::size_t numBoxes = 100000;
constexpr std::size_t rowBoxes = 316;
constexpr double boxSize = 10; // metres

std::vector<Bounds> makeBoxes()
{
    std::mt19937_64 random(1);
    std::vector<Bounds> boxes;
    for (std::size_t i = 0; i < numBoxes; ++i) {
        const double x = static_cast<double>(i % rowBoxes) * boxSize;
        const double y = static_cast<double>(i / rowBoxes) * boxSize;
        const double z = static_cast<double>(random() % 1000) / 10;
        boxes.push_back({{x, x + boxSize}, {y, y + boxSize}, {z, z + 5}});
    }
    return boxes;
}

const std::vector<Bounds>& boxes()
{
    static const std::vector<Bounds> made = makeBoxes();
    return made;
}

Scoped<MemoryRTree> buildTree()
{
    Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (std::size_t i = 0; i < numBoxes; ++i)
        tree->insert(boxes()[i], static_cast<std::int64_t>(i));
    return tree;
}

const RTree& memoryTree()
{
    static const Scoped<MemoryRTree> tree = buildTree();
    return *tree;
}

Scoped<DiskRTree> openSavedTree()
{
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(nullptr);
    StreamWriter writer;
    writer.init(file.get(), true, 1 << 16);
    const double scale[] = {0.125, 0.125, 0.125};
    buildTree()->save(writer, scale);
    writer.close(true);
    StreamReader reader;
    reader.init(file.get(), true, 4096);
    Scoped<DiskRTree> tree(DiskRTree::create());
    tree->init(reader, file->size());
    return tree;
}

const RTree& diskTree()
{
    static const Scoped<DiskRTree> tree = openSavedTree();
    return *tree;
}

// A square in the middle, `width` boxes wide. Its sides are a quarter of a box away from any face.
Bounds makeQuery(std::int64_t width)
{
    const double from = 100.25 * boxSize;
    const double to = from + (static_cast<double>(width) - 0.5) * boxSize;
    return {{from, to}, {from, to}, {0, 200}};
}

std::size_t countFound(RTree::Iterator& iterator, const Bounds& query)
{
    std::size_t count = 0;
    iterator.rewind();
    for (std::int64_t value; iterator.next(query, value);)
        ++count;
    return count;
}

void insertBoxes(benchmark::State& state)
{
    boxes();
    for (auto _ : state)
        benchmark::DoNotOptimize(buildTree()->getCount());
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numBoxes));
}
BENCHMARK(insertBoxes)->Unit(benchmark::kMillisecond);

void query(benchmark::State& state, const RTree& (*getTree)())
{
    const Bounds bounds = makeQuery(state.range(0));
    const Scoped<RTree::Iterator> iterator(getTree().createIterator());
    std::size_t expected = 0;
    for (const Bounds& box : boxes())
        expected += box.meets(bounds);
    if (countFound(*iterator, bounds) != expected) {
        state.SkipWithError("the tree and the linear scan differ");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(countFound(*iterator, bounds));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(expected));
}
BENCHMARK_CAPTURE(query, memory, memoryTree)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_CAPTURE(query, disk, diskTree)->Arg(1)->Arg(10)->Arg(100);

} // namespace
} // namespace Quillmoran
