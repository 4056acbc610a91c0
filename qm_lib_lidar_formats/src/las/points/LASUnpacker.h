// Unpacks the channels that a query requests from point records. Const functions may be called from any thread.
#pragma once

#include "las/header/LASHeader.h"
#include "las/points/LASExtraBytes.h"
#include "las/points/LASFields.h"
#include <vxunpack/PointData.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace Quillmoran {

class LASUnpacker
{
public:
    // `channels` are those of the file, `extraFields` its extra bytes. Throws NoSuchChannel for a channel of the
    // layout that the file lacks and ChannelType for a channel of another type.
    LASUnpacker(const LASHeader& header, const PointInfo& channels,
                const std::vector<LASExtraField>& extraFields, const PointInfo& layout);

    // Unpacks one coordinate of `count` records.
    void unpackCoordinate(double* values, std::size_t axis, const unsigned char* records, std::size_t stride,
                          std::size_t count) const;
    // Unpacks channels of the layout into the buffer from a sample on: coordinates from these arrays, which begin
    // with the first record; or, where `coordinates` is null, not at all.
    void unpack(PointData& buffer, std::size_t filled, const unsigned char* records, std::size_t stride,
                std::size_t count, const double* const* coordinates) const;

private:
    // A requested channel: a field of the point format, or one of the extra bytes.
    struct Column
    {
        LASField field;
        std::optional<LASExtraField> extra;
    };

    std::vector<Column> m_columns; // in the order of the layout
    LASFields::Axis m_axes[3];
    LASField m_coordinates[3];
};

} // namespace Quillmoran
