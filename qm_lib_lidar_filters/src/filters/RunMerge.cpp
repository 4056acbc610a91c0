#include "filters/RunMerge.h"

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t maxBufferBytes = 1 << 20;

} // namespace

RunMerge::RunMerge(IO* io, const RecordRun* runs, std::size_t numRuns, std::size_t recordSize,
                   std::size_t comparedBytes, std::size_t bufferBytes)
    : m_recordSize(recordSize),
      m_comparedBytes(comparedBytes),
      m_runs(numRuns),
      m_records(makeBuffer<unsigned char>(numRuns * recordSize))
{
    const std::size_t bufferSize =
        std::max(recordSize, std::min(bufferBytes / std::max<std::size_t>(numRuns, 1), maxBufferBytes));
    for (std::size_t i = 0; i < numRuns; ++i) {
        m_runs[i].remaining = runs[i].count;
        m_runs[i].stream.init(io, true, bufferSize);
        m_runs[i].stream.seek(runs[i].offset, Stream::SEEK_FROM_START);
        SortEntry head{0, i};
        if (load(head))
            m_heap.push_back(head);
    }
    for (std::size_t i = m_heap.size() / 2; i-- > 0;)
        sift(i);
}

bool RunMerge::load(SortEntry& head)
{
    Run& from = m_runs[head.index];
    if (from.remaining == 0)
        return false;
    unsigned char* const record = recordOf(head.index);
    if (from.stream.read(record, m_recordSize) != m_recordSize)
        QM_THROW(ErrorCode::FileProbe, "bad read -- temporary file");
    --from.remaining;
    std::memcpy(&head.key, record, sizeof head.key);
    return true;
}

bool RunMerge::isBefore(const SortEntry& a, const SortEntry& b) const noexcept
{
    if (a.key != b.key || m_comparedBytes == 0)
        return a < b;
    const int order =
        std::memcmp(recordOf(a.index) + sizeof a.key, recordOf(b.index) + sizeof b.key, m_comparedBytes);
    return order != 0 ? order < 0 : a.index < b.index;
}

void RunMerge::sift(std::size_t at) noexcept
{
    const SortEntry head = m_heap[at];
    for (std::size_t child = 2 * at + 1; child < m_heap.size(); child = 2 * at + 1) {
        if (child + 1 < m_heap.size() && isBefore(m_heap[child + 1], m_heap[child]))
            ++child;
        if (!isBefore(m_heap[child], head))
            break;
        m_heap[at] = m_heap[child];
        at = child;
    }
    m_heap[at] = head;
}

const unsigned char* RunMerge::next()
{
    if (m_started && !m_heap.empty()) {
        if (!load(m_heap.front())) {
            m_heap.front() = m_heap.back();
            m_heap.pop_back();
        }
        if (!m_heap.empty())
            sift(0);
    }
    m_started = true;
    return m_heap.empty() ? nullptr : recordOf(m_heap.front().index);
}

} // namespace Quillmoran
