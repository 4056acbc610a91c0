#include <vxunpack/PointWriter.h>

#include "framework/MetadataKeys.h"
#include "model/ChannelNames.h"
#include "model/NameIndex.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

constexpr double defaultScale = 0.001;

// The minimum and maximum of one coordinate, in four independent chains that the compiler can vectorise. A
// NaN has no effect.
Bounds::Range extent(const double* values, std::size_t count)
{
    constexpr std::size_t lanes = 4;
    Bounds::Range partial[lanes];
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        for (std::size_t lane = 0; lane < lanes; ++lane)
            partial[lane].grow(values[i + lane]);
    for (; i < count; ++i)
        partial[0].grow(values[i]);
    for (std::size_t lane = 1; lane < lanes; ++lane)
        partial[0].grow(partial[lane]);
    return partial[0];
}

} // namespace

void PointWriter::init(PointSource* source)
{
    if (!source)
        QM_THROW(ErrorCode::InvalidArgument, "source is NULL");
    m_source = Scoped<PointSource>::retained(source);
    m_metadata.remove();
    source->loadMetadata(m_metadata, false);
    setQuantization(source->getScale(), source->getOffset());
}

PointSource* PointWriter::getSrc() const
{
    if (!m_source)
        QM_THROW(ErrorCode::InvalidArgument, "the writer has no source");
    return m_source.get();
}

std::size_t PointWriter::getBlockSize(const PointInfo& layout) const
{
    const auto points = static_cast<std::uint64_t>(std::max<std::int64_t>(getSrc()->getNumPoints(), 1));
    return layout.getBlockPoints(static_cast<std::size_t>(std::min<std::uint64_t>(m_chunckSize, points)));
}

PointInfo PointWriter::getSupported(const PointInfo& layout, ProgressDelegate* delegate) const
{
    PointInfo supported;
    if (supportedChannels(layout, supported) && delegate) {
        const NameIndex names(supported);
        for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
            const char* name = layout.getChannel(i).getName();
            if (!names.find(name))
                delegate->warning("the output format does not support channel '%s'", name);
        }
    }
    return supported;
}

void PointWriter::groomMetadata(const Bounds& bounds, double fraction)
{
    m_metadata = getGroomedMetadata(bounds, fraction);
}

Metadata PointWriter::getGroomedMetadata(const Bounds& bounds, double fraction) const
{
    Metadata groomed = m_metadata;
    const bool whole = bounds == Bounds::Huge() || bounds.contains(getSrc()->getBounds());
    if (whole && fraction >= 1)
        return groomed;
    if (!whole)
        groomed.remove(MetadataKeys::boundingBox);
    groomed.remove(MetadataKeys::countsByReturn);
    return groomed;
}

void SimplePointWriter::setQuantization(const double* scale, const double* offset)
{
    const PointSource& source = *getSrc();
    const char* const names[3] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    const Bounds& bounds = source.getBounds();
    const double corner[3] = {bounds.x.min, bounds.y.min, bounds.z.min};
    for (int axis = 0; axis < 3; ++axis) {
        const ChannelInfo* channel = source.getChannel(names[axis]);
        const double step =
            channel && channel->getQuantization() != 0 ? channel->getQuantization() : defaultScale;
        m_scale[axis] = scale ? scale[axis] : step;
        m_offset[axis] = offset ? offset[axis] : std::isfinite(corner[axis]) ? corner[axis] : 0;
        m_offset[axis] += 0.0; // no -0
    }
}

void SimplePointWriter::checkQuantization() const
{
    constexpr double largestStep = 2147483648.0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const char name = "XYZ"[axis];
        if (!std::isnormal(m_scale[axis]) || m_scale[axis] < 0 || !std::isfinite(m_scale[axis] * largestStep))
            QM_THROW(ErrorCode::InvalidArgument, "the scale %g of %c cannot be used", m_scale[axis], name);
        if (!std::isfinite(m_offset[axis]))
            QM_THROW(ErrorCode::InvalidArgument, "the offset %g of %c cannot be used", m_offset[axis], name);
    }
}

std::int64_t SimplePointWriter::write(const Bounds& bounds, double fraction, const PointInfo& layout,
                                      ProgressDelegate* delegate)
{
    const PointInfo supported = getSupported(layout, delegate);
    if (delegate)
        delegate->setTotal(getSrc()->getTotalWork(bounds, fraction) + getTotalWork(bounds, fraction));

    PointData block;
    block.init(supported, getBlockSize(supported));
    groomMetadata(bounds, fraction);
    const Scoped<PointIterator> iterator(getSrc()->createIterator(bounds, fraction, supported, delegate));
    try {
        writeBegin(supported);
        Bounds written;
        const std::int64_t count = writeBlocks(*iterator, block, written, delegate);
        writeEnd(count, written);
        return count;
    } catch (...) {
        writeAborted();
        throw;
    }
}

std::int64_t SimplePointWriter::writeBlocks(PointIterator& iterator, PointData& block, Bounds& written,
                                            ProgressDelegate* delegate)
{
    std::int64_t total = 0;
    while (const std::size_t count = iterator.getNextPoints(block)) {
        total += static_cast<std::int64_t>(count);
        written.x.grow(extent(block.getX(), count));
        written.y.grow(extent(block.getY(), count));
        written.z.grow(extent(block.getZ(), count));
        writePoints(block, count, delegate);
    }
    return total;
}

double SimplePointWriter::getTotalWork(const Bounds& bounds, double fraction) const
{
    return getSrc()->estimatePoints(bounds, fraction);
}

NULLPointWriter::NULLPointWriter() : m_info(PointCloudInfo::create())
{}

NULLPointWriter* NULLPointWriter::create()
{
    return new NULLPointWriter;
}

void NULLPointWriter::setQuantization(const double* scale, const double* offset)
{
    m_info->setQuantization(scale, offset);
}

std::int64_t NULLPointWriter::write(const Bounds& bounds, double fraction, const PointInfo& layout,
                                    ProgressDelegate* delegate)
{
    if (delegate)
        delegate->setTotal(getSrc()->getTotalWork(bounds, fraction));
    PointData block;
    block.init(layout, getBlockSize(layout));
    const Scoped<PointIterator> iterator(getSrc()->createIterator(bounds, fraction, layout, delegate));
    std::int64_t total = 0;
    while (const std::size_t count = iterator->getNextPoints(block))
        total += static_cast<std::int64_t>(count);
    return total;
}

bool NULLPointWriter::supportedChannels(const PointInfo& wanted, PointInfo& supported) const
{
    supported.init(wanted);
    return true;
}

} // namespace Quillmoran
