// Compresses point records by LASzip and writes them as the point data of a LAZ file: the position of the chunk
// table, the chunks and the table. Used by one thread at a time.
#pragma once

#include "las/header/LASHeader.h"
#include "las/laszip/IOStreamBuffer.h"
#include "las/laszip/LASzip.h"
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

namespace Quillmoran {

class LASzipEncoder
{
public:
    static constexpr std::size_t chunkPoints = 50000; // LASzip's default

    // Writes from the position on. `io` must outlive this object. With `inOrder` each byte is written after those
    // before it, and the position of the table is its last 8 bytes. Throws LASRead with LASzip's message.
    LASzipEncoder(IO& io, const LASHeader& header, std::int64_t position, bool inOrder);
    ~LASzipEncoder();
    LASzipEncoder(const LASzipEncoder&) = delete;
    LASzipEncoder& operator=(const LASzipEncoder&) = delete;

    // The VLR that a file with this header needs, with its VLR header.
    static std::vector<unsigned char> makeRecord(const LASHeader& header);

    // Records of header.recordLength bytes. Throws the errors of `io`, or LASRead.
    void write(const unsigned char* records, std::size_t count);
    // Completes the point data and returns the position after it; throws as write() does.
    std::int64_t finish();

private:
    void throwIfBad() const;

    LASPointFormat m_format;
    std::size_t m_recordLength;
    IOStreamBuffer m_buffer;
    std::ostream m_stream;
    LASzip m_laszip;
    bool m_isOpen = false;
};

} // namespace Quillmoran
