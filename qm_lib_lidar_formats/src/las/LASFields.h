// Which channel stands where in a LAS point record, and the loops that carry columns of samples into and out
// of blocks of records. Reader and writer share the one table.
//
// A block of records is `count` records, `stride` bytes apart. Records to be packed begin as zeros.
#pragma once

#include "las/LASPointFormat.h"
#include <vxunpack/PointInfo.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Quillmoran {

// The place of a channel in the records of one format. A field of fewer than 8 bits shares its byte with
// others.
struct LASField
{
    enum Excess : std::uint8_t
    {
        WRAPS,    // a larger value keeps its low bits
        SATURATES // a larger value becomes the largest
    };

    const char* channel;
    DataType type; // of the samples; coordinates stand in the record as 32-bit steps
    std::uint8_t bits;
    std::uint8_t offset;    // bytes into the record
    std::uint8_t shift = 0; // of the lowest bit
    Excess excess = WRAPS;

    bool isCoordinate() const noexcept { return offset < 12; }
    std::size_t axis() const noexcept { return offset / 4u; } // of a coordinate
};

namespace LASFields {

// Whether any format has a place for a channel of this name.
bool isKnown(const char* channel) noexcept;
// Nothing when records of the format have no place for the channel. Both kinds of GPS time share one.
std::optional<LASField> find(LASPointFormat format, const char* channel) noexcept;

// The channels that a reader finds in records of the format, in the standard order. `adjustedTime` names the
// GPS time, `scale` gives the quantization of X, Y and Z.
PointInfo channelsOf(LASPointFormat format, bool adjustedTime, const std::array<double, 3>& scale);

// The step between two values of a coordinate and the value of step 0.
struct Axis
{
    double scale;
    double offset;
};

// The extent of steps; fresh, it holds none.
struct Extent
{
    std::int32_t min = INT32_MAX;
    std::int32_t max = INT32_MIN;
};

// Samples of any type become the field's type as by a plain cast: integers keep their low bits, real numbers
// lose their fraction. An unknown type gives zeros.
void pack(unsigned char* records, std::size_t stride, const LASField& field, const void* samples,
          DataType type, std::size_t count);
// Whether the value's step has 32 bits; NaN has none.
bool fits(double value, const Axis& axis) noexcept;
// Rounds half a step away from the offset. `extent` grows by the steps. False when some value was not within
// the range of 32-bit steps; such a value stands as the smallest one.
bool packCoordinate(unsigned char* records, std::size_t stride, const LASField& field, const Axis& axis,
                    const double* samples, std::size_t count, Extent& extent);

// Samples of the field's own type.
void unpack(void* samples, const unsigned char* records, std::size_t stride, const LASField& field,
            std::size_t count);
void unpackCoordinate(double* samples, const unsigned char* records, std::size_t stride,
                      const LASField& field, const Axis& axis, std::size_t count);

} // namespace LASFields

} // namespace Quillmoran
