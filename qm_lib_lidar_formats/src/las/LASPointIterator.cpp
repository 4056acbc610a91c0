#include "las/LASPointIterator.h"

#include "model/ChannelNames.h"
#include "model/NameIndex.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr std::size_t maxSlicePoints = 16384;
constexpr std::size_t maxSliceBytes = 1 << 20; // for long records

} // namespace

LASPointIterator::LASPointIterator(const File& file, const Bounds& bounds, double fraction,
                                   const PointInfo& layout, ProgressDelegate* delegate)
{
    init(bounds, fraction, layout, delegate);
    chooseColumns(file, layout);
    const LASHeader& header = file.header;
    for (std::size_t axis = 0; axis < 3; ++axis)
        m_axes[axis] = {header.scale[axis], header.offset[axis]};
    if (getFraction() == 0)
        return;
    m_reader = LASRecordReader::create(file.io, header, file.chunks, layout);
    m_remaining = static_cast<std::int64_t>(header.getPointCount());
    m_sliceSize = std::clamp<std::size_t>(maxSliceBytes / m_reader->stride(), 1, maxSlicePoints);
    m_sliceSize =
        static_cast<std::size_t>(std::min<std::int64_t>(m_remaining, static_cast<std::int64_t>(m_sliceSize)));
    m_records.resize(m_sliceSize * m_reader->stride());
    for (auto& coordinates : m_coordinates)
        coordinates.resize(m_sliceSize);
}

void LASPointIterator::chooseColumns(const File& file, const PointInfo& layout)
{
    const NameIndex known(file.channels);
    // The channels of the extra bytes are the last ones of the file.
    const std::size_t firstExtra = file.channels.getNumChannels() - file.extraFields.size();
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& wanted = layout.getChannel(i);
        const auto index = known.find(wanted.getName());
        if (!index)
            QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
        if (wanted.getDataType() != file.channels.getChannel(*index).getDataType())
            QM_THROW(ErrorCode::ChannelType, "channel '%s' has another type in the source", wanted.getName());
        Column& column = m_columns.emplace_back();
        if (*index >= firstExtra)
            column.extra = file.extraFields[*index - firstExtra];
        else
            column.field = *LASFields::find(file.header.pointFormat, wanted.getName());
    }
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
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        const LASField& field = m_columns[i].field;
        ChannelData& channel = buffer.getChannel(i);
        const std::size_t size = DataTypeUtils::getSize(channel.getDataType());
        auto* const samples = static_cast<unsigned char*>(channel.getData()) + filled * size;
        if (m_columns[i].extra)
            m_columns[i].extra->unpack(samples, records, stride, count);
        else if (field.isCoordinate())
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
