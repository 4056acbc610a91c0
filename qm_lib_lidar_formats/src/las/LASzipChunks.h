// The chunks into which a compressed file cuts its points. LASzip makes room for what a chunk says of itself
// and adds the sizes up in 32 bits, so everything that it reads is looked at here before.
#pragma once

#include "las/LASHeader.h"
#include "las/LASzipRecord.h"
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

//   chunked file  | position of the table 8 | chunk | chunk ... | table: version 4 | number of chunks 4 |
//   code | chunk         | one point as it stands | code | layered chunk | one point as it stands | number of
//   points 4 | size of each layer 4 | layers: code | else          | one point as it stands | code |
struct LASzipChunks
{
    std::vector<unsigned char> head; // stands in place of the file's first bytes; see makeLASzipHead()
    std::int64_t begin = 0;          // of the first point
    std::int64_t end = 0;            // layered: where the table begins
    std::uint32_t count = 0;         // layered: chunks
    std::size_t numLayers = 0;       // 0: the chunks are not layered
    std::size_t pointBytes = 0;      // 0: the file has no points

    // Finds the points of a file of this coding. LASRead when the table is missing, which no chunked file with
    // points does without, or lists more chunks than the file can hold. The store is open.
    static LASzipChunks find(const IO& io, const LASHeader& header, const LASzipCoding& coding);
};

// Goes along with LASzip's reading of one file, on the same thread.
class LASzipChunkWalk
{
public:
    // The store must outlive the walk.
    LASzipChunkWalk(const IO& io, const LASzipChunks& chunks);

    const std::vector<unsigned char>& getHead() const noexcept { return m_chunks.head; }

    // How many of the `count` bytes at a position LASzip may see: not what lies behind the chunks once it has
    // come to them. LASRead when a layered chunk that begins among these bytes is larger than what is left for
    // it.
    std::size_t allow(std::int64_t position, std::size_t count);
    // LASzip has read these bytes in one piece, as it reads what is stored as it stands; it reads code byte
    // by byte. LASRead when they complete a point behind which no code can begin.
    void passed(std::int64_t position, std::size_t count);

private:
    void checkChunk();

    const IO& m_io;
    LASzipChunks m_chunks;
    std::int64_t m_next;       // where the layered chunk that was not checked yet begins
    std::uint32_t m_unchecked; // chunks
    bool m_amongChunks = false;
    std::int64_t m_pieceBegin = -1; // of adjoining pieces that were passed
    std::int64_t m_pieceEnd = -1;
};

} // namespace Quillmoran
