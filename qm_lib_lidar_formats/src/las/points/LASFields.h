// Where each channel is in a LAS point record, and the loops that pack columns of samples into blocks of
// records and unpack them. Reader and writer share one table.
//
// A block of records is `count` records, `stride` bytes apart. Records are zeros before they are packed.
#pragma once

#include "las/points/LASPointFormat.h"
#include <vxunpack/PointInfo.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Quillmoran {

// A channel's field in the records of one format. A field of fewer than 8 bits shares its byte with others.
struct LASField
{
    enum Excess : std::uint8_t
    {
        WRAPS,    // a value that is too large keeps its low bits
        SATURATES // a value that is too large becomes the maximum
    };

    const char* channel;
    DataType type; // of the samples; coordinates are stored as 32-bit steps
    std::uint8_t bits;
    std::uint8_t offset;    // bytes into the record
    std::uint8_t shift = 0; // of the lowest bit
    Excess excess = WRAPS;

    bool isCoordinate() const noexcept { return offset < 12; }
    std::size_t axis() const noexcept { return offset / 4u; } // of a coordinate
};

namespace LASFields {

// Whether any format has a field for the channel.
bool isKnown(const char* channel) noexcept;
// Empty when the format has no field for the channel. Both channels of GPS time have the same field.
std::optional<LASField> find(LASPointFormat format, const char* channel) noexcept;

// The channels of a file of the format, in the standard order. With `adjustedTime` the GPS time is
// GPSTime_Adjusted; `scale` is the quantization of X, Y and Z.
PointInfo channelsOf(LASPointFormat format, bool adjustedTime, const std::array<double, 3>& scale);

// A coordinate is steps * scale + offset.
struct Axis
{
    double scale;
    double offset;
};

// Whether every number of up to 32 bits is restored from its product and sum, by rounding.
bool isExact(const Axis& axis) noexcept;

// The range of the steps of an axis, empty at first.
struct Extent
{
    std::int32_t min = INT32_MAX;
    std::int32_t max = INT32_MIN;
};

// Casts samples of any type to the field's type: integers keep their low bits, floating-point numbers lose
// their fraction. An unknown type leaves zeros.
void pack(unsigned char* records, std::size_t stride, const LASField& field, const void* samples,
          DataType type, std::size_t count);
// Whether the value's step fits into 32 bits; false for NaN.
bool fits(double value, const Axis& axis) noexcept;
// Rounds half steps away from the offset and extends `extent` by the steps. False when a value did not fit
// into 32 bits; it is stored as the smallest step.
bool packCoordinate(unsigned char* records, std::size_t stride, const LASField& field, const Axis& axis,
                    const double* samples, std::size_t count, Extent& extent);

// The samples have the field's type.
void unpack(void* samples, const unsigned char* records, std::size_t stride, const LASField& field,
            std::size_t count);
void unpackCoordinate(double* samples, const unsigned char* records, std::size_t stride,
                      const LASField& field, const Axis& axis, std::size_t count);

} // namespace LASFields

} // namespace Quillmoran
