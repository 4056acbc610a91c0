// Writes compressed records on all threads: each chunk is compressed in memory by a LASzip encoder of its own. The
// file is the one that a single encoder writes.
#pragma once

#include "las/laszip/LASzipTableCode.h"
#include "las/points/LASRecordWriter.h"
#include "platform/TaskRing.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Quillmoran {

class LASzipChunkWriter final : public LASRecordWriter
{
public:
    LASzipChunkWriter(IO& io, const LASHeader& header, bool inOrder);

    void write(const unsigned char* records, std::size_t count) override;
    void finish() override;
    std::int64_t end() const override { return m_position; }
    bool hasTasks() const override { return true; }
    std::span<unsigned char> reserve(std::size_t count) override;
    void commit() override;

private:
    struct Slot
    {
        std::vector<unsigned char> records;
        std::size_t count = 0;
        std::vector<unsigned char> file; // of this chunk
        std::size_t chunkBytes = 0;
    };

    Slot& getOpenSlot();
    void append(const void* bytes, std::size_t count);
    void compress(Slot& slot) const;
    void writeOldest();

    IO& m_io;
    const LASHeader m_header;
    const bool m_inOrder;
    std::int64_t m_position; // in the file
    std::vector<LASzipTableEntry> m_table;
    std::vector<Slot> m_slots;
    std::size_t m_numReserved = 0; // slots that are full, but not committed
    TaskRing m_ring;               // last: its tasks use the others
};

} // namespace Quillmoran
