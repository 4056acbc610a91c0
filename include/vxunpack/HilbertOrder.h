// Delivers a source's points in the order of a Hilbert curve over X and Y, so that points close to each other
// on the ground are close to each other in the sequence. Points in the same cell of the curve keep the
// source's order. The source applies the query's box and fraction; the filter sorts the result.
//
// Sorting uses bounded memory and, for many points, a temporary file. The sorted points are kept until
// another query is made, so that repeating a query does not read the source again.
#pragma once

#include <vxunpack/PointSource.h>

#include <cstddef>
#include <memory>

namespace Quillmoran {

class QM_API HilbertOrder final : public PointFilter
{
public:
    // The memory of a sort, in bytes.
    struct Limits
    {
        std::size_t run = 32 << 20;    // points and keys that are sorted at a time
        std::size_t merge = 16 << 20;  // all buffers of a merge
        std::size_t buffer = 16 << 10; // one buffer of a merge, at least; limits the number of merged runs
    };

    static HilbertOrder* create() { return new HilbertOrder; }

    // Retains the source.
    void init(PointSource* source);
    // Applies to later queries; the order of the points does not depend on it.
    void setLimits(const Limits& limits);

    // The source's work, and the number of sorted points.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // Without indexes of the points by their positions.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // Reads the whole source and sorts, unless the query is that of the last call. Throws the source's
    // errors, those of the temporary file, Cancelled "operation cancelled.", General "unsupported datatype",
    // and InvalidArgument before init(). May be called from any thread; one sort runs at a time. Iterators
    // stay valid when another query follows.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    class QM_HIDDEN Iterator;
    struct QM_HIDDEN Impl;

    HilbertOrder();
    ~HilbertOrder() override;

    std::unique_ptr<Impl> m_impl;
};

} // namespace Quillmoran
