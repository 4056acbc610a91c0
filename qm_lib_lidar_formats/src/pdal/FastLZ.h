// The decoder of FastLZ, a byte-oriented Lempel-Ziv method; some BPF files are compressed with it.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace Quillmoran {

// The `size` decompressed bytes. Empty when the input is malformed or decompresses to another size.
std::optional<std::vector<unsigned char>> unpackFastLZ(const std::vector<unsigned char>& packed,
                                                       std::size_t size);

} // namespace Quillmoran
