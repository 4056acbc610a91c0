// Conversions between arrays of samples of different types. Each pair of types is a tight loop of its own;
// the types are looked at once per call.
#pragma once

#include <vxunpack/DataType.h>

#include <cstddef>
#include <limits>

namespace Quillmoran::SampleConversion {

// The processor's truncating conversion, without undefined behaviour: what does not fit gives the smallest
// integer. The comparison is false for NaN.
template <class Integer>
Integer truncate(double value) noexcept
{
    constexpr double low = static_cast<double>(std::numeric_limits<Integer>::min());
    const bool fits = value > low - 1.0 && value < -low;
    return fits ? static_cast<Integer>(value) : std::numeric_limits<Integer>::min();
}

// The language's ordinary value conversion within the integer family or within the float family; narrowing
// wraps. A pair of types across the families, or a type that is none of the ten, converts nothing.
void convert(void* dst, DataType dstType, const void* src, DataType srcType, std::size_t count);

// value -> floor((value - offset) / scale + 0.5), never clamped: a result outside the destination wraps or
// becomes the processor's invalid-integer value.
void quantize(void* dst, DataType dstType, const void* src, DataType srcType, double offset, double scale,
              std::size_t count);

// integer -> integer * scale + offset, in double.
void dequantize(void* dst, DataType dstType, const void* src, DataType srcType, double offset, double scale,
                std::size_t count);

} // namespace Quillmoran::SampleConversion
