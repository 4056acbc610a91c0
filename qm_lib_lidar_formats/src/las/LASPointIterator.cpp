#include "las/LASPointIterator.h"

#include "model/ChannelNames.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr std::size_t maxSlicePoints = 16384;
constexpr std::size_t maxSliceBytes = 1 << 20; // for long records

} // namespace

LASPointIterator::LASPointIterator(IO* io, const LASHeader& header, const LASzipChunks& chunks,
                                   const PointInfo& channels, const Bounds& bounds, double fraction,
                                   const PointInfo& layout, ProgressDelegate* delegate)
{
    init(bounds, fraction, layout, delegate);
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& wanted = layout.getChannel(i);
        const auto field = LASFields::find(header.pointFormat, wanted.getName());
        if (!field || !channels.hasChannel(wanted.getName()))
            QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
        if (wanted.getDataType() != field->type)
            QM_THROW(ErrorCode::ChannelType, "channel '%s' has another type in the source", wanted.getName());
        m_fields.push_back(*field);
    }
    for (std::size_t axis = 0; axis < 3; ++axis)
        m_axes[axis] = {header.scale[axis], header.offset[axis]};
    if (getFraction() == 0)
        return;
    m_reader = LASRecordReader::create(io, header, chunks, layout);
    m_remaining = static_cast<std::int64_t>(header.getPointCount());
    m_sliceSize = std::clamp<std::size_t>(maxSliceBytes / m_reader->stride(), 1, maxSlicePoints);
    m_sliceSize =
        static_cast<std::size_t>(std::min<std::int64_t>(m_remaining, static_cast<std::int64_t>(m_sliceSize)));
    m_records.resize(m_sliceSize * m_reader->stride());
    for (auto& coordinates : m_coordinates)
        coordinates.resize(m_sliceSize);
}

bool LASPointIterator::refill()
{
    m_cursor = m_fill = 0;
    if (m_remaining == 0)
        return false;
    if (getDelegate() && getDelegate()->getCancelled())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    const auto count =
        static_cast<std::size_t>(std::min<std::int64_t>(m_remaining, static_cast<std::int64_t>(m_sliceSize)));
    m_reader->read(m_records.data(), count);
    const LASPointFormat anyFormat{0}; // all formats have the coordinates at the same offsets
    const char* const names[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (std::size_t axis = 0; axis < 3; ++axis)
        LASFields::unpackCoordinate(m_coordinates[axis].data(), m_records.data(), m_reader->stride(),
                                    *LASFields::find(anyFormat, names[axis]), m_axes[axis], count);
    m_remaining -= static_cast<std::int64_t>(count);
    m_fill = count;
    if (getDelegate())
        getDelegate()->updateCompleted(static_cast<double>(count), "reading LAS file");
    return true;
}

void LASPointIterator::copyRun(PointData& buffer, std::size_t filled, std::size_t first,
                               std::size_t count) const
{
    const std::size_t stride = m_reader->stride();
    const unsigned char* const records = m_records.data() + first * stride;
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        const LASField& field = m_fields[i];
        ChannelData& channel = buffer.getChannel(i);
        const std::size_t size = DataTypeUtils::getSize(field.type);
        auto* const samples = static_cast<unsigned char*>(channel.getData()) + filled * size;
        if (field.isCoordinate())
            std::copy_n(m_coordinates[field.axis()].data() + first, count,
                        reinterpret_cast<double*>(samples));
        else
            LASFields::unpack(samples, records, stride, field, count);
    }
}

std::size_t LASPointIterator::getNextPoints(PointData& buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.getNumSamples()) {
        if (m_cursor == m_fill && !refill())
            break;
        filled = takeKept(
            m_coordinates[0].data(), m_coordinates[1].data(), m_coordinates[2].data(), m_cursor, m_fill,
            filled, buffer.getNumSamples(),
            [&](std::size_t to, std::size_t first, std::size_t count) { copyRun(buffer, to, first, count); });
    }
    return filled;
}

} // namespace Quillmoran
