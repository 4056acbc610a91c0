// Integers with the order of samples, for sorting points by a channel.
#pragma once

#include <vxunpack/DataType.h>

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

// A sample that is less than another one has the smaller key; samples that compare equal, such as 0.0 and
// -0.0, have the same key. NaN has the largest key. `samples` has `count` samples of the type; those of an
// unknown type have the key 0.
void getSampleKeys(std::uint64_t* keys, const void* samples, DataType type, std::size_t count) noexcept;

} // namespace Quillmoran
