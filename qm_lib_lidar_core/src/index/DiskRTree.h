// The R-tree of a file, read where it lies: the root stays in memory, and a query loads the branches whose
// boxes it meets. The decoder uses it for the index chunk, the tile set for its tiles. The disk form is drawn
// in RTree.h.
//
// Nothing in the file is trusted. A damaged branch shows when a query reaches it: IndexRead "bad read -- node
// count", "... node bounds" or "... node payload".
// Const methods may be called from any thread, and so may the iterators, each by one thread at a time. The
// file is held open by the iterators that have read from it, not by the tree.
#pragma once

#include "index/RTree.h"
#include <vxunpack/IO.h>

namespace Quillmoran {

class DiskRTree final : public RTree
{
public:
    static DiskRTree* create();

    // Reads preamble and root of the tree that takes up the next `length` bytes and leaves the reader behind
    // them. The tree reads on through the reader's store, not through the reader. A preamble that is cut is
    // IndexRead "bad read -- count"; after an error the tree is empty.
    void init(StreamReader& reader, std::int64_t length);

    // As the file states it: nothing was counted.
    std::size_t getCount() const override { return m_preamble.count; }
    Bounds getBounds() const override;
    Iterator* createIterator() const override;

private:
    struct Branch : Record
    {
        std::int64_t position = 0; // in the file
    };
    class DiskIterator;

    DiskRTree() = default;
    ~DiskRTree() override = default;

    Scoped<IO> m_stretch;          // ends where the tree ends
    std::size_t m_maxBranches = 0; // that fit into the stretch
    Preamble m_preamble;
    Branch m_root;
};

} // namespace Quillmoran
