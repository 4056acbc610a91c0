#include "diff/UnorderedComparison.h"

#include "diff/PointRowFormat.h"
#include "diff/PointStream.h"
#include "filters/RowSorter.h"
#include "platform/ParallelLoop.h"

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t largestBlock =
    4096; // rows and the columns that they are packed from stay in the caches
constexpr const char* sorting = "sorting points";
constexpr const char* merging = "comparing points";

Scoped<const SortedRows> sortRows(const PointSource& source, const PointInfo& layout,
                                  const PointRowFormat& format, const PointOrder::Limits& limits,
                                  SharedProgress& progress, DiffReport::Cloud& description)
{
    const std::size_t blockPoints = layout.getBlockPoints(largestBlock);
    const std::size_t rowSize = format.getRowSize();
    const auto rows = makeBuffer<unsigned char>(blockPoints * rowSize);
    const auto keys = makeBuffer<std::uint64_t>(blockPoints);
    PointData block;
    block.init(layout, blockPoints);
    RowSorter sorter(rowSize, limits, format.getSampleBytes());
    {
        PointStream stream(source, layout, progress); // releases its file before runs are merged
        while (const std::size_t count = stream.read(block)) {
            progress.checkCancelled();
            format.pack(rows.get(), block, count, stream.getNumPoints() - count);
            format.getKeys(keys.get(), rows.get(), count);
            for (std::size_t done = 0; done < count;) {
                std::size_t taken = count - done;
                unsigned char* const to = sorter.append(keys.get() + done, taken);
                std::memcpy(to, rows.get() + done * rowSize, taken * rowSize);
                done += taken;
            }
        }
        description.numPoints = stream.getNumPoints();
        description.bounds = stream.getBounds();
    }
    return sorter.finish([&progress] { progress.checkCancelled(); });
}

// The rows of a cloud in their order, one at a time.
class RowCursor
{
public:
    RowCursor(const SortedRows& rows, const PointRowFormat& format, ProgressDelegate& progress)
        : m_reader(rows),
          m_format(format),
          m_progress(progress),
          m_capacity(std::clamp<std::size_t>(bufferBytes / format.getRowSize(), 1, maxRows)),
          m_rows(makeBuffer<unsigned char>(m_capacity * format.getRowSize())),
          m_keys(makeBuffer<std::uint64_t>(m_capacity))
    {
        load();
    }

    bool isAtEnd() const noexcept { return m_count == 0; }
    const unsigned char* row() const noexcept { return m_rows.get() + m_next * m_format.getRowSize(); }
    // Below 0 if this row is before the other one, 0 if their samples are equal.
    int compare(const RowCursor& other) const noexcept
    {
        if (m_keys[m_next] != other.m_keys[other.m_next])
            return m_keys[m_next] < other.m_keys[other.m_next] ? -1 : 1;
        return std::memcmp(row(), other.row(), m_format.getSampleBytes());
    }
    void next()
    {
        if (++m_next == m_count)
            load();
    }

private:
    static constexpr std::size_t bufferBytes = 1 << 17;
    static constexpr std::size_t maxRows = 1024;

    void load()
    {
        if (m_progress.getCancelled())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
        m_count = m_reader.read(m_rows.get(), m_capacity);
        m_next = 0;
        m_format.getKeys(m_keys.get(), m_rows.get(), m_count);
        m_progress.updateCompleted(static_cast<double>(m_count), merging);
    }

    SortedRows::Reader m_reader;
    const PointRowFormat& m_format;
    ProgressDelegate& m_progress;
    const std::size_t m_capacity; // rows
    Buffer<unsigned char> m_rows;
    Buffer<std::uint64_t> m_keys;
    std::size_t m_next = 0;
    std::size_t m_count = 0;
};

// Counts the row of the cursor. The report has the points with the lowest indices.
void addSurplus(DiffReport::Surplus& surplus, const RowCursor& cursor, const PointRowFormat& format)
{
    ++surplus.numPoints;
    std::vector<DiffReport::Surplus::Point>& first = surplus.first;
    const auto isBefore = [](const auto& x, const auto& y) { return x.index < y.index; };
    if (first.size() == DiffReport::maxShown) {
        if (format.getIndex(cursor.row()) > first.back().index)
            return;
        first.pop_back();
    }
    auto point = format.unpack(cursor.row());
    const auto place = std::upper_bound(first.begin(), first.end(), point, isBefore);
    first.insert(place, std::move(point));
}

} // namespace

void compareUnordered(const PointSource& a, const PointSource& b, const ComparedChannels& channels,
                      ProgressDelegate& progress, DiffReport& report, const PointOrder::Limits& limits)
{
    const PointRowFormat format(channels);
    std::mutex mutex;
    SharedProgress progressOfA(progress, mutex, sorting);
    SharedProgress progressOfB(progress, mutex, sorting);
    // Each point is read and merged.
    progress.setTotal(2 * (a.getTotalWork(Bounds::Huge(), 1.0) + b.getTotalWork(Bounds::Huge(), 1.0)));
    Scoped<const SortedRows> rowsOfA;
    Scoped<const SortedRows> rowsOfB;
    parallelLoop(2, [&](std::size_t side) {
        if (side == 0)
            rowsOfA = sortRows(a, channels.a, format, limits, progressOfA, report.a);
        else
            rowsOfB = sortRows(b, channels.b, format, limits, progressOfB, report.b);
    });

    report.isUnordered = true;
    RowCursor inA(*rowsOfA, format, progress);
    RowCursor inB(*rowsOfB, format, progress);
    while (!inA.isAtEnd() || !inB.isAtEnd()) {
        const int order = inA.isAtEnd() ? 1 : inB.isAtEnd() ? -1 : inA.compare(inB);
        if (order < 0)
            addSurplus(report.onlyA, inA, format);
        else if (order > 0)
            addSurplus(report.onlyB, inB, format);
        if (order <= 0)
            inA.next();
        if (order >= 0)
            inB.next();
    }
}

} // namespace Quillmoran
