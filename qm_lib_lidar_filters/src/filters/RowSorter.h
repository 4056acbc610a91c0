// Sorts any number of rows by a 64-bit key in bounded memory; rows with equal keys keep their order. Rows are
// collected until a run is full, which is sorted and written to a temporary file; the runs are merged each
// time the sorted rows are read: external merge sort, "The Art of Computer Programming, Volume 3: Sorting and
// Searching", 1973. More runs than can be read at once are merged into fewer first. Rows that fit into one
// run stay in memory.
#pragma once

#include "filters/RunMerge.h"
#include "platform/Stream.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/HilbertOrder.h>
#include <vxunpack/Object.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Quillmoran {

// What a sort ends with. Several readers may read it at a time.
class SortedRows final : public Object
{
public:
    class Reader;

private:
    friend class RowSorter;

    struct Entry
    {
        std::uint64_t key;
        std::size_t row;

        bool operator<(const Entry& other) const noexcept
        {
            return key != other.key ? key < other.key : row < other.row;
        }
    };

    SortedRows() = default;

    std::size_t recordSize() const noexcept { return sizeof(std::uint64_t) + m_rowSize; }

    std::size_t m_rowSize = 0;
    std::size_t m_mergeBytes = 0;
    // The rows in memory: those of the only run, or of the one that is being collected.
    Buffer<unsigned char> m_rows;
    Buffer<Entry> m_entries;
    std::size_t m_count = 0;
    // The others.
    Scoped<FileIO::Imp> m_file; // null while there are none
    std::vector<RecordRun> m_runs;
};

class SortedRows::Reader
{
public:
    explicit Reader(const SortedRows& sorted);

    // Copies the next rows, `count` of them if there are as many, and returns how many; 0 is the end.
    std::size_t read(unsigned char* rows, std::size_t count);

private:
    Scoped<const SortedRows> m_sorted;
    std::unique_ptr<RunMerge> m_merge; // null when the rows are in memory
    std::size_t m_next = 0;            // entry
};

class RowSorter
{
public:
    using Limits = HilbertOrder::Limits;

    RowSorter(std::size_t rowSize, const Limits& limits);

    // Takes the keys of the next rows and returns where the rows are to be put before the next call. `count`,
    // not 0, becomes less when the run is full: the caller goes on behind them.
    unsigned char* append(const std::uint64_t* keys, std::size_t& count);
    // Leaves the sorter empty. `checkpoint` is called now and then and may throw.
    Scoped<const SortedRows> finish(const std::function<void()>& checkpoint);

private:
    void openFile();
    void sortRun();
    void writeRun();
    void put(const void* bytes, std::size_t size);
    void reduceRuns(const std::function<void()>& checkpoint);
    void mergeRuns(std::size_t first, std::size_t count, const std::function<void()>& checkpoint);

    Limits m_limits;
    std::size_t m_capacity; // rows of a run
    Scoped<SortedRows> m_sorted;
    StreamWriter m_writer;
};

} // namespace Quillmoran
