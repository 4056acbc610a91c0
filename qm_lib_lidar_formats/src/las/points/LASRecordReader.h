// Reads a file's point records in order, in the layout of their point format. LASzip decompresses those of a
// LAZ file. Used by one thread at a time.
#pragma once

#include "las/header/LASHeader.h"
#include "las/laszip/LASzipChunks.h"
#include <vxunpack/IO.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Quillmoran {

class LASRecordReader
{
public:
    // The reader for a file with this header; it keeps `io` open. Fields of channels that are not wanted have
    // unspecified values; extra bytes are read if a wanted channel is not one of the point format. Throws
    // LASRead if LASzip refuses the file.
    static std::unique_ptr<LASRecordReader> create(IO* io, const LASHeader& header,
                                                   const LASzipChunks& chunks, const PointInfo& wanted);

    virtual ~LASRecordReader() = default;
    LASRecordReader(const LASRecordReader&) = delete;
    LASRecordReader& operator=(const LASRecordReader&) = delete;

    // Bytes from one record to the next in the output of read().
    std::size_t stride() const noexcept { return m_stride; }
    // The next `count` records. Throws LASRead if the file ends before them or is malformed; later calls
    // throw, too.
    virtual void read(unsigned char* records, std::size_t count) = 0;
    // The next read() begins with this point. Compressed points need a chunk table; throws LASRead as read() does.
    virtual void seek(std::uint64_t point) = 0;
    // After the last record of a chunk: whether the code of the next chunk begins where the table says.
    virtual bool isAtChunk(std::size_t) const { return true; }

protected:
    explicit LASRecordReader(std::size_t stride) : m_stride(stride) {}

private:
    std::size_t m_stride;
};

} // namespace Quillmoran
