// Conversions between arrays of samples of different types, one loop per pair of types.
#pragma once

#include <vxunpack/DataType.h>

#include <cstddef>
#include <limits>

namespace Quillmoran::SampleConversion {

// The truncating conversion of the processor without undefined behaviour: a value out of range, or NaN, gives
// the smallest integer.
template <class Integer>
Integer truncate(double value) noexcept
{
    constexpr double low = static_cast<double>(std::numeric_limits<Integer>::min());
    const bool fits = value > low - 1.0 && value < -low;
    return fits ? static_cast<Integer>(value) : std::numeric_limits<Integer>::min();
}

// Converts as the language does between integer types or between floating-point types; narrowing wraps. Other
// pairs of types convert nothing.
void convert(void* dst, DataType dstType, const void* src, DataType srcType, std::size_t count);

// value -> floor((value - offset) / scale + 0.5), not clamped: a result out of range wraps or becomes the
// smallest integer.
void quantize(void* dst, DataType dstType, const void* src, DataType srcType, double offset, double scale,
              std::size_t count);

// integer -> integer * scale + offset, in double.
void dequantize(void* dst, DataType dstType, const void* src, DataType srcType, double offset, double scale,
                std::size_t count);

} // namespace Quillmoran::SampleConversion
