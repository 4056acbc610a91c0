// Inflates raw deflate streams, which have no header and no checksum.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

// The size of the largest stream that a compressor makes of `size` bytes.
std::uint64_t getMaxDeflatedSize(std::uint64_t size);

// Inflates a stream of exactly `size` bytes. Throws Inflate with the message of the library:
// "inflateInit(): %s", "inflateReset(): %s" and "inflate(Z_NO_FLUSH): %s", the last one also for a stream of
// another size. May be called from any thread.
void inflateRaw(const std::uint8_t* stream, std::size_t length, void* out, std::size_t size);

} // namespace Quillmoran
