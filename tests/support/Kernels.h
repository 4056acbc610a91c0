// The kernel types of the decoder and the C++ types of their samples.
#pragma once

#include <vxunpack/DataType.h>

#include <cstdint>
#include <type_traits>

namespace Quillmoran::Testing {

template <class T>
constexpr DataType kernelOf = std::is_same_v<T, std::int16_t>   ? SINT16
                              : std::is_same_v<T, std::int32_t> ? SINT32
                              : std::is_same_v<T, std::int64_t> ? SINT64
                              : std::is_same_v<T, float>        ? FLOAT32
                              : std::is_same_v<T, double>       ? FLOAT64
                                                                : INVALID;

} // namespace Quillmoran::Testing
