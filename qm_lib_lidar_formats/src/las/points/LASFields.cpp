#include "las/points/LASFields.h"

#include "model/ChannelNames.h"
#include "model/SampleConversion.h"
#include "platform/ByteOrder.h"

#include <cmath>
#include <cstring>
#include <span>
#include <type_traits>

namespace Quillmoran::LASFields {

namespace {

using namespace ChannelNames;

// The common fields of formats 0 to 5.
constexpr LASField legacyFields[] = {
    {x, FLOAT64, 32, 0},
    {y, FLOAT64, 32, 4},
    {z, FLOAT64, 32, 8},
    {intensity, UINT16, 16, 12},
    {returnNum, UINT8, 3, 14, 0, LASField::SATURATES},
    {numReturns, UINT8, 3, 14, 3, LASField::SATURATES},
    {scanDir, UINT8, 1, 14, 6},
    {edgeFlightLine, UINT8, 1, 14, 7},
    {classId, UINT8, 8, 15},
    {scanAngle, SINT8, 8, 16},
    {userData, UINT8, 8, 17},
    {sourceId, UINT16, 16, 18},
};

// The common fields of formats 6 to 10, without the time.
constexpr LASField extendedFields[] = {
    {x, FLOAT64, 32, 0},
    {y, FLOAT64, 32, 4},
    {z, FLOAT64, 32, 8},
    {intensity, UINT16, 16, 12},
    {returnNum, UINT8, 4, 14, 0},
    {numReturns, UINT8, 4, 14, 4},
    {scanDir, UINT8, 1, 15, 6},
    {edgeFlightLine, UINT8, 1, 15, 7},
    {classId, UINT8, 8, 16},
    {classFlags, UINT8, 4, 15, 0},
    {scannerChannel, UINT8, 2, 15, 4},
    {scanAngle, SINT16, 16, 18},
    {userData, UINT8, 8, 17},
    {sourceId, UINT16, 16, 20},
};

constexpr const char* colours[] = {red, green, blue};

// Calls visit(field) for every field of the format until it returns true; `time` names the GPS time.
template <class Visit>
bool visitFields(LASPointFormat format, const char* time, Visit visit)
{
    const std::span<const LASField> common =
        format.isExtended() ? std::span<const LASField>(extendedFields) : legacyFields;
    for (const LASField& field : common)
        if (visit(field))
            return true;
    const auto at = [](std::size_t offset) { return static_cast<std::uint8_t>(offset); };
    if (format.hasTime() && visit(LASField{time, FLOAT64, 64, at(format.timeOffset())}))
        return true;
    for (std::size_t i = 0; format.hasColour() && i < 3; ++i)
        if (visit(LASField{colours[i], UINT16, 16, at(format.colourOffset() + 2 * i)}))
            return true;
    return format.hasNearInfrared() &&
           visit(LASField{nearInfrared, UINT16, 16, at(format.nearInfraredOffset())});
}

bool isSame(const char* a, const char* b)
{
    return std::strcmp(a, b) == 0;
}

template <class To, class From>
To plainCast(From value) noexcept
{
    if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>)
        return static_cast<To>(SampleConversion::truncate<std::int32_t>(static_cast<double>(value)));
    else
        return static_cast<To>(value);
}

template <class To, class From>
void packWhole(unsigned char* __restrict at, std::size_t stride, const From* __restrict samples,
               std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i, at += stride)
        storeLittleEndian(at, plainCast<To>(samples[i]));
}

template <class From>
void packBits(unsigned char* __restrict at, std::size_t stride, const LASField& field,
              const From* __restrict samples, std::size_t count)
{
    const unsigned mask = (1u << field.bits) - 1;
    const unsigned shift = field.shift;
    const unsigned largest = field.excess == LASField::SATURATES ? mask : 0xFFu;
    for (std::size_t i = 0; i < count; ++i, at += stride) {
        unsigned value = plainCast<std::uint8_t>(samples[i]);
        value = value < largest ? value : largest;
        *at = static_cast<unsigned char>(*at | (value & mask) << shift);
    }
}

template <class T>
void unpackWhole(T* __restrict samples, const unsigned char* __restrict at, std::size_t stride,
                 std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i, at += stride)
        samples[i] = loadLittleEndian<T>(at);
}

void unpackBits(std::uint8_t* __restrict samples, const unsigned char* __restrict at, std::size_t stride,
                const LASField& field, std::size_t count)
{
    const unsigned mask = (1u << field.bits) - 1;
    const unsigned shift = field.shift;
    for (std::size_t i = 0; i < count; ++i, at += stride)
        samples[i] = static_cast<std::uint8_t>(*at >> shift & mask);
}

// Truncation of the result rounds half steps away from the offset.
double toSteps(double value, double scale, double offset) noexcept
{
    return (value - offset) / scale + (value >= offset ? 0.5 : -0.5);
}

// The comparisons are false for NaN.
bool isStep(double steps) noexcept
{
    return steps > -2147483649.0 && steps < 2147483648.0;
}

} // namespace

bool isKnown(const char* channel) noexcept
{
    // Together these formats have every field.
    for (const LASPointFormat format : {LASPointFormat{3}, LASPointFormat{8}})
        if (find(format, channel))
            return true;
    return false;
}

std::optional<LASField> find(LASPointFormat format, const char* channel) noexcept
{
    std::optional<LASField> found;
    if (!channel)
        return found;
    visitFields(format, isSame(channel, gpsTimeAdjusted) ? gpsTimeAdjusted : gpsTime,
                [&](const LASField& field) {
                    if (isSame(field.channel, channel))
                        found = field;
                    return found.has_value();
                });
    return found;
}

bool isExact(const Axis& axis) noexcept
{
    // Products and sums err by a few units in the last place of the largest values.
    constexpr double maxSteps = 1125899906842624.0; // 2^50
    constexpr double largestNumber = 4294967296.0;
    return axis.scale > 0 && std::isnormal(axis.scale) && std::isfinite(axis.scale * largestNumber) &&
           std::isfinite(axis.offset) && std::fabs(axis.offset) / axis.scale <= maxSteps;
}

PointInfo channelsOf(LASPointFormat format, bool adjustedTime, const std::array<double, 3>& scale)
{
    PointInfo channels;
    visitFields(format, adjustedTime ? gpsTimeAdjusted : gpsTime, [&](const LASField& field) {
        ChannelInfo channel;
        channel.init(field.channel, field.type, field.bits, field.isCoordinate() ? scale[field.axis()] : 0.0);
        channels.append(channel);
        return false;
    });
    return channels;
}

void pack(unsigned char* records, std::size_t stride, const LASField& field, const void* samples,
          DataType type, std::size_t count)
{
    unsigned char* const at = records + field.offset;
    visitDataType(type, [&](auto zero) {
        const auto* const from = static_cast<const decltype(zero)*>(samples);
        if (field.bits < 8)
            packBits(at, stride, field, from, count);
        else if (field.type == UINT8)
            packWhole<std::uint8_t>(at, stride, from, count);
        else if (field.type == SINT8)
            packWhole<std::int8_t>(at, stride, from, count);
        else if (field.type == UINT16)
            packWhole<std::uint16_t>(at, stride, from, count);
        else if (field.type == SINT16)
            packWhole<std::int16_t>(at, stride, from, count);
        else
            packWhole<double>(at, stride, from, count);
    });
}

bool fits(double value, const Axis& axis) noexcept
{
    return isStep(toSteps(value, axis.scale, axis.offset));
}

bool packCoordinate(unsigned char* records, std::size_t stride, const LASField& field, const Axis& axis,
                    const double* samples, std::size_t count, Extent& extent)
{
    const double scale = axis.scale;
    const double offset = axis.offset;
    std::int32_t min = extent.min;
    std::int32_t max = extent.max;
    bool fits = true;
    unsigned char* at = records + field.offset;
    for (std::size_t i = 0; i < count; ++i, at += stride) {
        const double steps = toSteps(samples[i], scale, offset);
        fits &= isStep(steps);
        const auto step = SampleConversion::truncate<std::int32_t>(steps);
        min = step < min ? step : min;
        max = step > max ? step : max;
        storeLittleEndian(at, step);
    }
    extent = {min, max};
    return fits;
}

void unpack(void* samples, const unsigned char* records, std::size_t stride, const LASField& field,
            std::size_t count)
{
    const unsigned char* const at = records + field.offset;
    if (field.bits < 8) {
        unpackBits(static_cast<std::uint8_t*>(samples), at, stride, field, count);
        return;
    }
    visitDataType(field.type,
                  [&](auto zero) { unpackWhole(static_cast<decltype(zero)*>(samples), at, stride, count); });
}

void unpackCoordinate(double* samples, const unsigned char* records, std::size_t stride,
                      const LASField& field, const Axis& axis, std::size_t count)
{
    const double scale = axis.scale;
    const double offset = axis.offset;
    const unsigned char* at = records + field.offset;
    for (std::size_t i = 0; i < count; ++i, at += stride)
        samples[i] = static_cast<double>(loadLittleEndian<std::int32_t>(at)) * scale + offset;
}

} // namespace Quillmoran::LASFields
