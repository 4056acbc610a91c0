#include "decode/coders/Inflate.h"

#include <vxunpack/Base.h>

#include <memory>
#include <zlib.h>
#ifdef VX_HAS_LIBDEFLATE
#include <libdeflate.h>
#endif

namespace Quillmoran {

namespace {

constexpr ErrorCode zlibError = ErrorCode::Inflate;
constexpr int rawDeflate = -15; // window bits; negative means no zlib wrapper

const char* message(const char* text)
{
    return text ? text : "buffer error";
}

// One inflater per thread, shared by its readers: an inflater uses about 40 kB with its window, and there can
// be thousands of readers.
struct Inflater
{
    z_stream stream = {};

    Inflater()
    {
        if (inflateInit2(&stream, rawDeflate) != Z_OK)
            QM_THROW(zlibError, "inflateInit(): %s", message(stream.msg));
    }
    ~Inflater() { inflateEnd(&stream); }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
};

z_stream& getInflater()
{
    thread_local Inflater inflater;
    return inflater.stream;
}

#ifdef VX_HAS_LIBDEFLATE
struct DecompressorDeleter
{
    void operator()(libdeflate_decompressor* decompressor) const
    {
        libdeflate_free_decompressor(decompressor);
    }
};

// Needs a half to a quarter of zlib's time. Returns false on any error; zlib then supplies the message.
bool inflateFast(const std::uint8_t* stream, std::size_t length, void* out, std::size_t size)
{
    thread_local const std::unique_ptr<libdeflate_decompressor, DecompressorDeleter> decompressor(
        libdeflate_alloc_decompressor());
    std::size_t taken = 0;
    std::size_t made = 0;
    return decompressor &&
           libdeflate_deflate_decompress_ex(decompressor.get(), stream, length, out, size, &taken, &made) ==
               LIBDEFLATE_SUCCESS &&
           made == size;
}
#else
bool inflateFast(const std::uint8_t*, std::size_t, void*, std::size_t)
{
    return false;
}
#endif

void inflateExactly(const std::uint8_t* input, std::size_t length, void* out, std::size_t size)
{
    z_stream& stream = getInflater();
    if (inflateReset(&stream) != Z_OK)
        QM_THROW(zlibError, "inflateReset(): %s", message(stream.msg));
    stream.next_in = const_cast<Bytef*>(input);
    stream.avail_in = static_cast<uInt>(length);
    stream.next_out = static_cast<Bytef*>(out);
    stream.avail_out = static_cast<uInt>(size);
    if (inflate(&stream, Z_NO_FLUSH) != Z_STREAM_END || stream.avail_out != 0)
        QM_THROW(zlibError, "inflate(Z_NO_FLUSH): %s", message(stream.msg));
}

} // namespace

std::uint64_t getMaxDeflatedSize(std::uint64_t size)
{
    return deflateBound(nullptr, static_cast<uLong>(size));
}

void inflateRaw(const std::uint8_t* stream, std::size_t length, void* out, std::size_t size)
{
    if (!inflateFast(stream, length, out, size))
        inflateExactly(stream, length, out, size);
}

} // namespace Quillmoran
