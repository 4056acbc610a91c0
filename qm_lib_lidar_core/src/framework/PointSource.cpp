#include <vxunpack/PointSource.h>

#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

namespace Quillmoran {

PointReader::PointReader() : m_info(PointCloudInfo::create())
{}

double PointSource::getTotalWork(const Bounds& bounds, double fraction) const
{
    return getNumPoints() == unknownNumPoints ? 0 : estimatePoints(bounds, fraction);
}

PointIterator* PointSource::createSampleIterator(double, const PointInfo&) const
{
    return nullptr;
}

double PointSource::estimatePoints(const Bounds& bounds, double fraction) const
{
    const double points = getNumPoints() == unknownNumPoints ? getTotalWork(Bounds::Huge(), 1.0)
                                                             : static_cast<double>(getNumPoints());
    // Some sources read all points to find their bounds.
    const double overlap = bounds == Bounds::Huge() ? 1 : Bounds::overlapFraction(getBounds(), bounds);
    return points * overlap * fraction;
}

void PointFilter::init(PointSource* source)
{
    if (!source)
        QM_THROW(ErrorCode::InvalidArgument, "source is NULL");
    m_source = Scoped<PointSource>::retained(source);
}

PointSource* PointFilter::getSrc() const
{
    if (!m_source)
        QM_THROW(ErrorCode::InvalidArgument, "the filter has no source");
    return m_source.get();
}

std::size_t PointSource::read(const Bounds& bounds, PointData& buffer, ProgressDelegate* delegate) const
{
    const auto throwIfCancelled = [delegate] {
        if (delegate && delegate->getCancelled())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    };

    double fraction = 1.0;
    if (getNumPoints() != unknownNumPoints) {
        const double inBox =
            Bounds::overlapFraction(getBounds(), bounds) * static_cast<double>(getNumPoints());
        fraction = static_cast<double>(buffer.getNumSamples()) / inBox;
    }
    if (delegate)
        delegate->setTotal(getTotalWork(bounds, fraction));

    PointInfo layout;
    layout.init(buffer);
    const Scoped<PointIterator> iterator(createIterator(bounds, fraction, layout, delegate));
    std::size_t seen = iterator->getNextPoints(buffer);
    throwIfCancelled();

    PointData next;
    next.init(layout, buffer.getNumSamples());
    while (const std::size_t count = iterator->getNextPoints(next)) {
        throwIfCancelled();
        PointData::merge(buffer, seen, next, count);
        seen += count;
    }
    return seen;
}

} // namespace Quillmoran
