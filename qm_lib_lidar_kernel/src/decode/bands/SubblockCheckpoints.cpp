#include "decode/bands/SubblockCheckpoints.h"

#include <algorithm>
#include <iterator>
#include <mutex>

namespace Quillmoran {

void SubblockCheckpoints::reset(const Checkpoint& start, std::size_t numLatest)
{
    m_stride = minStride;
    m_spread.assign(1, start);
    m_latest.assign(numLatest, start);
    m_oldest = 0;
}

void SubblockCheckpoints::offer(const Checkpoint& checkpoint)
{
    m_latest[m_oldest] = checkpoint;
    m_oldest = m_oldest + 1 == m_latest.size() ? 0 : m_oldest + 1;
    if (checkpoint.headers - m_spread.back().headers < m_stride)
        return;
    if (m_spread.size() == capacity) {
        for (std::size_t i = 1; i < capacity / 2; ++i)
            m_spread[i] = m_spread[2 * i];
        m_spread.resize(capacity / 2);
        m_stride *= 2;
        if (checkpoint.headers - m_spread.back().headers < m_stride)
            return;
    }
    m_spread.push_back(checkpoint);
}

const SubblockCheckpoints::Checkpoint& SubblockCheckpoints::before(std::uint64_t subblock) const
{
    const auto next = std::upper_bound(
        m_spread.begin(), m_spread.end(), subblock,
        [](std::uint64_t value, const Checkpoint& checkpoint) { return value < checkpoint.subblock; });
    const Checkpoint* best = &*std::prev(next); // the first checkpoint is subblock 0
    for (const Checkpoint& checkpoint : m_latest)
        if (checkpoint.subblock <= subblock && checkpoint.subblock > best->subblock)
            best = &checkpoint;
    return *best;
}

void PlannedPositions::add(const Checkpoint& checkpoint)
{
    const std::lock_guard<Mutex> lock(m_mutex);
    if (m_checkpoints.size() == capacity)
        m_checkpoints.erase(m_checkpoints.begin(), m_checkpoints.begin() + capacity / 2);
    m_checkpoints.push_back(checkpoint);
}

void PlannedPositions::improve(std::uint64_t subblock, Checkpoint& checkpoint) const
{
    const std::lock_guard<Mutex> lock(m_mutex);
    const auto after = std::upper_bound(
        m_checkpoints.begin(), m_checkpoints.end(), subblock,
        [](std::uint64_t wanted, const Checkpoint& added) { return wanted < added.subblock; });
    if (after != m_checkpoints.begin() && std::prev(after)->subblock > checkpoint.subblock)
        checkpoint = *std::prev(after);
}

} // namespace Quillmoran
