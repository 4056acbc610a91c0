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
        readNext();
        for (m_current = 1 - m_current; m_blocks[m_current].count != 0; m_current = 1 - m_current)
            visit(std::as_const(m_blocks[m_current].points), m_blocks[m_current].count);
    }

    // May be called from any thread.
    void readNext()
    {
        Block& next = m_blocks[1 - m_current];
        next.count = m_iterator->getNextPoints(next.points);
    }

private:
    struct Block
    {
        PointData points;
        std::size_t count = 0;
    };

    Scoped<PointIterator> m_iterator;
    Block m_blocks[2];
    std::size_t m_current = 0;
};

} // namespace Quillmoran
