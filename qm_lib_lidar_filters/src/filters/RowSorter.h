// Sorts any number of rows by a 64-bit key in bounded memory; rows with equal keys keep their order, or are
// ordered by their first bytes, so that equal rows are adjacent. This is the external merge sort of "The Art
// of Computer Programming, Volume 3: Sorting and Searching", 1973: rows are collected in memory, sorted when
// it is full, and written to a temporary file as a sorted run. Each time the result is read, the sorted runs
// are merged. If there are more than can be read at once, they are first merged into fewer. Rows that fit
// into one sorted run stay in memory.
#pragma once

#include "filters/RunMerge.h"
#include "platform/Stream.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/Object.h>
#include <vxunpack/PointOrder.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Quillmoran {

// The result of a sort. Several readers may read it at the same time.
class SortedRows final : public Object
{
public:
    class Reader;

private:
    friend class RowSorter;

    SortedRows() = default;

    std::size_t recordSize() const noexcept { return sizeof(std::uint64_t) + m_rowSize; }

    std::size_t m_rowSize = 0;
    std::size_t m_comparedBytes = 0;
    std::size_t m_mergeBytes = 0;
    // The rows in memory: all of them, or those that are being collected.
    Buffer<unsigned char> m_rows;
    Buffer<SortEntry> m_entries;
    std::size_t m_count = 0;
    Scoped<FileIO::Imp> m_file; // the temporary file, null when all rows are in memory
    std::vector<RecordRun> m_runs;
};

class SortedRows::Reader
{
public:
    explicit Reader(const SortedRows& sorted);

    // Copies up to `count` rows and returns how many; 0 at the end.
    std::size_t read(unsigned char* rows, std::size_t count);

private:
    Scoped<const SortedRows> m_sorted;
    std::unique_ptr<RunMerge> m_merge; // null when the rows are in memory
    std::size_t m_next = 0;            // entry
};

class RowSorter
{
public:
    using Limits = PointOrder::Limits;

    // The first `comparedBytes` bytes of a row, as unsigned numbers, order rows with equal keys.
    RowSorter(std::size_t rowSize, const Limits& limits, std::size_t comparedBytes = 0);

    // Takes the keys of the next `count` rows, at least one, and returns where the caller puts the rows
    // before the next call. Reduces `count` when memory is full; the caller then calls again for the rest.
    unsigned char* append(const std::uint64_t* keys, std::size_t& count);
    // Returns the result and leaves the sorter empty. Calls `checkpoint` from time to time, which may throw
    // to cancel.
    Scoped<const SortedRows> finish(const std::function<void()>& checkpoint);

private:
    void sortRun();
    void writeRun();
    void put(const void* bytes, std::size_t size);
    void reduceRuns(const std::function<void()>& checkpoint);
    void mergeRuns(std::size_t first, std::size_t count, const std::function<void()>& checkpoint);

    Limits m_limits;
    std::size_t m_capacity; // rows of a sorted run
    Scoped<SortedRows> m_sorted;
    StreamWriter m_writer;
};

} // namespace Quillmoran
