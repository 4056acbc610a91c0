#include "las/points/LASUnpacker.h"

#include "model/ChannelNames.h"
#include "model/NameIndex.h"
#include <vxunpack/Base.h>

#include <algorithm>

namespace Quillmoran {

LASUnpacker::LASUnpacker(const LASHeader& header, const PointInfo& channels,
                         const std::vector<LASExtraField>& extraFields, const PointInfo& layout)
{
    const char* const names[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        m_axes[axis] = {header.scale[axis], header.offset[axis]};
        m_coordinates[axis] = *LASFields::find(header.pointFormat, names[axis]);
    }
    const NameIndex known(channels);
    // The channels of the extra bytes are the last ones of the file.
    const std::size_t firstExtra = channels.getNumChannels() - extraFields.size();
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& wanted = layout.getChannel(i);
        const auto index = known.find(wanted.getName());
        if (!index)
            QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
        if (wanted.getDataType() != channels.getChannel(*index).getDataType())
            QM_THROW(ErrorCode::ChannelType, "channel '%s' has another type in the source", wanted.getName());
        Column& column = m_columns.emplace_back();
        if (*index >= firstExtra)
            column.extra = extraFields[*index - firstExtra];
        else
            column.field = *LASFields::find(header.pointFormat, wanted.getName());
    }
}

void LASUnpacker::unpackCoordinate(double* values, std::size_t axis, const unsigned char* records,
                                   std::size_t stride, std::size_t count) const
{
    LASFields::unpackCoordinate(values, records, stride, m_coordinates[axis], m_axes[axis], count);
}

void LASUnpacker::unpack(PointData& buffer, std::size_t filled, const unsigned char* records,
                         std::size_t stride, std::size_t count, const double* const* coordinates) const
{
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        const LASField& field = m_columns[i].field;
        ChannelData& channel = buffer.getChannel(i);
        const std::size_t size = DataTypeUtils::getSize(channel.getDataType());
        auto* const samples = static_cast<unsigned char*>(channel.getData()) + filled * size;
        if (m_columns[i].extra)
            m_columns[i].extra->unpack(samples, records, stride, count);
        else if (!field.isCoordinate())
            LASFields::unpack(samples, records, stride, field, count);
        else if (coordinates)
            std::copy_n(coordinates[field.axis()], count, reinterpret_cast<double*>(samples));
    }
}

} // namespace Quillmoran
