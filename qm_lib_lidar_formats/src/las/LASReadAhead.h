// Decodes the chunks of a LAZ file on all threads, ahead of the iterator that delivers their points in order.
// Used by one thread at a time.
#pragma once

#include "las/points/LASRecordReader.h"
#include "las/points/LASUnpacker.h"
#include "platform/Mutex.h"
#include "platform/TaskRing.h"
#include <vxunpack/Bounds.h>
#include <vxunpack/PointData.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class LASReadAhead
{
public:
    // Unpacked points; those outside of the box have only coordinates.
    struct Run
    {
        const PointData* points;
        std::size_t first; // in `points`
        std::size_t count;
    };

    // Whether there are several threads and several chunks, none of which needs much memory.
    static bool suits(const LASHeader& header, const LASzipChunks& chunks, const PointInfo& layout);

    // Everything is kept, and must outlive this object, but the IO is retained. `bounds` is the box of the query.
    // Chunks that are not wanted are left out; none are if `wantedChunks` is empty.
    LASReadAhead(IO* io, const LASHeader& header, const LASzipChunks& chunks,
                 const std::vector<bool>& wantedChunks, const PointInfo& layout, const LASUnpacker& unpacker,
                 const Bounds& bounds);

    // Waits until the points of wanted chunks up to `end` are decoded. False if they cannot be; the sequential
    // reader says why.
    bool decode(std::uint64_t end);
    // Up to `count` of the points that are decoded, after those of the last call. Valid until the next call.
    Run take(std::size_t count);

private:
    // Some chunks, so that a task is not too small.
    struct Slot
    {
        PointData points;
        std::size_t capacity = 0;
        std::size_t firstChunk = 0;
        std::size_t endChunk = 0;
        std::size_t count = 0; // points
    };
    struct Decoder
    {
        std::unique_ptr<LASRecordReader> reader;
        std::vector<unsigned char> records;
    };

    bool isWanted(std::size_t chunk) const { return m_wantedChunks.empty() || m_wantedChunks[chunk]; }
    void startNext();
    void decodeSlot(Slot& slot);
    void decodePoints(Decoder& decoder, Slot& slot, std::size_t& filled, std::size_t count);
    std::unique_ptr<Decoder> takeDecoder();

    IO* m_io;
    const LASHeader& m_header;
    const LASzipChunks& m_chunks;
    const LASzipChunkTable& m_table;
    const std::vector<bool>& m_wantedChunks;
    const PointInfo& m_layout;
    const LASUnpacker& m_unpacker;
    const Bounds m_bounds;

    Mutex m_mutex;
    std::vector<std::unique_ptr<Decoder>> m_decoders; // not in use by a task; guarded by m_mutex

    std::vector<Slot> m_slots;
    std::size_t m_nextChunk = 0;     // to start
    std::uint64_t m_decoded = 0;     // end of the points that were waited for
    std::vector<std::size_t> m_held; // their slots, the current one first
    std::size_t m_cursor = 0;        // in the current slot

    TaskRing m_ring; // last: its tasks use the others
};

} // namespace Quillmoran
