// The 12 bytes in front of every chunk of a compressed file: a 32-bit id and the signed 64-bit length of the
// payload that follows.
#pragma once

#include <vxunpack/IO.h>

#include <cstdint>

namespace Quillmoran {

class StreamReader;
class StreamWriter;

enum ChunkId : std::uint32_t
{
    CHUNK_GROUP = 1, // holds all further chunks
    CHUNK_WAVELET_HEADER = 2,
    CHUNK_INDEX = 3,
    CHUNK_SUBBAND = 4,
    CHUNK_METADATA = 5,
    CHUNK_WKT = 6,
    CHUNK_CLASS_NAMES = 7,
    CHUNK_EXTENDED_HEADER = 8
};

struct ChunkHeader
{
    static constexpr int size = 12; // bytes on disk

    std::uint32_t id = 0;
    std::int64_t length = 0; // of the payload, bytes
    std::int64_t offset = 0; // where the header stands; set by read() and write()

    // Returns the bytes read. Errors ChunkHeaderRead: "bad read -- chunk id", "bad read -- chunk length".
    int read(StreamReader& reader);
    // Writes the header at the writer's position. With `rewrite`, the writer stands behind the payload: sets
    // the length, writes the header again in its old place and returns there. Errors ChunkHeaderWrite.
    int write(StreamWriter& writer, bool rewrite);
    // The stretch of the whole chunk, header included.
    void save(IO* io, IO::Location& location) const;
};

} // namespace Quillmoran
