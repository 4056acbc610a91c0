// Delivers a file's point records one after the other, in the layout of their point format: those of a LAS
// file as they stand, those of a LAZ file decompressed by LASzip. Used by one thread at a time.
#pragma once

#include "las/LASHeader.h"
#include "las/LASzipChunks.h"
#include <vxunpack/IO.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <memory>

namespace Quillmoran {

class LASRecordReader
{
public:
    // The reader for a file of this header; it holds the store open. Fields of other channels than the wanted
    // ones may come as anything. Throws LASRead when LASzip does not take the file.
    static std::unique_ptr<LASRecordReader> create(IO* io, const LASHeader& header,
                                                   const LASzipChunks& chunks, const PointInfo& wanted);

    virtual ~LASRecordReader() = default;
    LASRecordReader(const LASRecordReader&) = delete;
    LASRecordReader& operator=(const LASRecordReader&) = delete;

    // Bytes from one record to the next in what read() gives.
    std::size_t stride() const noexcept { return m_stride; }
    // The next `count` records. LASRead when the file ends before them or is damaged, then and ever after.
    virtual void read(unsigned char* records, std::size_t count) = 0;

protected:
    explicit LASRecordReader(std::size_t stride) : m_stride(stride) {}

private:
    std::size_t m_stride;
};

} // namespace Quillmoran
