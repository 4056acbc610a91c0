// Stores point records one after the other behind a LAS header: as they are, or compressed by LASzip. Used by
// one thread at a time.
#pragma once

#include "las/LASHeader.h"
#include <vxunpack/IO.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace Quillmoran {

class LASRecordWriter
{
public:
    // Writes from header.pointDataOffset on; the store is open and stays open longer than the writer.
    static std::unique_ptr<LASRecordWriter> create(IO& io, const LASHeader& header);
    // What a compressed file of this header needs among its variable length records: one whole record.
    static std::vector<unsigned char> compressionRecord(const LASHeader& header);

    virtual ~LASRecordWriter() = default;
    LASRecordWriter(const LASRecordWriter&) = delete;
    LASRecordWriter& operator=(const LASRecordWriter&) = delete;

    // `records` are header.recordLength bytes each.
    virtual void write(const unsigned char* records, std::size_t count) = 0;
    // Completes the point data.
    virtual void finish() = 0;

protected:
    LASRecordWriter() = default;
};

} // namespace Quillmoran
