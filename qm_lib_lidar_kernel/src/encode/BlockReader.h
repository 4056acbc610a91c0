// Reads the blocks of an iterator ahead of the threads that work on them. Each lane of the work takes the
// blocks in order and by itself, so that no lane waits for another one: see TaskLanes.
#pragma once

#include "platform/ParallelLoop.h"
#include "platform/TaskLanes.h"
#include <vxunpack/Object.h>
#include <vxunpack/PointIterator.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace Quillmoran {

class BlockReader
{
public:
    struct Block
    {
        PointData points;
        std::size_t count = 0;
        std::size_t slot = 0; // less than getNumSlots(), and of this block alone until its end
    };

    BlockReader(Scoped<PointIterator> iterator, const PointInfo& layout, std::size_t blockPoints)
        : m_iterator(std::move(iterator)), m_blocks(chooseSlots())
    {
        for (std::size_t slot = 0; slot < m_blocks.size(); ++slot) {
            m_blocks[slot].points.init(layout, blockPoints);
            m_blocks[slot].slot = slot;
        }
    }

    std::size_t getNumSlots() const noexcept { return m_blocks.size(); }

    // For each block in order: begin(block), then work(block, lane) for each lane on any thread, then
    // end(block). begin() and end() run on this thread. If end() returns false, the blocks that have begun
    // are worked on and ended, and the next call continues after them. Exceptions of all three end the loop.
    template <class Begin, class Work, class End>
    void forEach(std::size_t numLanes, Begin begin, Work work, End end)
    {
        TaskLanes lanes(numLanes, m_blocks.size(), [&](std::size_t slot, std::size_t lane) {
            work(std::as_const(m_blocks[slot]), lane);
        });
        bool goesOn = true;
        for (;;) {
            while (goesOn && lanes.numStarted() < m_blocks.size()) {
                Block& block = m_blocks[lanes.nextSlot()];
                goesOn = read(block);
                if (!goesOn)
                    break;
                begin(std::as_const(block));
                lanes.start();
            }
            if (lanes.numStarted() == 0)
                return;
            goesOn &= end(std::as_const(m_blocks[lanes.finish()]));
        }
    }

    // After forEach(): whether all points are in one block. The next forEach() then visits this block again.
    bool rewind() noexcept { return m_isRewound = m_keepsFirst && m_numBlocks == 1; }

private:
    // The longest lane has more threads while others wait for it: with few slots, they wait too often.
    static std::size_t chooseSlots() { return std::min<std::size_t>(getNumThreads() / 2 + 2, 8); }

    // Returns false at the end.
    bool read(Block& block)
    {
        if (std::exchange(m_isRewound, false))
            return true;
        if (m_isEnded)
            return false;
        m_keepsFirst = m_numBlocks == 0 || (m_keepsFirst && block.slot != 0);
        block.count = m_iterator->getNextPoints(block.points);
        m_isEnded = block.count == 0;
        m_numBlocks += m_isEnded ? 0 : 1;
        return !m_isEnded;
    }

    Scoped<PointIterator> m_iterator;
    std::vector<Block> m_blocks;
    std::size_t m_numBlocks = 0;
    bool m_isEnded = false;
    bool m_keepsFirst = false; // the first slot has the first block
    bool m_isRewound = false;
};

} // namespace Quillmoran
