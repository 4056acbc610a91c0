#include "filters/RowSorter.h"

#include "files/Spool.h"

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t writeBufferSize = 1 << 20;
constexpr std::uint64_t checkInterval = 1 << 14; // records

} // namespace

SortedRows::Reader::Reader(const SortedRows& sorted) : m_sorted(Scoped<const SortedRows>::retained(&sorted))
{
    if (sorted.m_file)
        m_merge =
            std::make_unique<RunMerge>(sorted.m_file.get(), sorted.m_runs.data(), sorted.m_runs.size(),
                                       sorted.recordSize(), sorted.m_comparedBytes, sorted.m_mergeBytes);
}

std::size_t SortedRows::Reader::read(unsigned char* rows, std::size_t count)
{
    const std::size_t rowSize = m_sorted->m_rowSize;
    if (!m_merge) {
        count = std::min(count, m_sorted->m_count - m_next);
        const unsigned char* const from = m_sorted->m_rows.get();
        const SortEntry* const entries = m_sorted->m_entries.get() + m_next;
        for (std::size_t i = 0; i < count; ++i)
            std::memcpy(rows + i * rowSize, from + entries[i].index * rowSize, rowSize);
        m_next += count;
        return count;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char* const record = m_merge->next();
        if (!record)
            return i;
        std::memcpy(rows + i * rowSize, record + sizeof(std::uint64_t), rowSize);
    }
    return count;
}

RowSorter::RowSorter(std::size_t rowSize, const Limits& limits, std::size_t comparedBytes)
    : m_limits(limits),
      m_capacity(std::max<std::size_t>(limits.run / (rowSize + sizeof(SortEntry)), 1)),
      m_sorted(new SortedRows)
{
    m_sorted->m_rowSize = rowSize;
    m_sorted->m_comparedBytes = comparedBytes;
    m_sorted->m_mergeBytes = limits.merge;
    m_sorted->m_rows = makeBuffer<unsigned char>(m_capacity * rowSize);
    m_sorted->m_entries = makeBuffer<SortEntry>(m_capacity);
}

unsigned char* RowSorter::append(const std::uint64_t* keys, std::size_t& count)
{
    SortedRows& sorted = *m_sorted;
    if (sorted.m_count == m_capacity)
        writeRun();
    const std::size_t first = sorted.m_count;
    count = std::min(count, m_capacity - first);
    for (std::size_t i = 0; i < count; ++i)
        sorted.m_entries[first + i] = {keys[i], first + i};
    sorted.m_count += count;
    return sorted.m_rows.get() + first * sorted.m_rowSize;
}

Scoped<const SortedRows> RowSorter::finish(const std::function<void()>& checkpoint)
{
    if (m_sorted->m_file) {
        writeRun();
        m_sorted->m_rows.reset();
        m_sorted->m_entries.reset();
        reduceRuns(checkpoint);
        m_writer.close(true);
    } else {
        sortRun();
    }
    return Scoped<const SortedRows>(m_sorted.detach());
}

void RowSorter::sortRun()
{
    SortEntry* const entries = m_sorted->m_entries.get();
    const unsigned char* const rows = m_sorted->m_rows.get();
    const std::size_t rowSize = m_sorted->m_rowSize;
    const std::size_t comparedBytes = m_sorted->m_comparedBytes;
    if (comparedBytes == 0) {
        std::sort(entries, entries + m_sorted->m_count);
        return;
    }
    std::sort(entries, entries + m_sorted->m_count, [=](const SortEntry& a, const SortEntry& b) {
        const int order =
            a.key != b.key ? 0
                           : std::memcmp(rows + a.index * rowSize, rows + b.index * rowSize, comparedBytes);
        return order != 0 ? order < 0 : a < b;
    });
}

void RowSorter::writeRun()
{
    SortedRows& sorted = *m_sorted;
    if (!sorted.m_file) {
        sorted.m_file = Spool::create();
        m_writer.init(sorted.m_file.get(), true, writeBufferSize);
    }
    sortRun();
    sorted.m_runs.push_back({m_writer.tell(), sorted.m_count});
    const std::size_t rowSize = sorted.m_rowSize;
    const unsigned char* const rows = sorted.m_rows.get();
    const SortEntry* const entries = sorted.m_entries.get();
    for (std::size_t i = 0; i < sorted.m_count; ++i) {
        put(&entries[i].key, sizeof entries[i].key);
        put(rows + entries[i].index * rowSize, rowSize);
    }
    sorted.m_count = 0;
}

void RowSorter::put(const void* bytes, std::size_t size)
{
    if (m_writer.write(bytes, size) != size)
        QM_THROW(ErrorCode::Write, "write error");
}

// Merges as few adjacent runs as necessary, level by level. Merging adjacent runs keeps runs in the order of
// their rows.
void RowSorter::reduceRuns(const std::function<void()>& checkpoint)
{
    const std::vector<RecordRun>& runs = m_sorted->m_runs;
    const std::size_t maxRuns =
        std::max<std::size_t>(m_limits.merge / std::max(m_limits.buffer, m_sorted->recordSize()), 2);
    for (std::size_t first = 0; runs.size() > maxRuns; ++first) {
        const std::size_t count = std::min(maxRuns, runs.size() - maxRuns + 1);
        if (count > runs.size() - first)
            first = 0;
        mergeRuns(first, count, checkpoint);
    }
}

void RowSorter::mergeRuns(std::size_t first, std::size_t count, const std::function<void()>& checkpoint)
{
    std::vector<RecordRun>& runs = m_sorted->m_runs;
    m_writer.flush();
    RecordRun merged{m_writer.tell(), 0};
    RunMerge merge(m_sorted->m_file.get(), runs.data() + first, count, m_sorted->recordSize(),
                   m_sorted->m_comparedBytes, m_limits.merge);
    while (const unsigned char* record = merge.next()) {
        put(record, m_sorted->recordSize());
        if (++merged.count % checkInterval == 0)
            checkpoint();
    }
    const auto begin = runs.begin() + static_cast<std::ptrdiff_t>(first);
    *begin = merged;
    runs.erase(begin + 1, begin + static_cast<std::ptrdiff_t>(count));
}

} // namespace Quillmoran
