#include "las/LASReadAhead.h"

#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::uint64_t minTaskPoints = 16384;
constexpr std::uint64_t maxChunkBytes = 32 << 20; // of unpacked points
constexpr std::size_t recordBytes = 1 << 16;      // that are decoded and unpacked at a time

// All threads decode while the points of the current chunk are delivered; a slice can begin in one chunk and end
// in the next.
std::size_t countSlots()
{
    return getNumThreads() + 2;
}

} // namespace

bool LASReadAhead::suits(const LASHeader& header, const LASzipChunks& chunks, const PointInfo& layout)
{
    if (getNumThreads() == 1 || !chunks.table || chunks.table->count() < 2)
        return false;
    const std::uint64_t maxPoints = maxChunkBytes / (layout.getPointSize() + header.recordLength);
    const std::vector<std::uint64_t>& points = chunks.table->points;
    for (std::size_t i = 0; i + 1 < points.size(); ++i)
        if (points[i + 1] - points[i] > maxPoints)
            return false;
    return true;
}

LASReadAhead::LASReadAhead(IO* io, const LASHeader& header, const LASzipChunks& chunks,
                           const std::vector<bool>& wantedChunks, const PointInfo& layout,
                           const LASUnpacker& unpacker, const Bounds& bounds)
    : m_io(io),
      m_header(header),
      m_chunks(chunks),
      m_table(*chunks.table),
      m_wantedChunks(wantedChunks),
      m_layout(layout),
      m_unpacker(unpacker),
      m_bounds(bounds),
      m_slots(countSlots()),
      m_ring(m_slots.size(), [this](std::size_t slot) { decodeSlot(m_slots[slot]); })
{
    for (std::size_t i = 0; i < m_slots.size(); ++i)
        startNext();
}

void LASReadAhead::startNext()
{
    const std::vector<std::uint64_t>& points = m_table.points;
    while (m_nextChunk < m_table.count() && !isWanted(m_nextChunk))
        ++m_nextChunk;
    if (m_nextChunk == m_table.count())
        return;
    Slot& slot = m_slots[m_ring.nextSlot()];
    slot.firstChunk = m_nextChunk;
    const std::uint64_t first = points[m_nextChunk];
    while (m_nextChunk < m_table.count() && isWanted(m_nextChunk) &&
           points[m_nextChunk] - first < minTaskPoints)
        ++m_nextChunk;
    slot.endChunk = m_nextChunk;
    slot.count = static_cast<std::size_t>(points[m_nextChunk] - first);
    if (slot.capacity < slot.count) {
        slot.points.init(m_layout, slot.count);
        slot.capacity = slot.count;
    }
    m_ring.start();
}

bool LASReadAhead::decode(std::uint64_t end)
{
    try {
        while (m_decoded < end) {
            m_held.push_back(m_ring.finish());
            m_decoded = m_table.points[m_slots[m_held.back()].endChunk];
        }
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

LASReadAhead::Run LASReadAhead::take(std::size_t count)
{
    if (m_cursor == m_slots[m_held.front()].count) {
        m_held.erase(m_held.begin());
        m_cursor = 0;
        startNext();
    }
    const Slot& slot = m_slots[m_held.front()];
    const Run run{&slot.points, m_cursor, std::min(count, slot.count - m_cursor)};
    m_cursor += run.count;
    return run;
}

std::unique_ptr<LASReadAhead::Decoder> LASReadAhead::takeDecoder()
{
    {
        const std::lock_guard<Mutex> lock(m_mutex);
        if (!m_decoders.empty()) {
            auto decoder = std::move(m_decoders.back());
            m_decoders.pop_back();
            return decoder;
        }
    }
    auto decoder = std::make_unique<Decoder>();
    decoder->reader = LASRecordReader::create(m_io, m_header, m_chunks, m_layout);
    decoder->records.resize(std::max<std::size_t>(recordBytes / decoder->reader->stride(), 1) *
                            decoder->reader->stride());
    return decoder;
}

// A decoder that fails is not used again.
void LASReadAhead::decodeSlot(Slot& slot)
{
    std::unique_ptr<Decoder> decoder = takeDecoder();
    decoder->reader->seek(m_table.points[slot.firstChunk]);
    std::size_t filled = 0;
    for (std::size_t chunk = slot.firstChunk; chunk < slot.endChunk; ++chunk) {
        decodePoints(*decoder, slot, filled,
                     static_cast<std::size_t>(m_table.points[chunk + 1] - m_table.points[chunk]));
        if (chunk + 1 < m_table.count() && !decoder->reader->isAtChunk(chunk + 1))
            QM_THROW(ErrorCode::LASRead, "a LAZ chunk does not end where the next one begins");
    }
    const std::lock_guard<Mutex> lock(m_mutex);
    m_decoders.push_back(std::move(decoder));
}

void LASReadAhead::decodePoints(Decoder& decoder, Slot& slot, std::size_t& filled, std::size_t count)
{
    const std::size_t stride = decoder.reader->stride();
    const std::size_t maxCount = decoder.records.size() / stride;
    const unsigned char* const records = decoder.records.data();
    double* const axes[] = {slot.points.getX(), slot.points.getY(), slot.points.getZ()};
    const bool isUnbounded = m_bounds == Bounds::Huge();
    for (std::size_t done = 0; done < count;) {
        const std::size_t taken = std::min(maxCount, count - done);
        decoder.reader->read(decoder.records.data(), taken);
        for (std::size_t axis = 0; axis < 3; ++axis)
            m_unpacker.unpackCoordinate(axes[axis] + filled, axis, records, stride, taken);
        bool isWanted = isUnbounded;
        for (std::size_t i = filled; i < filled + taken && !isWanted; ++i)
            isWanted = m_bounds.contains(axes[0][i], axes[1][i], axes[2][i]);
        if (isWanted)
            m_unpacker.unpack(slot.points, filled, records, stride, taken, nullptr);
        filled += taken;
        done += taken;
    }
}

} // namespace Quillmoran
