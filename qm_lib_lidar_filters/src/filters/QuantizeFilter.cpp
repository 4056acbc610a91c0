#include "filters/QuantizeFilter.h"

#include "model/ChannelNames.h"
#include "platform/Base.h"

#include <cmath>
#include <utility>

namespace Quillmoran {

namespace {

double nearest(double value, double offset, double scale)
{
    return std::floor((value - offset) / scale + 0.5) * scale + offset;
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

QuantizeFilter* QuantizeFilter::create()
{
    return new QuantizeFilter;
}

void QuantizeFilter::init(PointSource* source, const double* steps)
{
    PointFilter::init(source);
    m_info = source->getPointInfo();
    m_bounds = source->getBounds();
    const char* const names[3] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    Bounds::Range* const ranges[3] = {&m_bounds.x, &m_bounds.y, &m_bounds.z};
    const double* const offset = source->getOffset();
    for (int axis = 0; axis < 3; ++axis) {
        const double step = steps[axis];
        if (!(step > 0) || !std::isfinite(step))
            QM_THROW(40007, "a step must be above 0: %g", step);
        const double corner = std::isfinite(ranges[axis]->min) ? std::floor(ranges[axis]->min) : 0;
        m_scale[axis] = step;
        m_offset[axis] = offset ? offset[axis] : corner;
        for (double* end : {&ranges[axis]->min, &ranges[axis]->max})
            if (std::isfinite(*end))
                *end = nearest(*end, m_offset[axis], step);
        if (ChannelInfo* channel = m_info.getChannel(names[axis]))
            channel->setQuantization(step);
    }
}

PointIterator* QuantizeFilter::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                              ProgressDelegate* delegate) const
{
    return new Iterator(*this,
                        Scoped<PointIterator>(getSrc()->createIterator(bounds, fraction, layout, delegate)));
}

} // namespace Quillmoran
