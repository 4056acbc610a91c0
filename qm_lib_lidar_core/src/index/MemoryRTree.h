// An R-tree in memory. The mosaic and the tile set insert their tiles; the decoder loads it from files whose
// boxes are not quantized.
//
//   memory form, big-endian   | count n 4 | n boxes of six doubles, 48 | unused |    box i has the value i
//
// Any box can be inserted. A box with a NaN meets no query and is found only by iterating over all values.
// Const methods may be called from any thread. A change of the tree invalidates its iterators until they are
// rewound.
#pragma once

#include "index/RTree.h"

#include <memory>

namespace Quillmoran {

class MemoryRTree final : public RTree
{
public:
    static MemoryRTree* create();

    // The same box and value may be inserted several times.
    void insert(const Bounds& bounds, std::int64_t value);
    // Both remove one entry and return whether there was one: with exactly this box and value, or the first
    // one with this value. The second form searches the whole tree.
    bool remove(const Bounds& bounds, std::int64_t value) { return removeEntry(&bounds, value); }
    bool remove(std::int64_t value) { return removeEntry(nullptr, value); }
    void clear();

    std::size_t getCount() const override { return m_count; }
    Bounds getBounds() const override;
    Iterator* createIterator() const override;

    // Appends the disk form; the tree may be empty. The grid of each axis starts at the tree's smallest
    // coordinate and has the given step. Throws IndexWrite "the rtree is too big" if a step is not finite and
    // above 0, a box is not on the grid, or a value or position needs more than 32 bits. The output is then
    // incomplete.
    void save(StreamWriter& writer, const double scale[3]) const;
    // Replaces the content by the memory form in the next `length` bytes and moves the reader to their end.
    // Throws IndexRead "bad read -- count" or "bad read -- index bounds"; the tree is then unchanged.
    void load(StreamReader& reader, std::int64_t length);

    // Checks the invariants: the box of a node is the union of the boxes of its child, and all branches have
    // valid levels and numbers of nodes.
    bool checkBounds() const;

private:
    struct Branch;
    class MemoryIterator;

    MemoryRTree();
    ~MemoryRTree() override;

    bool removeEntry(const Bounds* bounds, std::int64_t value);

    std::size_t m_count = 0;
    std::unique_ptr<Branch> m_root; // never null
};

} // namespace Quillmoran
