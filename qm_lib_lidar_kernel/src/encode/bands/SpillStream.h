// Streams of bytes that grow at the same time and are later copied one after the other. Each stream has a
// small buffer in memory; the rest is in one temporary file that all streams share. A stream reserves byte
// ranges of doubling length, so the list of its ranges stays short.
#pragma once

#include "platform/Mutex.h"
#include "platform/Stream.h"
#include <vxunpack/FileIO.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

// The shared file. It is created when the first stream needs it. Thread-safe.
class SpillFile
{
public:
    // Reserves a byte range and returns its offset.
    std::int64_t reserve(std::int64_t length);
    FileIO::Imp& io() const noexcept { return *m_io; }

private:
    Mutex m_mutex;
    Scoped<FileIO::Imp> m_io;
    std::int64_t m_end = 0;
};

class SpillStream
{
public:
    explicit SpillStream(SpillFile& file) : m_file(&file) {}

    void append(const std::vector<std::uint8_t>& bytes);
    std::int64_t size() const noexcept { return m_spilled + static_cast<std::int64_t>(m_buffer.size()); }
    // The output can seek.
    void copyTo(StreamWriter& out) const;

private:
    void spill();

    SpillFile* m_file;
    std::vector<std::uint8_t> m_buffer;
    std::vector<StreamWriter::Range> m_ranges; // all full except the last
    std::int64_t m_spilled = 0;                // bytes in the file
    std::int64_t m_free = 0;                   // bytes not yet used of the last range
};

} // namespace Quillmoran
