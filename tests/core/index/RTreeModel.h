// Helpers of the R-tree tests: hand-made files, trees that are written to a temporary file and opened again,
// and random boxes with a linear scan as the model of queries.
#pragma once

#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

namespace Quillmoran::RTreeModel {

constexpr std::size_t preambleSize = 54;
constexpr std::size_t recordSize = 281;

using Bytes = std::vector<unsigned char>;
using Random = std::mt19937_64;
using Values = std::vector<std::int64_t>;

inline Bytes first(std::size_t count, const Bytes& bytes)
{
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

// Big-endian bytes of hand-made files.
struct Builder
{
    Bytes bytes;

    Builder& number(std::uint64_t value, int size)
    {
        while (size-- > 0)
            bytes.push_back(static_cast<unsigned char>(size < 8 ? value >> (8 * size) : 0));
        return *this;
    }
    Builder& reals(std::initializer_list<double> values)
    {
        for (const double value : values) {
            std::uint64_t bits;
            std::memcpy(&bits, &value, sizeof bits);
            number(bits, 8);
        }
        return *this;
    }
    Builder& preamble(unsigned level)
    {
        return number(10, 1).number(level, 1).number(1, 4).reals({1, 0, 1, 0, 1, 0});
    }
    // A record of nodes with the box [0, 9] on every axis.
    Builder& branch(const std::vector<std::uint64_t>& payloads)
    {
        const std::size_t end = bytes.size() + recordSize;
        number(payloads.size(), 1);
        for (const std::uint64_t payload : payloads)
            number(9, 8).number(9, 8).number(9, 8).number(payload, 4);
        bytes.resize(std::max(bytes.size(), end));
        return *this;
    }
};

struct Reader : StreamReader
{
    explicit Reader(const Bytes& bytes)
    {
        const Scoped<FileIO::Imp> io(FileIO::create());
        io->init(nullptr);
        io->pwrite(0, bytes.data(), bytes.size());
        init(io.get(), true, 64);
    }
};

inline Scoped<DiskRTree> openDisk(const Bytes& bytes, std::size_t length)
{
    Reader reader(bytes);
    Scoped<DiskRTree> tree(DiskRTree::create());
    tree->init(reader, static_cast<std::int64_t>(length));
    return tree;
}

inline Bytes saved(const MemoryRTree& tree, const std::vector<double>& scale = {1, 1, 1},
                   std::int64_t position = 0)
{
    Reader file({});
    StreamWriter writer;
    writer.init(file.getIO(), true, 4096);
    writer.seek(position, StreamWriter::SEEK_FROM_START);
    tree.save(writer, scale.data());
    writer.close(true);
    Bytes bytes(file.remaining());
    file.read(bytes.data(), bytes.size());
    return bytes;
}

inline std::string errorOf(const std::function<void()>& body)
{
    try {
        body();
    } catch (const Error& error) {
        return std::to_string(error.error()) + " " + error.what();
    }
    return "none";
}

// The remaining values of an iterator; the query is nothing, a box or a point.
template <class... Query>
Values rest(RTree::Iterator& iterator, const Query&... query)
{
    Values values;
    for (std::int64_t value; iterator.next(query..., value);)
        values.push_back(value);
    std::sort(values.begin(), values.end());
    return values;
}

template <class... Query>
Values found(const RTree& tree, const Query&... query)
{
    const Scoped<RTree::Iterator> iterator(tree.createIterator());
    return rest(*iterator, query...);
}

struct Entry
{
    Bounds box;
    std::int64_t value;
};

// The linear scan, with each box enlarged by `margin` on all sides.
inline Values scan(const std::vector<Entry>& entries, const Bounds& query, double margin = 0)
{
    const auto meets = [&](const Bounds::Range& a, const Bounds::Range& b) {
        return a.max + margin >= b.min && b.max >= a.min - margin;
    };
    Values values;
    for (const auto& [box, value] : entries)
        if (meets(box.x, query.x) && meets(box.y, query.y) && meets(box.z, query.z))
            values.push_back(value);
    std::sort(values.begin(), values.end());
    return values;
}

// With integer coordinates and lengths from 0: some touch, are flat, points or equal.
inline Bounds randomBox(Random& random, std::uint64_t space)
{
    Bounds box;
    for (Bounds::Range* range : {&box.x, &box.y, &box.z}) {
        range->min = static_cast<double>(random() % space) - 7;
        range->max = range->min + static_cast<double>(random() % 4);
    }
    return box;
}

inline std::vector<Entry> randomEntries(std::size_t count, std::uint64_t space)
{
    Random random(count + space);
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < count; ++i)
        entries.push_back({randomBox(random, space), static_cast<std::int64_t>(i)});
    return entries;
}

inline Scoped<MemoryRTree> build(const std::vector<Entry>& entries)
{
    Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (const Entry& entry : entries)
        tree->insert(entry.box, entry.value);
    return tree;
}

} // namespace Quillmoran::RTreeModel
