// An R-tree in a file. The root is kept in memory, and a query reads the branches whose boxes it meets. The
// decoder uses it for the index chunk, the tile set for its tiles. RTree.h shows the disk form.
//
// A query that reaches a malformed branch throws IndexRead "bad read -- node count", "... node bounds" or
// "... node payload". Const methods may be called from any thread; each iterator is used by one thread at a
// time. Iterators, not the tree, keep the file open.
#pragma once

#include "index/RTree.h"
#include <vxunpack/IO.h>

namespace Quillmoran {

class DiskRTree final : public RTree
{
public:
    static DiskRTree* create();

    // Reads the preamble and the root of the tree in the next `length` bytes and moves the reader to their
    // end. The tree keeps the reader's IO, not the reader. Throws IndexRead "bad read -- count" for a
    // truncated preamble; after an error the tree is empty.
    void init(StreamReader& reader, std::int64_t length);

    // The number in the file; the entries are not counted.
    std::size_t getCount() const override { return m_preamble.count; }
    Bounds getBounds() const override;
    Iterator* createIterator() const override;

    // Copies the tree to the position of a writer in another file, with the positions of the branches there.
    // Throws IndexRead as a query does, and for branches that are not after their parents or overlap;
    // IndexWrite "the index is too far from the beginning of the file" for a position of more than 32 bits.
    void copyTo(StreamWriter& writer) const;

private:
    struct Branch : Record
    {
        std::int64_t position = 0; // in the file
    };
    class DiskIterator;

    DiskRTree() = default;
    ~DiskRTree() override = default;

    Scoped<IO> m_range;            // ends at the end of the tree
    std::size_t m_maxBranches = 0; // that fit into the range
    Preamble m_preamble;
    Branch m_root;
};

} // namespace Quillmoran
