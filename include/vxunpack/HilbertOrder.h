// Shows a source's points in the order of a Hilbert curve over X and Y (HilbertCurve.h), so that points that
// follow one another are near each other. Points of one cell of the curve keep the source's order. Box and
// share are the source's matter: the filter sorts what the source gives for a query.
//
// Points are sorted in bounded memory, with a temporary file for many of them (RowSorter.h). What was sorted
// is kept until another query comes: asking for the same query again does not read the source again.
#pragma once

#include "filters/RowSorter.h"
#include "platform/Mutex.h"
#include <vxunpack/PointSource.h>

namespace Quillmoran {

class QM_API HilbertOrder final : public PointFilter
{
public:
    static HilbertOrder* create();

    void init(PointSource* source);
    // For the sorts to come. The order does not depend on it.
    void setLimits(const RowSorter::Limits& limits) { m_limits = limits; }

    // Reading the source, and each point once for the sorted ones.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // Reads the source to its end and sorts, unless the last query was the same; its errors, those of the
    // temporary file, Cancelled "operation cancelled." and -1 "unsupported datatype" come here already. One sort
    // is done at a time, others wait. Iterators go on when another query follows.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    class Iterator;

    struct Query
    {
        Bounds bounds;
        double fraction = 0;
        PointInfo layout;

        bool operator==(const Query& other) const noexcept
        {
            return bounds == other.bounds && fraction == other.fraction && layout == other.layout;
        }
    };

    HilbertOrder() = default;

    Scoped<const SortedRows> sort(const Query& query, ProgressDelegate* delegate) const;

    RowSorter::Limits m_limits;
    mutable Mutex m_mutex; // guards the last query
    mutable Query m_query;
    mutable Scoped<const SortedRows> m_sorted; // of the last query, null without one
};

} // namespace Quillmoran
