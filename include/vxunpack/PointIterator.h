// Delivers the points of one query in blocks. Used by one thread at a time.
#pragma once

#include <vxunpack/Bounds.h>
#include <vxunpack/Object.h>
#include <vxunpack/PointData.h>

#include <algorithm>
#include <cstddef>

namespace Quillmoran {

class ProgressDelegate;

class QM_API PointIterator : public Object
{
public:
    // Fills the buffer from index 0 and returns how many points were filled; 0 is the end.
    virtual std::size_t getNextPoints(PointData& buffer) = 0;

    // What a query of a box takes: the box grown by half a quantization step on every side, so that a point
    // whose quantized coordinate rounds into the box is kept. The layout needs X, Y and Z: InvalidArgument "must have
    // x, y, and z channels".
    static Bounds widened(const Bounds& bounds, const PointInfo& layout);

protected:
    PointIterator() = default;

    // Keeps the query, its box widened. The same error.
    void init(const Bounds& bounds, double fraction, const PointInfo& layout, ProgressDelegate* delegate);

    const Bounds& getBounds() const noexcept { return m_bounds; }
    // Whether the query takes a point with these coordinates, the sampling aside. A query without a box takes
    // points with NaN coordinates, too; no box holds them.
    bool isWanted(double x, double y, double z) const noexcept
    {
        return m_isUnbounded || m_bounds.contains(x, y, z);
    }
    double getFraction() const noexcept { return m_fraction; }
    ProgressDelegate* getDelegate() const noexcept { return m_delegate; }

    // Whether the next candidate inside the box is taken: the fraction is added up, and each time the sum
    // passes the threshold a point is due. With 1/2 the first, third, fifth ... are taken, with 1 all of
    // them.
    bool sample() noexcept
    {
        m_accumulator += m_fraction;
        if (!(m_accumulator > m_threshold))
            return false;
        m_accumulator -= 1.0;
        return true;
    }

    // Takes the points of a block, from `cursor` to `fill`, that lie in the box and that the sampling takes,
    // until `room` of them fill the caller's buffer: calls copyRun(filled, first, count) for each run of
    // them. Returns how many the buffer then holds; `cursor` goes on.
    template <class CopyRun>
    std::size_t takeKept(const double* x, const double* y, const double* z, std::size_t& cursor,
                         std::size_t fill, std::size_t filled, std::size_t room, CopyRun copyRun)
    {
        const Bounds bounds = m_bounds;
        const bool isUnbounded = m_isUnbounded;
        while (cursor < fill && filled < room) {
            const std::size_t first = cursor;
            const std::size_t last = first + std::min(fill - first, room - filled);
            std::size_t next = first;
            while (next < last && (isUnbounded || bounds.contains(x[next], y[next], z[next])) && sample())
                ++next;
            if (next != first)
                copyRun(filled, first, next - first);
            filled += next - first;
            cursor = next < last ? next + 1 : next; // the point that ended a run is not kept
        }
        return filled;
    }

private:
    Bounds m_bounds;
    bool m_isUnbounded = false;
    double m_fraction = 1.0;
    double m_accumulator = 0.0;
    double m_threshold = 0.5;
    ProgressDelegate* m_delegate = nullptr;
};

} // namespace Quillmoran
