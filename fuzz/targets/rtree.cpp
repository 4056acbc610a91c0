// The tree of boxes: a disk tree read in place, and a memory tree that is loaded whole, saved as a disk tree
// and queried again.
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "support/ByteStore.h"
#include "support/InputReader.h"
#include <vxunpack/Base.h>

#include <set>

namespace Quillmoran::Fuzz {

namespace {

using Testing::ByteStore;

// Walks the tree as a reader does: for a point, all values and a box, each again after a rewind.
std::multiset<std::int64_t> walk(const RTree& tree, const Bounds& box)
{
    const Scoped<RTree::Iterator> iterator(tree.createIterator());
    std::multiset<std::int64_t> values;
    std::int64_t value = 0;
    while (iterator->next(box.x.min, box.y.max, box.z.min, value)) {
    }
    iterator->rewind();
    while (iterator->next(value))
        values.insert(value);
    iterator->rewind();
    while (iterator->next(box, value))
        require(values.count(value) != 0, "a query finds what no walk over all values does");
    return values;
}

// A tree retains its file and reads from it later.
Scoped<DiskRTree> openDiskForm(std::vector<std::uint8_t> bytes)
{
    const auto length = static_cast<std::int64_t>(bytes.size());
    const Scoped<ByteStore> store(ByteStore::create(std::move(bytes)));
    StreamReader stream;
    stream.init(store.get(), true, 512);
    Scoped<DiskRTree> tree(DiskRTree::create());
    tree->init(stream, length);
    return tree;
}

void readMemoryForm(Input bytes, const Bounds& box)
{
    const Scoped<ByteStore> store(ByteStore::create({bytes.begin(), bytes.end()}));
    StreamReader stream;
    stream.init(store.get(), true, 512);
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    tree->load(stream, static_cast<std::int64_t>(bytes.size()));
    stream.close();
    require(tree->checkBounds(), "a loaded tree is not well formed");
    const std::multiset<std::int64_t> values = walk(*tree, box);
    require(values.size() == tree->getCount(), "a walk misses values");

    const double scale[3] = {0.01, 0.01, 0.001};
    const auto saved = Testing::writtenBytes([&](StreamWriter& writer) { tree->save(writer, scale); });
    require(walk(*openDiskForm(saved), box) == values, "the disk form holds other values");
}

} // namespace

std::uint64_t runRTree(Input input)
{
    InputReader reader(input);
    const bool memoryForm = (reader.take<std::uint8_t>() & 1) != 0;
    Bounds box;
    for (Bounds::Range* range : {&box.x, &box.y, &box.z})
        *range = {reader.take<float>(), reader.take<float>()};
    if (memoryForm)
        readMemoryForm(reader.rest(), box);
    else
        walk(*openDiskForm({reader.rest().begin(), reader.rest().end()}), box);
    return 0;
}

} // namespace Quillmoran::Fuzz
