// The R-tree that is built by insertion and held whole in memory: the mosaic and the tile set fill it with
// their tiles, the decoder loads it from files that carry their boxes unquantized.
//
//   memory form, big-endian   | count n 4 | n boxes of six doubles, 48 | unused |    box i has the value i
//
// Any box can be stored. One with a NaN meets no query and is found only by a walk over all values.
// Const methods may be called from any thread. Whatever changes the tree ends the walks over it: rewind
// their iterators before using them again.
#pragma once

#include "index/RTree.h"

#include <memory>

namespace Quillmoran {

class MemoryRTree final : public RTree
{
public:
    static MemoryRTree* create();

    // Equal boxes and equal values may be inserted any number of times.
    void insert(const Bounds& bounds, std::int64_t value);
    // Both remove one entry and tell whether there was one: with exactly this box and value, or the first
    // that a walk finds with this value. The second looks through the whole tree.
    bool remove(const Bounds& bounds, std::int64_t value) { return removeEntry(&bounds, value); }
    bool remove(std::int64_t value) { return removeEntry(nullptr, value); }
    void clear();

    std::size_t getCount() const override { return m_count; }
    Bounds getBounds() const override;
    Iterator* createIterator() const override;

    // Appends the disk form. The grid of each axis starts at the tree's smallest coordinate and has the given
    // step; a tree without values is saved too. IndexWrite "the rtree is too big" when the step is not above 0 or
    // not finite, a box is not on the grid, or a value or a position needs more than 32 bits. What was
    // written before an error stays.
    void save(StreamWriter& writer, const double scale[3]) const;
    // Replaces the content by a memory form that takes up `length` bytes, and leaves the reader at its end.
    // A damaged one is IndexRead "bad read -- count" or "bad read -- index bounds" and changes nothing.
    void load(StreamReader& reader, std::int64_t length);

    // Whether every box of an inner branch is the union of those below it and all branches are filled and
    // placed as they should be. True unless this class has an error.
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
