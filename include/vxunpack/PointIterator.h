// Delivers the points of one query in blocks. Used by one thread at a time.
//
// A custom iterator calls init() in its constructor and selects points with isWanted() and sample():
//
//   std::size_t getNextPoints(PointData& buffer) override
//   {
//       std::size_t count = 0;
//       for (; m_next < m_points.size() && count < buffer.getNumSamples(); ++m_next) {
//           const Point& point = m_points[m_next];
//           if (!isWanted(point.x, point.y, point.z) || !sample())
//               continue;
//           buffer.getX()[count] = point.x;
//           buffer.getY()[count] = point.y;
//           buffer.getZ()[count] = point.z;
//           ++count; // after storing the other channels of the layout
//       }
//       return count;
//   }
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
    // Fills the buffer, which has the layout of the query, from index 0 and returns the number of points; 0
    // at the end. Throws the errors of reading the points, and Cancelled if the delegate asks to stop.
    virtual std::size_t getNextPoints(PointData& buffer) = 0;

    // The box of a query, grown by half a quantization step on each side, so that it contains the points
    // whose quantized coordinates are in the box. Throws InvalidArgument "must have x, y, and z channels".
    static Bounds widened(const Bounds& bounds, const PointInfo& layout);

protected:
    PointIterator() = default;

    // Sets the query and widens its box; throws the same error as widened(). The delegate may be null and
    // must outlive the iterator. Before init(), no point is selected.
    void init(const Bounds& bounds, double fraction, const PointInfo& layout, ProgressDelegate* delegate);

    // The widened box.
    const Bounds& getBounds() const noexcept { return m_bounds; }
    // Whether a point is in the box. A point with a NaN coordinate is in no box except Bounds::Huge().
    bool isWanted(double x, double y, double z) const noexcept
    {
        return m_isUnbounded || m_bounds.contains(x, y, z);
    }
    // In [0, 1].
    double getFraction() const noexcept { return m_fraction; }
    ProgressDelegate* getDelegate() const noexcept { return m_delegate; }

    // Whether the sampling selects the next point of the box; called once per point. The fraction is
    // accumulated, and a point is selected each time the sum passes the threshold: with 1/2 the first, third,
    // fifth and so on.
    bool sample() noexcept
    {
        m_accumulator += m_fraction;
        if (!(m_accumulator > m_threshold))
            return false;
        m_accumulator -= 1.0;
        return true;
    }

    // For iterators that decode points to arrays of their own: visits the points from `cursor` to `fill`, and
    // calls copyRun(filled, first, count) for each run of points that the query selects, until the caller's
    // buffer, which starts with `filled` points, holds `capacity` points. Returns the new number of points in
    // the buffer and advances `cursor` past the visited points.
    template <class CopyRun>
    std::size_t takeKept(const double* x, const double* y, const double* z, std::size_t& cursor,
                         std::size_t fill, std::size_t filled, std::size_t capacity, CopyRun copyRun)
    {
        const Bounds bounds = m_bounds;
        const bool isUnbounded = m_isUnbounded;
        while (cursor < fill && filled < capacity) {
            const std::size_t first = cursor;
            const std::size_t last = first + std::min(fill - first, capacity - filled);
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
