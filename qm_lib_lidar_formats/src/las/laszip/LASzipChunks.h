// The chunks of points in a compressed file. LASzip allocates the sizes that a chunk declares and adds them
// up in 32 bits, so chunks are checked here before LASzip reads them.
//
//   chunked file    | position of the table 8 | chunk | chunk | ... | table |
//   table           | version 4 | number of chunks 4 | code |
//   chunk           | first point, not coded | code |
//   layered chunk   | first point, not coded | number of points 4 | size of each layer 4 | layers: code |
//   without chunks  | first point, not coded | code |
#pragma once

#include "las/header/LASHeader.h"
#include "las/laszip/LASzipCoding.h"
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

// Where the chunks are, for decoders that do not begin with the first one.
struct LASzipChunkTable
{
    std::size_t count() const noexcept { return points.size() - 1; }
    // The chunk that has a point.
    std::size_t find(std::uint64_t point) const noexcept;

    // The first point and the position of each chunk, and the ends of the last one.
    std::vector<std::uint64_t> points;
    std::vector<std::int64_t> positions;
};

struct LASzipChunks
{
    std::vector<unsigned char> head; // replaces the file's first bytes; see makeLASzipHead()
    std::int64_t begin = 0;          // of the first point
    std::int64_t end = 0;            // of the chunks, where the table begins; layered only
    std::uint32_t count = 0;         // chunks
    std::size_t numLayers = 0;       // 0: the chunks are not layered
    std::size_t pointBytes = 0;      // 0: the file has no points
    // Null if the points are not in chunks, or if the table does not describe all of them; then they can only
    // be read from the first one on.
    std::shared_ptr<const LASzipChunkTable> table;

    // Finds the points of a file with this coding. Throws LASRead if a chunked file with points has no table,
    // or one with more chunks than fit into the file. `io` is open.
    static LASzipChunks find(const IO& io, const LASHeader& header, const LASzipCoding& coding);
};

// Checks the chunks of one file as LASzip reads it, on the same thread.
class LASzipChunkWalk
{
public:
    // `io` must outlive this object.
    LASzipChunkWalk(const IO& io, const LASzipChunks& chunks);

    const std::vector<unsigned char>& getHead() const noexcept { return m_chunks.head; }
    // LASzip is about to continue at the beginning of a chunk of the table.
    void seek(std::size_t chunk) noexcept;

    // How many of the `count` bytes at a position LASzip may read: none after the last chunk once it has
    // reached the chunks. Throws LASRead if a layered chunk that begins in these bytes does not end before
    // the table.
    std::size_t allow(std::int64_t position, std::size_t count);
    // Reports bytes that LASzip has read in one call: it reads uncoded points in a few calls, and code byte
    // by byte. Throws LASRead if the bytes complete a point and the code after it is invalid.
    void noteRead(std::int64_t position, std::size_t count);

private:
    void checkChunk();

    const IO& m_io;
    LASzipChunks m_chunks;
    std::int64_t m_next;       // position of the first layered chunk that was not checked
    std::uint32_t m_unchecked; // chunks
    bool m_amongChunks = false;
    std::int64_t m_readBegin = -1; // of adjacent reads
    std::int64_t m_readEnd = -1;
};

} // namespace Quillmoran
