// Reads the blocks of an iterator into two alternating buffers, so that the next block can be read while
// other threads work on the current one.
#pragma once

#include <vxunpack/Object.h>
#include <vxunpack/PointIterator.h>

#include <cstddef>
#include <utility>

namespace Quillmoran {

class BlockReader
{
public:
    BlockReader(Scoped<PointIterator> iterator, const PointInfo& layout, std::size_t blockPoints)
        : m_iterator(std::move(iterator))
    {
        for (Block& block : m_blocks)
            block.points.init(layout, blockPoints);
    }

    // Calls visit(points, count) for each block. `visit` must call readNext() once.
    template <class Visit>
    void forEach(Visit visit)
    {
        if (!std::exchange(m_isRewound, false))
            readNext();
        for (m_current = 1 - m_current; m_blocks[m_current].count != 0; m_current = 1 - m_current)
            visit(std::as_const(m_blocks[m_current].points), m_blocks[m_current].count);
    }

    // May be called from any thread.
    void readNext()
    {
        Block& next = m_blocks[1 - m_current];
        next.count = m_isEnded ? 0 : m_iterator->getNextPoints(next.points);
        m_isEnded = next.count == 0;
        m_numBlocks += m_isEnded ? 0 : 1;
    }

    // After forEach(): whether all points are in one block. The next forEach() then visits this block again.
    bool rewind() noexcept { return m_isRewound = m_numBlocks == 1; }

private:
    struct Block
    {
        PointData points;
        std::size_t count = 0;
    };

    Scoped<PointIterator> m_iterator;
    Block m_blocks[2];
    std::size_t m_current = 0;
    std::size_t m_numBlocks = 0;
    bool m_isEnded = false;
    bool m_isRewound = false;
};

} // namespace Quillmoran
