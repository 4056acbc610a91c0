#include <vxunpack/QuantizeFilter.h>

#include "framework/MetadataKeys.h"
#include "model/ChannelNames.h"
#include <vxunpack/Base.h>

#include <cmath>
#include <utility>

namespace Quillmoran {

namespace {

// Values so large that doubles are coarser than the step are not changed.
double nearest(double value, double offset, double scale)
{
    constexpr double maxSteps = 4503599627370496.0; // 2^52
    const double steps = (value - offset) / scale;
    return std::fabs(steps) < maxSteps ? std::floor(steps + 0.5) * scale + offset : value;
}

void roundAll(double* values, std::size_t count, double offset, double scale)
{
    for (std::size_t i = 0; i < count; ++i)
        values[i] = nearest(values[i], offset, scale);
}

} // namespace

class QuantizeFilter::Iterator final : public PointIterator
{
public:
    Iterator(const QuantizeFilter& filter, Scoped<PointIterator> source)
        : m_filter(Scoped<const QuantizeFilter>::retained(&filter)), m_source(std::move(source))
    {}

    std::size_t getNextPoints(PointData& buffer) override
    {
        const std::size_t count = m_source->getNextPoints(buffer);
        double* const axes[3] = {buffer.getX(), buffer.getY(), buffer.getZ()};
        for (int axis = 0; axis < 3; ++axis)
            roundAll(axes[axis], count, m_filter->m_offset[axis], m_filter->m_scale[axis]);
        return count;
    }

private:
    Scoped<const QuantizeFilter> m_filter;
    Scoped<PointIterator> m_source;
};

void QuantizeFilter::init(PointSource* source, const double* steps)
{
    if (!steps)
        QM_THROW(ErrorCode::InvalidArgument, "steps not given");
    PointFilter::init(source);
    m_info = source->getPointInfo();
    m_bounds.reset();
    const char* const names[3] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    const double* const offset = source->getOffset();
    for (int axis = 0; axis < 3; ++axis) {
        if (!(steps[axis] > 0) || !std::isfinite(steps[axis]))
            QM_THROW(ErrorCode::InvalidArgument, "a step must be above 0: %g", steps[axis]);
        m_scale[axis] = steps[axis];
        m_offset[axis] = offset ? offset[axis] : 0;
        if (ChannelInfo* channel = m_info.getChannel(names[axis]))
            channel->setQuantization(steps[axis]);
    }
}

const Bounds& QuantizeFilter::getBounds() const
{
    if (m_bounds)
        return *m_bounds;
    m_bounds = getSrc()->getBounds();
    Bounds::Range* const ranges[3] = {&m_bounds->x, &m_bounds->y, &m_bounds->z};
    for (int axis = 0; axis < 3; ++axis)
        for (double* end : {&ranges[axis]->min, &ranges[axis]->max})
            if (std::isfinite(*end))
                *end = nearest(*end, m_offset[axis], m_scale[axis]);
    return *m_bounds;
}

void QuantizeFilter::loadMetadata(Metadata& into, bool sanitize) const
{
    Metadata records;
    getSrc()->loadMetadata(records, sanitize);
    MetadataKeys::removeCounts(records);
    into.add(records);
}

PointIterator* QuantizeFilter::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                              ProgressDelegate* delegate) const
{
    return new Iterator(*this,
                        Scoped<PointIterator>(getSrc()->createIterator(bounds, fraction, layout, delegate)));
}

PointIterator* QuantizeFilter::createSampleIterator(double position, const PointInfo& layout) const
{
    Scoped<PointIterator> points(getSrc()->createSampleIterator(position, layout));
    return points ? new Iterator(*this, std::move(points)) : nullptr;
}

} // namespace Quillmoran
