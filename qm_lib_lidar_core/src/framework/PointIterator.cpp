#include <vxunpack/PointIterator.h>

#include "model/ChannelNames.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

void widen(Bounds::Range& range, const PointInfo& layout, const char* name)
{
    const double half = std::fabs(layout.getChannel(name)->getQuantization()) / 2;
    range.min -= half;
    range.max += half;
}

} // namespace

Bounds PointIterator::widened(const Bounds& bounds, const PointInfo& layout)
{
    if (!layout.hasValidXYZ())
        QM_THROW(ErrorCode::InvalidArgument, "must have x, y, and z channels");
    Bounds wide = bounds;
    widen(wide.x, layout, ChannelNames::x);
    widen(wide.y, layout, ChannelNames::y);
    widen(wide.z, layout, ChannelNames::z);
    return wide;
}

void PointIterator::init(const Bounds& bounds, double fraction, const PointInfo& layout,
                         ProgressDelegate* delegate)
{
    m_fraction = fraction >= 0 ? std::min(fraction, 1.0) : 0.0; // a NaN selects no points
    m_accumulator = 1 - m_fraction;
    m_threshold = 1 - m_fraction / 2;
    m_delegate = delegate;
    m_bounds = widened(bounds, layout);
    m_isUnbounded = m_bounds == Bounds::Huge();
}

} // namespace Quillmoran
