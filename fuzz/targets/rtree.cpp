// The tree of boxes: a disk tree read in place, and a memory tree that is loaded whole, saved as a disk tree
// and queried again.
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "support/FuzzTarget.h"

#include <set>

namespace Quillmoran::Fuzz {

namespace {

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

Scoped<DiskRTree> openDiskForm(Input bytes)
{
    InputStream stream(bytes);
    Scoped<DiskRTree> tree(DiskRTree::create());
    tree->init(stream, static_cast<std::int64_t>(bytes.size()));
    return tree;
}

} // namespace

std::uint64_t runRTree(Input input)
{
    InputReader reader(input);
    const bool isMemoryForm = (reader.take<std::uint8_t>() & 1) != 0;
    Bounds box;
    for (Bounds::Range* range : {&box.x, &box.y, &box.z})
        *range = {reader.take<float>(), reader.take<float>()};
    if (!isMemoryForm) {
        walk(*openDiskForm(reader.rest()), box);
        return 0;
    }
    InputStream stream(reader.rest());
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    tree->load(stream, static_cast<std::int64_t>(reader.rest().size()));
    require(tree->checkBounds(), "a loaded tree is not well formed");
    const std::multiset<std::int64_t> values = walk(*tree, box);
    require(values.size() == tree->getCount(), "a walk misses values");
    const double scale[3] = {0.01, 0.01, 0.001};
    const auto saved = writtenBytes([&](StreamWriter& writer) { tree->save(writer, scale); });
    require(walk(*openDiskForm(saved), box) == values, "the disk form holds other values");
    return 0;
}

} // namespace Quillmoran::Fuzz
