#include "view/PNGWriter.h"

#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <memory>
#include <png.h>
#include <string>
#include <zlib.h>

namespace Quillmoran {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t rowsPerStrip = 64;

[[noreturn]] void throwFailed(const char* reason)
{
    QM_THROW(ErrorCode::General, "cannot encode PNG: %s", reason);
}

// The first byte is the number of the filter of the row: none. Cells in gaps have the colours of their neighbours, and
// differences between pixels hide that from the compression: it takes as long or longer, and finds less.
template <std::size_t numSamples>
void packRow(std::span<const Color> row, std::uint8_t* out)
{
    *out++ = PNG_FILTER_VALUE_NONE;
    for (const Color& pixel : row) {
        out[0] = pixel.red;
        out[1] = pixel.green;
        out[2] = pixel.blue;
        if constexpr (numSamples == 4)
            out[3] = pixel.alpha;
        out += numSamples;
    }
}

// A raw deflate stream.
struct Deflater
{
    z_stream stream = {};

    Deflater()
    {
        // Higher levels take three times as long for a twentieth of the size.
        constexpr int level = 1, rawWindow = -15, memoryLevel = 9;
        if (deflateInit2(&stream, level, Z_DEFLATED, rawWindow, memoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
            throwFailed("out of memory");
    }
    ~Deflater() { deflateEnd(&stream); }
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;
};

struct Strip
{
    Bytes compressed;
    uLong checksum = 0; // Adler-32 of the rows
    std::size_t size = 0;
};

// A part of one deflate stream. All parts but the last end at a byte, so that they can be joined.
template <std::size_t numSamples>
Strip compressStrip(const Image& image, std::size_t begin, std::size_t end)
{
    const std::size_t rowSize = 1 + image.width() * numSamples;
    Strip strip;
    strip.size = (end - begin) * rowSize;
    const std::unique_ptr<std::uint8_t[]> rows(new std::uint8_t[strip.size]); // not set to 0 first
    for (std::size_t y = begin; y < end; ++y)
        packRow<numSamples>(image.row(y), rows.get() + (y - begin) * rowSize);
    strip.checksum = adler32(1, rows.get(), static_cast<uInt>(strip.size));

    Deflater deflater;
    z_stream& stream = deflater.stream;
    constexpr std::size_t ofFlush = 16;
    const std::size_t bound = deflateBound(&stream, static_cast<uLong>(strip.size)) + ofFlush;
    const std::unique_ptr<std::uint8_t[]> compressed(new std::uint8_t[bound]);
    stream.next_in = rows.get();
    stream.avail_in = static_cast<uInt>(strip.size);
    stream.next_out = compressed.get();
    stream.avail_out = static_cast<uInt>(bound);
    const bool isLast = end == image.height();
    const int status = deflate(&stream, isLast ? Z_FINISH : Z_SYNC_FLUSH);
    const bool isDone = status == (isLast ? Z_STREAM_END : Z_OK) && stream.avail_in == 0;
    if (!isDone)
        throwFailed("the rows cannot be compressed");
    strip.compressed.assign(compressed.get(), stream.next_out);
    return strip;
}

// What the functions of libpng work on. They report errors by longjmp(), so no object may be destroyed meanwhile.
struct Encoder
{
    png_structp png = nullptr;
    png_infop info = nullptr;
    Bytes* file = nullptr;
    char error[128] = "out of memory";

    static void fail(png_structp png, const char* message)
    {
        auto* const self = static_cast<Encoder*>(png_get_error_ptr(png));
        std::strncpy(self->error, message, sizeof self->error - 1);
        png_longjmp(png, 1);
    }
    static void ignore(png_structp, const char*) {}
    static void append(png_structp png, png_bytep data, std::size_t size)
    {
        Bytes& file = *static_cast<Encoder*>(png_get_error_ptr(png))->file;
        if (file.capacity() - file.size() < size)
            png_error(png, "the file is larger than expected");
        file.insert(file.end(), data, data + size);
    }
};

bool writeChunks(Encoder& encoder, const Image& image, bool hasAlpha, const std::vector<Strip>& strips)
{
    if (setjmp(png_jmpbuf(encoder.png)) != 0) // NOLINT(cert-err52-cpp): the interface of libpng
        return false;
    png_set_write_fn(encoder.png, nullptr, Encoder::append, nullptr);
    png_set_IHDR(encoder.png, encoder.info, static_cast<png_uint_32>(image.width()),
                 static_cast<png_uint_32>(image.height()), 8,
                 hasAlpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB(encoder.png, encoder.info, PNG_sRGB_INTENT_PERCEPTUAL);
    png_write_info(encoder.png, encoder.info);
    for (const Strip& strip : strips)
        png_write_chunk(encoder.png, reinterpret_cast<png_const_bytep>("IDAT"), strip.compressed.data(),
                        strip.compressed.size());
    png_write_chunk(encoder.png, reinterpret_cast<png_const_bytep>("IEND"), nullptr, 0);
    return true;
}

} // namespace

std::vector<std::uint8_t> encodePNG(const Image& image)
{
    const std::span<const Color> pixels = image.pixels();
    const bool hasAlpha =
        std::any_of(pixels.begin(), pixels.end(), [](const Color& pixel) { return pixel.alpha != 255; });
    std::vector<Strip> strips((image.height() + rowsPerStrip - 1) / rowsPerStrip);
    parallelLoop(strips.size(), [&](std::size_t i) {
        const std::size_t begin = i * rowsPerStrip, end = std::min(begin + rowsPerStrip, image.height());
        strips[i] = hasAlpha ? compressStrip<4>(image, begin, end) : compressStrip<3>(image, begin, end);
    });
    if (strips.empty())
        throwFailed("the picture has no rows");

    // The header and the checksum of the zlib stream around the strips.
    uLong checksum = strips[0].checksum;
    for (std::size_t i = 1; i < strips.size(); ++i)
        checksum = adler32_combine(checksum, strips[i].checksum, static_cast<z_off_t>(strips[i].size));
    constexpr std::uint8_t header[] = {0x78, 0x01};
    strips.front().compressed.insert(strips.front().compressed.begin(), std::begin(header), std::end(header));
    for (int shift = 24; shift >= 0; shift -= 8)
        strips.back().compressed.push_back(static_cast<std::uint8_t>(checksum >> shift));

    constexpr std::size_t ofChunk = 16, ofOthers = 256;
    std::size_t size = ofOthers;
    for (const Strip& strip : strips)
        size += strip.compressed.size() + ofChunk;
    Bytes file;
    file.reserve(size);
    Encoder encoder;
    encoder.file = &file;
    encoder.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &encoder, Encoder::fail, Encoder::ignore);
    encoder.info = encoder.png ? png_create_info_struct(encoder.png) : nullptr;
    const bool succeeds = encoder.info && writeChunks(encoder, image, hasAlpha, strips);
    png_destroy_write_struct(&encoder.png, &encoder.info);
    if (!succeeds)
        throwFailed(encoder.error);
    return file;
}

} // namespace Quillmoran
