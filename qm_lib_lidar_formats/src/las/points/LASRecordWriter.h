// Writes point records in order after a LAS header: unchanged, or compressed by LASzip, with several threads on
// all of them. The bytes are the same. Used by one thread at a time.
#pragma once

#include "las/header/LASHeader.h"
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace Quillmoran {

class LASRecordWriter
{
public:
    // Writes from header.pointDataOffset on. `io` must be open until the writer is destroyed. With `inOrder`,
    // each byte is written after those before it.
    static std::unique_ptr<LASRecordWriter> create(IO& io, const LASHeader& header, bool inOrder);
    // The VLR that a compressed file with this header needs, with its VLR header.
    static std::vector<unsigned char> compressionRecord(const LASHeader& header);

    virtual ~LASRecordWriter() = default;
    LASRecordWriter(const LASRecordWriter&) = delete;
    LASRecordWriter& operator=(const LASRecordWriter&) = delete;

    // Each record has header.recordLength bytes. Throws the errors of `io`, or LASRead with LASzip's message.
    virtual void write(const unsigned char* records, std::size_t count) = 0;
    // Completes the point data; throws as write() does.
    virtual void finish() = 0;
    // The position in the file after the complete point data.
    virtual std::int64_t end() const = 0;
    // Whether write() passes the work to other threads. Otherwise the caller may do so.
    virtual bool hasTasks() const { return false; }

    // Instead of write(), when hasTasks(): space for up to `count` records, which any threads may fill before
    // commit(); empty when commit() must be called first.
    virtual std::span<unsigned char> reserve(std::size_t) { return {}; }
    virtual void commit() {}

protected:
    LASRecordWriter() = default;
};

} // namespace Quillmoran
