#include "las/points/LASzipChunkWriter.h"

#include "las/laszip/LASzipEncoder.h"
#include "platform/ByteOrder.h"
#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t positionBytes = 8;

// Bytes in memory.
class MemoryIO final : public IO
{
public:
    explicit MemoryIO(std::vector<unsigned char>& bytes) : m_bytes(bytes) {}

    void open() override {}
    void close() override {}
    std::size_t pread(std::int64_t, void*, std::size_t) const override { return 0; }
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override
    {
        const auto begin = static_cast<std::size_t>(offset);
        m_bytes.resize(std::max(m_bytes.size(), begin + count));
        std::memcpy(m_bytes.data() + begin, buffer, count);
        return count;
    }
    std::int64_t size() const override { return static_cast<std::int64_t>(m_bytes.size()); }
    void truncate(std::int64_t) override {}
    void unlink() override {}

private:
    std::vector<unsigned char>& m_bytes;
};

} // namespace

LASzipChunkWriter::LASzipChunkWriter(IO& io, const LASHeader& header, bool inOrder)
    : m_io(io),
      m_header(header),
      m_inOrder(inOrder),
      m_position(header.pointDataOffset),
      m_slots(getNumThreads() + 2), // all threads compress while others are filled
      m_ring(m_slots.size(), [this](std::size_t slot) { compress(m_slots[slot]); })
{
    const std::vector<unsigned char> unknown(positionBytes, 0xFF);
    append(unknown.data(), unknown.size());
}

void LASzipChunkWriter::append(const void* bytes, std::size_t count)
{
    writeFully(m_io, m_position, bytes, count);
    m_position += static_cast<std::int64_t>(count);
}

// The one that is being filled.
LASzipChunkWriter::Slot& LASzipChunkWriter::getOpenSlot()
{
    while (m_ring.numStarted() + m_numReserved == m_slots.size())
        writeOldest();
    return m_slots[(m_ring.nextSlot() + m_numReserved) % m_slots.size()];
}

std::span<unsigned char> LASzipChunkWriter::reserve(std::size_t count)
{
    const std::size_t stride = m_header.recordLength;
    if (m_numReserved + 1 == m_slots.size())
        return {};
    Slot& slot = getOpenSlot();
    slot.records.resize(LASzipEncoder::chunkPoints * stride);
    const std::size_t taken = std::min(count, LASzipEncoder::chunkPoints - slot.count);
    const std::span<unsigned char> records(slot.records.data() + slot.count * stride, taken * stride);
    slot.count += taken;
    if (slot.count == LASzipEncoder::chunkPoints)
        ++m_numReserved;
    return records;
}

void LASzipChunkWriter::commit()
{
    for (; m_numReserved != 0; --m_numReserved)
        m_ring.start();
}

void LASzipChunkWriter::write(const unsigned char* records, std::size_t count)
{
    while (count != 0) {
        const std::span<unsigned char> space = reserve(count);
        std::memcpy(space.data(), records, space.size());
        commit();
        records += space.size();
        count -= space.size() / m_header.recordLength;
    }
}

// The encoder writes a file of one chunk, with the position of its table at the end.
void LASzipChunkWriter::compress(Slot& slot) const
{
    slot.file.clear();
    const Scoped<MemoryIO> memory(new MemoryIO(slot.file));
    LASzipEncoder encoder(*memory, m_header, 0, true);
    encoder.write(slot.records.data(), slot.count);
    encoder.finish();
    const auto table = loadLittleEndian<std::uint64_t>(slot.file.data() + slot.file.size() - positionBytes);
    if (table > slot.file.size() || table < positionBytes)
        QM_THROW(ErrorCode::LASRead, "LASzip: unexpected position of the chunk table");
    slot.chunkBytes = table - positionBytes;
}

void LASzipChunkWriter::writeOldest()
{
    Slot& slot = m_slots[m_ring.finish()];
    append(slot.file.data() + positionBytes, slot.chunkBytes);
    m_table.push_back({static_cast<std::uint32_t>(slot.count), static_cast<std::uint32_t>(slot.chunkBytes)});
    slot.count = 0;
}

void LASzipChunkWriter::finish()
{
    if (getOpenSlot().count != 0)
        m_ring.start();
    while (m_ring.numStarted() != 0)
        writeOldest();
    const std::int64_t table = m_position;
    unsigned char bytes[positionBytes] = {}; // version 0
    storeLittleEndian(bytes + 4, static_cast<std::uint32_t>(m_table.size()));
    append(bytes, sizeof bytes);
    if (!m_table.empty()) {
        const std::vector<unsigned char> code = LASzipTableCode::encode(m_table, false);
        append(code.data(), code.size());
    }
    storeLittleEndian(bytes, table);
    if (m_inOrder)
        append(bytes, sizeof bytes);
    else
        writeFully(m_io, m_header.pointDataOffset, bytes, sizeof bytes);
}

} // namespace Quillmoran
