// An index from boxes to 64-bit values that answers which values have a box that meets a query. The decoder
// asks it for the point ranges of a crop, the mosaic for its tiles. MemoryRTree is built by insertion and can
// save itself in the disk form; DiskRTree reads that form during queries, branch by branch.
//
//   disk form, big-endian, sizes in bytes
//   preamble | max nodes 1 | root level 1 | count 4 | scale 8, offset 8 of x, of y, of z |   54
//            | root branch | its first child with all below | its second child ... |
//   branch   | k 1 | k nodes | zeros |                                                      281
//   node     | x min 4 | x max 4 | y min 4 | y max 4 | z min 4 | z max 4 | payload 4 |       28
//
// A leaf's payloads are values, those of the other branches the positions of their children in the file.
#pragma once

#include <vxunpack/Bounds.h>
#include <vxunpack/Object.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Quillmoran {

class StreamReader;
class StreamWriter;

class RTree : public Object
{
public:
    class Iterator;

    virtual std::size_t getCount() const = 0;
    // The union of all boxes; IndexEmpty "invalid index -- zero points" when there is none.
    virtual Bounds getBounds() const = 0;
    // A new iterator with a count of 1, which keeps the tree alive. May be called from any thread.
    virtual Iterator* createIterator() const = 0;

protected:
    static constexpr std::size_t maxNodes = 10; // of one branch
    static constexpr std::size_t preambleBytes = 54;
    static constexpr std::size_t nodeBytes = 28;
    static constexpr std::size_t recordBytes = 1 + maxNodes * nodeBytes;

    // The grid on which the disk form stores the boxes of one axis.
    struct Axis
    {
        double scale = 1;
        double offset = 0;
    };

    // The two parts of the disk form. Reading throws IndexRead "bad read -- ..." with the field that is cut,
    // writing IndexWrite "bad write -- ..." with the field that was not taken.
    struct Preamble
    {
        std::uint8_t level = 0; // of the root; 0 = leaf
        std::uint32_t count = 0;
        Axis axes[3];

        void write(StreamWriter& writer) const;
        void read(StreamReader& reader);
    };
    struct Record
    {
        struct Node
        {
            Bounds box;
            std::uint32_t payload = 0;
        };

        std::size_t count = 0;
        std::array<Node, maxNodes> nodes;

        // A box that is not on the grid is IndexWrite "the rtree is too big".
        void write(StreamWriter& writer, const Axis axes[3]) const;
        // The filler may be missing.
        void read(StreamReader& reader, const Axis axes[3]);
    };

    RTree() = default;
};

// One walk over a tree, used by one thread at a time. Each call goes on where the last one stopped and gives
// the next value that answers the query, so a query is repeated unchanged until next() returns false; then
// rewind() starts a new walk. Boxes are closed: touching on a face is meeting. Values come in the order in
// which they are stored.
class RTree::Iterator : public Object
{
public:
    virtual void rewind() = 0;

    // Any value, also one whose box is empty or not a number.
    bool next(std::int64_t& value) { return advance(nullptr, value); }
    bool next(const Bounds& bounds, std::int64_t& value) { return advance(&bounds, value); }
    bool next(double x, double y, double z, std::int64_t& value);

protected:
    Iterator() = default;

private:
    // Finds the next value whose box meets the query; null stands for every value.
    virtual bool advance(const Bounds* query, std::int64_t& value) = 0;
};

} // namespace Quillmoran
