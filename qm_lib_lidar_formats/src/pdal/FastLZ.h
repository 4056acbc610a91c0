// The decoder of FastLZ, a byte-oriented Lempel-Ziv method; some BPF files are compressed with it.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace Quillmoran {

// The bytes that were compressed, `size` of them. Nothing when the input is damaged or holds another number
// of bytes.
std::optional<std::vector<unsigned char>> unpackFastLZ(const std::vector<unsigned char>& packed,
                                                       std::size_t size);

} // namespace Quillmoran
