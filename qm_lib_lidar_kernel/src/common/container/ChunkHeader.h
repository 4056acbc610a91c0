// The 12 bytes before the payload of every chunk of a compressed file: a 32-bit id and the signed 64-bit
// length of the payload.
#pragma once

#include <vxunpack/IO.h>

#include <cstdint>

namespace Quillmoran {

class StreamReader;
class StreamWriter;

enum ChunkId : std::uint32_t
{
    CHUNK_GROUP = 1, // contains all other chunks
    CHUNK_WAVELET_HEADER = 2,
    CHUNK_INDEX = 3,
    CHUNK_SUBBAND = 4,
    CHUNK_METADATA = 5,
    CHUNK_WKT = 6,
    CHUNK_CLASS_NAMES = 7,
    CHUNK_EXTENDED_HEADER = 8,
    // Files of others can have chunks with the next small numbers.
    CHUNK_DIGESTS = 0x44494753,   // "DIGS"
    CHUNK_BAND_TABLE = 0x424E4453 // "BNDS"
};

// The versions of the index chunk.
enum IndexVersion : std::uint8_t
{
    INDEX_IN_MEMORY = 1, // boxes as doubles, loaded completely
    INDEX_ON_DISK = 2    // a tree of boxes on a grid, read during queries
};

struct ChunkHeader
{
    static constexpr int size = 12; // bytes on disk

    std::uint32_t id = 0;
    std::int64_t length = 0; // of the payload, bytes
    std::int64_t offset = 0; // position of the header; set by read() and write()

    // Returns the number of bytes read. Throws ChunkHeaderRead "bad read -- chunk id" or "bad read -- chunk
    // length".
    int read(StreamReader& reader);
    // Writes the header at the writer's position. With `rewrite`, that position is the end of the payload:
    // sets the length, writes the header again at its old position and returns to the end. Throws
    // ChunkHeaderWrite "bad write -- chunk id" or "bad write -- chunk length".
    int write(StreamWriter& writer, bool rewrite);
    // Sets `location` to the byte range of the whole chunk, including the header.
    void save(IO* io, IO::Location& location) const;
};

} // namespace Quillmoran
