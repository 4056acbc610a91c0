// A spatial index: finds the 64-bit values whose boxes meet a query. The decoder uses it to find the point
// ranges of a crop, the mosaic to find its tiles. MemoryRTree is built by insertion and can be saved in the
// disk form; DiskRTree reads that form branch by branch during queries.
//
//   disk form, big-endian, sizes in bytes
//   preamble | max nodes 1 | root level 1 | count 4 | scale 8, offset 8 of x, of y, of z |   54
//            | root branch | its first child with all below | its second child ... |
//   branch   | k 1 | k nodes | zeros |                                                      281
//   node     | x min 4 | x max 4 | y min 4 | y max 4 | z min 4 | z max 4 | payload 4 |       28
//
// The payloads of a leaf are values; those of other branches are the file positions of their children.
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
    // The union of all boxes; IndexEmpty "invalid index -- zero points" if there is none.
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

    // The two parts of the disk form. Reading throws IndexRead "bad read -- ..." with the name of the
    // truncated field, writing IndexWrite "bad write -- ..." with the name of the field.
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
        // The padding may be missing.
        void read(StreamReader& reader, const Axis axes[3]);
    };

    RTree() = default;
};

// Iterates over the values of a tree, in the order of the tree. Call next() with the same query until it
// returns false, then rewind() to start again. Boxes are closed: boxes that touch meet. Used by one thread at
// a time.
class RTree::Iterator : public Object
{
public:
    virtual void rewind() = 0;

    // All values, also those whose boxes are empty or NaN.
    bool next(std::int64_t& value) { return advance(nullptr, value); }
    bool next(const Bounds& bounds, std::int64_t& value) { return advance(&bounds, value); }
    bool next(double x, double y, double z, std::int64_t& value);

protected:
    Iterator() = default;

private:
    // Finds the next value whose box meets the query; null means all values.
    virtual bool advance(const Bounds* query, std::int64_t& value) = 0;
};

} // namespace Quillmoran
