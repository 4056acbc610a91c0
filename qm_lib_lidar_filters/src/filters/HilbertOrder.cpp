#include <vxunpack/HilbertOrder.h>

#include "filters/HilbertCurve.h"
#include "filters/PointRows.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <mutex>

namespace Quillmoran {

namespace {

// Rows and the columns that they are packed from stay in the caches together.
constexpr std::size_t blockBytes = 1 << 17;
constexpr std::size_t mostBlockPoints = 4096;
constexpr const char* activity = "sorting points";

std::size_t getBlockPoints(const PointRows& format)
{
    return std::clamp<std::size_t>(blockBytes / std::max<std::size_t>(format.getRowSize(), 1), 1,
                                   mostBlockPoints);
}

void checkCancelled(ProgressDelegate* delegate)
{
    if (delegate && delegate->getCancelled())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
}

} // namespace

class HilbertOrder::Iterator final : public PointIterator
{
public:
    Iterator(const SortedRows& sorted, const Query& query, ProgressDelegate* delegate)
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

HilbertOrder* HilbertOrder::create()
{
    return new HilbertOrder;
}

void HilbertOrder::init(PointSource* source)
{
    PointFilter::init(source);
    m_sorted.reset();
}

double HilbertOrder::getTotalWork(const Bounds& bounds, double fraction) const
{
    const double share = fraction > 0 ? std::min(fraction, 1.0) : 0;
    return getSrc()->getTotalWork(bounds, fraction) + getSrc()->estimatePoints(bounds, share);
}

Scoped<const SortedRows> HilbertOrder::sort(const Query& query, ProgressDelegate* delegate) const
{
    const PointSource& source = *getSrc();
    const PointRows format(query.layout);
    PointData block;
    block.init(query.layout, getBlockPoints(format));
    Scoped<PointIterator> points(source.createIterator(query.bounds, query.fraction, query.layout, delegate));
    const HilbertGrid grid(source.getBounds(), query.bounds);
    const auto keys = makeBuffer<std::uint64_t>(block.getNumSamples());
    RowSorter sorter(format.getRowSize(), m_limits);
    while (const std::size_t count = points->getNextPoints(block)) {
        checkCancelled(delegate);
        grid.getKeys(keys.get(), block.getX(), block.getY(), count);
        for (std::size_t done = 0; done < count;) {
            std::size_t taken = count - done;
            unsigned char* const rows = sorter.append(keys.get() + done, taken);
            format.pack(rows, block, done, taken);
            done += taken;
        }
    }
    points.reset(); // its file and its buffers are not needed while runs are merged
    return sorter.finish([delegate] { checkCancelled(delegate); });
}

PointIterator* HilbertOrder::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                            ProgressDelegate* delegate) const
{
    const Query query{bounds, fraction, layout};
    const std::lock_guard<Mutex> lock(m_mutex);
    if (!m_sorted || !(m_query == query)) {
        m_sorted.reset(); // gives memory and disk back before others are taken
        m_query = query;
        m_sorted = sort(query, delegate);
    } else if (delegate) {
        // getTotalWork() promised the work of reading, which is saved.
        delegate->updateCompleted(getSrc()->getTotalWork(bounds, fraction), activity);
    }
    return new Iterator(*m_sorted, query, delegate);
}

} // namespace Quillmoran
