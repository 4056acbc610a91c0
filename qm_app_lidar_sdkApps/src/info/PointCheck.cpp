#include "info/PointCheck.h"

#include "model/ChannelNames.h"
#include "utils/sets/PointScan.h"
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/VX7PointReader.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace Quillmoran {

namespace {

// An eighth of a range, centred on a position given as a fraction of the range.
Bounds::Range eighthAround(const Bounds::Range& range, double place)
{
    const double extent = range.max - range.min;
    const double middle = range.min + place * extent;
    return {middle - extent / 16, middle + extent / 16};
}

// A set of files with different scales has no scale, and its bounds are only as exact as the coarsest of
// them.
void widenWithoutScale(Bounds::Range& range, const ChannelInfo& channel)
{
    constexpr double part = 1e-6; // of the extent
    const double margin = part * (range.max - range.min);
    if (channel.getQuantization() == 0 && std::isfinite(margin)) {
        range.min -= margin;
        range.max += margin;
    }
}

} // namespace

PointCheck::PointCheck(const PointSource& source) : m_source(source)
{
    const char* const names[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    m_xyz.init(source.getPointInfo(), names, 3);
    m_allowed = PointIterator::widened(source.getBounds(), m_xyz);
    widenWithoutScale(m_allowed.x, *m_xyz.getChannel(names[0]));
    widenWithoutScale(m_allowed.y, *m_xyz.getChannel(names[1]));
    widenWithoutScale(m_allowed.z, *m_xyz.getChannel(names[2]));
    // Other sources have no index: each box would read all points again.
    if (dynamic_cast<const VX7PointReader*>(&source))
        chooseBoxes();
}

// In the centre and towards the corners, each 1/64 of the area: together they cost little.
void PointCheck::chooseBoxes()
{
    const Bounds& bounds = m_source.getBounds();
    if (!std::isfinite(bounds.x.max - bounds.x.min) || !std::isfinite(bounds.y.max - bounds.y.min))
        return;
    constexpr double places[][2] = {{0.5, 0.5}, {0.2, 0.2}, {0.8, 0.2}, {0.2, 0.8}, {0.8, 0.8}};
    for (const auto& [x, y] : places) {
        CountedBox counted;
        counted.box = Bounds::Huge();
        counted.box.x = eighthAround(bounds.x, x);
        counted.box.y = eighthAround(bounds.y, y);
        counted.wide = PointIterator::widened(counted.box, m_xyz);
        m_boxes.push_back(counted);
    }
}

void PointCheck::add(const PointData& block, std::size_t count)
{
    const double* x = block.getX();
    const double* y = block.getY();
    const double* z = block.getZ();
    for (std::size_t i = 0; i < count; ++i) {
        // A NaN coordinate does not count towards the bounds.
        if (m_allowed.contains(x[i], y[i], z[i]) || std::isnan(x[i] + y[i] + z[i]))
            continue;
        if (m_numOutside++ == 0)
            m_firstOutside = {m_numPoints + static_cast<long long>(i), x[i], y[i], z[i]};
    }
    for (CountedBox& counted : m_boxes)
        for (std::size_t i = 0; i < count; ++i)
            counted.numPoints += counted.wide.contains(x[i], y[i], z[i]);
    m_numPoints += static_cast<long long>(count);
}

void PointCheck::finish(ProgressDelegate* delegate)
{
    const long long stated = m_source.getNumPoints();
    if (stated != PointSource::unknownNumPoints && stated != m_numPoints)
        addProblem("%lld points are stated and %lld are there", stated, m_numPoints);
    if (m_numOutside != 0)
        addProblem("%lld points lie outside the stated bounds, the first is point %lld (%.10g %.10g %.10g)",
                   m_numOutside, m_firstOutside.index, m_firstOutside.x, m_firstOutside.y, m_firstOutside.z);
    for (const CountedBox& counted : m_boxes)
        checkBox(counted, delegate);
}

double PointCheck::getWork() const
{
    double work = 0;
    for (const CountedBox& counted : m_boxes)
        work += m_source.getTotalWork(counted.box, 1.0);
    return work;
}

void PointCheck::checkBox(const CountedBox& counted, ProgressDelegate* delegate)
{
    long long found = 0;
    scanPoints(m_source, counted.box, m_xyz, delegate,
               [&found](const PointData&, std::size_t count) { found += static_cast<long long>(count); });
    const Bounds& box = counted.box;
    if (found != counted.numPoints)
        addProblem("the index gives %lld of the %lld points in x %.10g to %.10g, y %.10g to %.10g", found,
                   counted.numPoints, box.x.min, box.x.max, box.y.min, box.y.max);
}

void PointCheck::addProblem(const char* format, ...)
{
    char text[512];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    m_problems.emplace_back(text);
}

} // namespace Quillmoran
