// Raw deflate streams, inflated by JavaScript.
#include "decode/coders/Inflate.h"

#include <vxunpack/Base.h>

// In Inflate.js. Returns false with a message, whose buffer has 128 bytes.
extern "C" bool vx_inflate(const std::uint8_t* stream, std::size_t length, void* out, std::size_t size,
                           char* message);

namespace Quillmoran {

// As zlib's deflateBound(): a stream of stored blocks of the smallest window, or of fixed codes.
std::uint64_t getMaxDeflatedSize(std::uint64_t size)
{
    return size + (size >> 3) + (size >> 5) + (size >> 7) + (size >> 11) + 64;
}

void inflateRaw(const std::uint8_t* stream, std::size_t length, void* out, std::size_t size)
{
    char message[128] = "";
    if (!vx_inflate(stream, length, out, size, message))
        QM_THROW(ErrorCode::Inflate, "inflate(Z_NO_FLUSH): %s", message);
}

} // namespace Quillmoran
