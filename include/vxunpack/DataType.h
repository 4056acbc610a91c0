// The types of a sample. Files contain these values, which encode size and kind: bits 8 to 15 are the size in
// bytes, bit 0 is set for signed types, bits 0 and 1 are set for floating point. All functions of this file
// may be called from any thread.
#pragma once

#include <vxunpack/Export.h>

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

enum DataType : std::uint32_t
{
    INVALID = 0x000,
    UINT8 = 0x100,
    SINT8 = 0x101,
    UINT16 = 0x200,
    SINT16 = 0x201,
    UINT32 = 0x400,
    SINT32 = 0x401,
    FLOAT32 = 0x403,
    UINT64 = 0x800,
    SINT64 = 0x801,
    FLOAT64 = 0x803
};

namespace DataTypeUtils {

// Bytes of one sample.
constexpr std::size_t getSize(DataType type) noexcept
{
    return (type >> 8) & 0xFF;
}
// Whether the type is a floating-point type; see the conversions of ChannelData.
constexpr bool isFloat(DataType type) noexcept
{
    return (type & 2) != 0;
}

// Whether the value is one of the ten sample types; INVALID is not.
QM_API bool isKnown(DataType type) noexcept;
// "UINT8" and so on; "UNKNOWN" for any other value.
QM_API const char* toString(DataType type) noexcept;
// The type with this name, ignoring case; INVALID if there is none or `text` is null.
QM_API DataType toDataType(const char* text) noexcept;

} // namespace DataTypeUtils

// Calls visit(T{}), where T is the C++ type of the sample type. Returns false for INVALID or an unknown
// value.
template <class Visit>
bool visitDataType(DataType type, Visit&& visit)
{
    const auto visitIf = [&](DataType each, auto sample) {
        if (type != each)
            return false;
        visit(sample);
        return true;
    };
    return visitIf(UINT8, std::uint8_t{}) || visitIf(SINT8, std::int8_t{}) ||
           visitIf(UINT16, std::uint16_t{}) || visitIf(SINT16, std::int16_t{}) ||
           visitIf(UINT32, std::uint32_t{}) || visitIf(SINT32, std::int32_t{}) ||
           visitIf(UINT64, std::uint64_t{}) || visitIf(SINT64, std::int64_t{}) || visitIf(FLOAT32, float{}) ||
           visitIf(FLOAT64, double{});
}

} // namespace Quillmoran
