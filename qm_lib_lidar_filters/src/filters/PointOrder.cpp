#include <vxunpack/PointOrder.h>

#include "filters/PointRows.h"
#include "filters/RowSorter.h"
#include "framework/MetadataKeys.h"
#include <vxunpack/Base.h>
#include <vxunpack/HilbertOrder.h>
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/TimeOrder.h>

#include <algorithm>
#include <mutex>

namespace Quillmoran {

namespace {

// Small enough for rows and the columns that they are packed from to stay in the caches together.
constexpr std::size_t blockBytes = 1 << 17;
constexpr std::size_t maxBlockPoints = 4096;
constexpr const char* activity = "sorting points";

std::size_t getBlockPoints(const PointRows& format)
{
    return std::clamp<std::size_t>(blockBytes / std::max<std::size_t>(format.getRowSize(), 1), 1,
                                   maxBlockPoints);
}

void checkCancelled(ProgressDelegate* delegate)
{
    if (delegate && delegate->getCancelled())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
}

} // namespace

struct PointOrder::Impl
{
    struct Query
    {
        Bounds bounds;
        double fraction = 0;
        PointInfo layout;

        bool operator==(const Query&) const = default;
    };

    Scoped<const SortedRows> sort(const PointOrder& order, const Query& wanted,
                                  ProgressDelegate* delegate) const;

    Limits limits;
    std::mutex mutex; // guards the last query
    Query query;
    Scoped<const SortedRows> sorted; // of the last query, null without one
};

class PointOrder::Iterator final : public PointIterator
{
public:
    Iterator(const SortedRows& sorted, const Impl::Query& query, ProgressDelegate* delegate)
        : m_format(query.layout),
          m_reader(sorted),
          m_blockPoints(getBlockPoints(m_format)),
          m_rows(makeBuffer<unsigned char>(m_blockPoints * m_format.getRowSize()))
    {
        init(query.bounds, query.fraction, query.layout, delegate);
    }

    std::size_t getNextPoints(PointData& buffer) override
    {
        std::size_t filled = 0;
        while (filled < buffer.getNumSamples()) {
            checkCancelled(getDelegate());
            const std::size_t count =
                m_reader.read(m_rows.get(), std::min(m_blockPoints, buffer.getNumSamples() - filled));
            if (count == 0)
                break;
            m_format.unpack(buffer, filled, m_rows.get(), count);
            filled += count;
            if (getDelegate())
                getDelegate()->updateCompleted(static_cast<double>(count), activity);
        }
        return filled;
    }

private:
    const PointRows m_format;
    SortedRows::Reader m_reader;
    const std::size_t m_blockPoints;
    Buffer<unsigned char> m_rows;
};

PointOrder::PointOrder() : m_impl(std::make_unique<Impl>())
{}

PointOrder::~PointOrder() = default;

Scoped<PointSource> PointOrder::sort(PointSource* source, Order order)
{
    const auto sorted = [source](auto* made) {
        Scoped<PointSource> filter(made);
        made->init(source);
        return filter;
    };
    switch (order) {
    case Order::Time:
        return sorted(TimeOrder::create());
    case Order::Hilbert:
        return sorted(HilbertOrder::create());
    case Order::Input:
        break;
    }
    return Scoped<PointSource>::retained(source);
}

void PointOrder::init(PointSource* source)
{
    PointFilter::init(source);
    m_impl->sorted.reset();
}

void PointOrder::setLimits(const Limits& limits)
{
    m_impl->limits = limits;
}

double PointOrder::getTotalWork(const Bounds& bounds, double fraction) const
{
    const PointSource& source = *getSrc();
    const double kept = fraction > 0 ? std::min(fraction, 1.0) : 0;
    return source.getTotalWork(bounds, fraction) + source.estimatePoints(bounds, kept);
}

Scoped<const SortedRows> PointOrder::Impl::sort(const PointOrder& order, const Query& wanted,
                                                ProgressDelegate* delegate) const
{
    const PointRows format(wanted.layout);
    PointInfo layout = wanted.layout;
    const Keys getKeys = order.makeKeys(wanted.bounds, layout);
    PointData block;
    block.init(layout, getBlockPoints(format));
    Scoped<PointIterator> points(
        order.getSrc()->createIterator(wanted.bounds, wanted.fraction, layout, delegate));
    const auto keys = makeBuffer<std::uint64_t>(block.getNumSamples());
    RowSorter sorter(format.getRowSize(), limits);
    while (const std::size_t count = points->getNextPoints(block)) {
        checkCancelled(delegate);
        getKeys(keys.get(), block, count);
        for (std::size_t done = 0; done < count;) {
            std::size_t taken = count - done;
            unsigned char* const rows = sorter.append(keys.get() + done, taken);
            format.pack(rows, block, done, taken);
            done += taken;
        }
    }
    points.reset(); // releases its file and its buffers before runs are merged
    return sorter.finish([delegate] { checkCancelled(delegate); });
}

void PointOrder::loadMetadata(Metadata& into, bool sanitize) const
{
    Metadata records;
    getSrc()->loadMetadata(records, sanitize);
    MetadataKeys::removePointIndexes(records);
    records.removeAll(MetadataKeys::pointOrder);
    records.add(MetadataKeys::pointOrder, nullptr, METADATA_STRING, getOrderName(), 0);
    into.add(records);
}

PointIterator* PointOrder::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                          ProgressDelegate* delegate) const
{
    getSrc(); // refuses a filter without init()
    const Impl::Query query{bounds, fraction, layout};
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    if (!m_impl->sorted || !(m_impl->query == query)) {
        m_impl->sorted.reset(); // releases memory and disk space before others are allocated
        m_impl->query = query;
        m_impl->sorted = m_impl->sort(*this, query, delegate);
    } else if (delegate) {
        // getTotalWork() includes the work of reading the source, which is saved.
        delegate->updateCompleted(getSrc()->getTotalWork(bounds, fraction), activity);
    }
    return new Iterator(*m_impl->sorted, query, delegate);
}

} // namespace Quillmoran
