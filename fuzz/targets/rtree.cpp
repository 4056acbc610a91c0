// The tree of boxes: a disk tree read in place, and a memory tree that is loaded whole, saved as a disk tree
// and queried again.
#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/InputReader.h"
#include <vxunpack/Base.h>

#include <cmath>
#include <set>

namespace Quillmoran::Fuzz {

namespace {

using Testing::ByteStore;

struct Query
{
    Bounds box;
    double x, y, z;
};

Query takeQuery(InputReader& reader)
{
    Query query;
    for (Bounds::Range* range : {&query.box.x, &query.box.y, &query.box.z})
        *range = {reader.take<float>(), reader.take<float>()};
    query.x = query.box.x.min;
    query.y = query.box.y.max;
    query.z = query.box.z.min;
    return query;
}

// Walks the tree as a reader does: for all values, a box and a point, each again after a rewind.
std::multiset<std::int64_t> walk(const RTree& tree, const Query& query)
{
    const Scoped<RTree::Iterator> iterator(tree.createIterator());
    std::multiset<std::int64_t> values;
    std::int64_t value = 0;
    while (iterator->next(query.x, query.y, query.z, value)) {
    }
    iterator->rewind();
    while (iterator->next(value))
        values.insert(value);
    iterator->rewind();
    while (iterator->next(query.box, value))
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

void readMemoryForm(Input bytes, const Query& query)
{
    const Scoped<ByteStore> store(ByteStore::create({bytes.begin(), bytes.end()}));
    StreamReader stream;
    stream.init(store.get(), true, 512);
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    tree->load(stream, static_cast<std::int64_t>(bytes.size()));
    stream.close();
    require(tree->checkBounds(), "a loaded tree is not well formed");
    const std::multiset<std::int64_t> values = walk(*tree, query);
    require(values.size() == tree->getCount(), "a walk misses values");

    const Scoped<ByteStore> saved(ByteStore::create());
    StreamWriter writer;
    writer.init(saved.get(), true, 512);
    const double scale[3] = {0.01, 0.01, 0.001};
    tree->save(writer, scale);
    writer.close(true);
    require(walk(*openDiskForm(saved->bytes()), query) == values, "the disk form holds other values");
}

} // namespace

std::uint64_t runRTree(Input input)
{
    InputReader reader(input);
    const bool memoryForm = (reader.take<std::uint8_t>() & 1) != 0;
    const Query query = takeQuery(reader);
    if (memoryForm)
        readMemoryForm(reader.rest(), query);
    else
        walk(*openDiskForm({reader.rest().begin(), reader.rest().end()}), query);
    return 0;
}

} // namespace Quillmoran::Fuzz
