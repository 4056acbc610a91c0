// Conversions between arrays of samples of different types. Each pair of types is a tight loop of its own;
// the types are looked at once per call.
#pragma once

#include "model/DataType.h"

#include <cstddef>

namespace Quillmoran::SampleConversion {

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
