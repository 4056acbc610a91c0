#include "filters/RunMerge.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace Quillmoran {

namespace {

constexpr std::size_t maxBufferBytes = 1 << 20;

} // namespace

RunMerge::RunMerge(IO* io, const RecordRun* runs, std::size_t numRuns, std::size_t recordSize,
                   std::size_t bufferBytes)
    : m_recordSize(recordSize), m_runs(numRuns), m_records(makeBuffer<unsigned char>(numRuns * recordSize))
{
    const std::size_t bufferSize =
        std::max(recordSize, std::min(bufferBytes / std::max<std::size_t>(numRuns, 1), maxBufferBytes));
    for (std::size_t i = 0; i < numRuns; ++i) {
        m_runs[i].remaining = runs[i].count;
        m_runs[i].stream.init(io, true, bufferSize);
        m_runs[i].stream.seek(runs[i].offset, Stream::SEEK_FROM_START);
        Head head{0, i};
        if (load(i, head))
            m_heap.push_back(head);
    }
    std::make_heap(m_heap.begin(), m_heap.end(), std::greater<>());
}

bool RunMerge::load(std::size_t run, Head& head)
{
    Run& from = m_runs[run];
    if (from.remaining == 0)
        return false;
    unsigned char* const record = recordOf(run);
    if (from.stream.read(record, m_recordSize) != m_recordSize)
        QM_THROW(ErrorCode::FileProbe, "bad read -- temporary file");
    --from.remaining;
    std::memcpy(&head.key, record, sizeof head.key);
    return true;
}

const unsigned char* RunMerge::next()
{
    if (m_started && !m_heap.empty()) {
        std::pop_heap(m_heap.begin(), m_heap.end(), std::greater<>());
        if (load(m_heap.back().run, m_heap.back()))
            std::push_heap(m_heap.begin(), m_heap.end(), std::greater<>());
        else
            m_heap.pop_back();
    }
    m_started = true;
    return m_heap.empty() ? nullptr : recordOf(m_heap.front().run);
}

} // namespace Quillmoran
