// The base of the filters that sort: delivers a source's points in the order of a key. Points with the same
// key keep the source's order. The source applies the query's box and fraction; the filter sorts the result.
//
// Sorting uses bounded memory and, for many points, a temporary file. The sorted points are kept until
// another query is made, so that repeating a query does not read the source again.
#pragma once

#include <vxunpack/PointSource.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace Quillmoran {

enum class Order
{
    Input,   // that of the source
    Time,    // TimeOrder
    Hilbert, // HilbertOrder
};

class QM_API PointOrder : public PointFilter
{
public:
    // The memory of a sort, in bytes.
    struct Limits
    {
        std::size_t run = 32 << 20;    // points and keys that are sorted at a time
        std::size_t merge = 16 << 20;  // all buffers of a merge
        std::size_t buffer = 16 << 10; // one buffer of a merge, at least; limits the number of merged runs
    };

    // The source in this order; the source itself for Order::Input. Throws what init() of the order throws.
    static Scoped<PointSource> sort(PointSource* source, Order order);

    // Retains the source. Throws InvalidArgument for null.
    void init(PointSource* source);
    // Applies to later queries; the order of the points does not depend on it.
    void setLimits(const Limits& limits);

    // The source's work, and the number of sorted points.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // Without indexes of the points by their positions, and with a record "PointOrder", the name of the order.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // Reads the whole source and sorts, unless the query is that of the last call. Throws the source's
    // errors, those of the temporary file, Cancelled "operation cancelled.", General "unsupported datatype",
    // and InvalidArgument before init(). May be called from any thread; one sort runs at a time. Iterators
    // stay valid when another query follows.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

protected:
    // Computes the keys of the first `count` points of a block. Points are sorted by ascending keys.
    using Keys = std::function<void(std::uint64_t* keys, const PointData& block, std::size_t count)>;

    PointOrder();
    ~PointOrder() override;

    // Called once per sort. `layout` is that of the query and then that of the blocks: channels that only the
    // keys need may be appended. The source outlives the result.
    virtual Keys makeKeys(const Bounds& bounds, PointInfo& layout) const = 0;
    // As in "hilbert".
    virtual const char* getOrderName() const = 0;

private:
    class QM_HIDDEN Iterator;
    struct QM_HIDDEN Impl;

    std::unique_ptr<Impl> m_impl;
};

} // namespace Quillmoran
