// Bytes of many streams that grow at the same time and are wanted one after the other: each keeps a small
// buffer in memory and the rest in one temporary file that all share. A stream takes ever longer stretches of
// the file, so what it remembers of them does not grow with their bytes.
#pragma once

#include "platform/Mutex.h"
#include <vxunpack/FileIO.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

class StreamWriter;

// The shared file, made when the first stream needs it. May be used from any thread.
class SpillFile
{
public:
    // Reserves a stretch and returns where it begins.
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
    void copyTo(StreamWriter& out) const;

private:
    struct Stretch
    {
        std::int64_t offset;
        std::int64_t length;
    };

    void spill();

    SpillFile* m_file;
    std::vector<std::uint8_t> m_buffer;
    std::vector<Stretch> m_stretches; // all full but the last
    std::int64_t m_spilled = 0;       // bytes in the file
    std::int64_t m_room = 0;          // bytes left in the last stretch
};

} // namespace Quillmoran
