// Merges the sorted runs of a file into one sorted sequence. A run is a byte range of records of the same
// size; a record is a 64-bit key in native byte order and the bytes of a row. Records with equal keys are
// ordered by the first bytes of their rows, if wanted, and then by their runs.
#pragma once

#include "platform/Stream.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

// A key and an index that orders equal keys: of a row, or of a run.
struct SortEntry
{
    std::uint64_t key;
    std::size_t index;

    bool operator<(const SortEntry& other) const noexcept
    {
        return key != other.key ? key < other.key : index < other.index;
    }
};

struct RecordRun
{
    std::int64_t offset = 0; // in the file
    std::uint64_t count = 0; // records
};

class RunMerge
{
public:
    // The buffers of all runs use `bufferBytes` together, or one record per run if that is more.
    // `comparedBytes` bytes of a row order records with equal keys.
    RunMerge(IO* io, const RecordRun* runs, std::size_t numRuns, std::size_t recordSize,
             std::size_t comparedBytes, std::size_t bufferBytes);

    // The next record, valid until the next call; null at the end. FileProbe "bad read -- temporary file"
    // when the file is shorter than its runs.
    const unsigned char* next();

private:
    struct Run
    {
        StreamReader stream;
        std::uint64_t remaining = 0; // records to load
    };

    unsigned char* recordOf(std::size_t run) const noexcept { return m_records.get() + run * m_recordSize; }
    // Loads the next record of the run of a head; false at the end of the run.
    bool load(SortEntry& head);
    bool isBefore(const SortEntry& a, const SortEntry& b) const noexcept;
    // Moves the head at an index down to its place in the heap. Half the time of std::pop_heap and
    // std::push_heap.
    void sift(std::size_t at) noexcept;

    std::size_t m_recordSize;
    std::size_t m_comparedBytes;
    std::vector<Run> m_runs;
    Buffer<unsigned char> m_records; // the first of each run
    std::vector<SortEntry> m_heap;   // the first record of each run: a binary heap, the least head first
    bool m_started = false;
};

} // namespace Quillmoran
