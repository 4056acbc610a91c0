#include "encode/container/IndexWriter.h"

#include "common/container/ChunkHeader.h"
#include "index/BoxGrid.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include <vxunpack/PointData.h>

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

// Whether a grid can cover the boxes: their ends and extents are finite.
bool fitsGrid(const Bounds& all)
{
    const Bounds outer = BoxGrid(all).widen(all);
    for (const Bounds::Range* range : {&outer.x, &outer.y, &outer.z})
        if (!std::isfinite(range->max - range->min))
            return false;
    return true;
}

// If all points of a box have NaN for a coordinate, its range is empty, and no query of a box returns them.
// The tree needs finite numbers, so such a range becomes the lower end of the range of all points.
Bounds onGrid(Bounds box, const Bounds& all)
{
    const auto settle = [](Bounds::Range& range, const Bounds::Range& whole) {
        if (!(range.min <= range.max))
            range = {whole.min, whole.min};
    };
    settle(box.x, all.x);
    settle(box.y, all.y);
    settle(box.z, all.z);
    return box;
}

} // namespace

void IndexWriter::add(const PointData& points, std::size_t count)
{
    for (std::size_t i = 0; i < count;) {
        if (m_free == 0) {
            m_boxes.emplace_back();
            m_free = m_pointsPerEntry;
        }
        const std::size_t taken = std::min<std::size_t>(count - i, m_free);
        Bounds box = m_boxes.back();
        for (const std::size_t end = i + taken; i < end; ++i) {
            box.x.grow(points.getX()[i]);
            box.y.grow(points.getY()[i]);
            box.z.grow(points.getZ()[i]);
        }
        m_boxes.back() = box;
        m_free -= static_cast<std::uint32_t>(taken);
    }
}

void IndexWriter::write(StreamWriter& out, std::uint8_t version) const
{
    Bounds all;
    for (const Bounds& box : m_boxes)
        all.grow(box);
    if (version == INDEX_ON_DISK && !m_boxes.empty() && !fitsGrid(all))
        version = INDEX_IN_MEMORY;
    out.put_be(version);
    out.put_be(m_pointsPerEntry);
    if (version == INDEX_IN_MEMORY) {
        out.put_be(static_cast<std::uint32_t>(m_boxes.size()));
        for (const Bounds& box : m_boxes)
            for (const double value : {box.x.min, box.x.max, box.y.min, box.y.max, box.z.min, box.z.max})
                out.put_be(value);
        return;
    }
    const BoxGrid grid(all);
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (std::size_t i = 0; i < m_boxes.size(); ++i)
        tree->insert(grid.widen(onGrid(m_boxes[i], all)), static_cast<std::int64_t>(i));
    tree->save(out, grid.steps());
}

} // namespace Quillmoran
