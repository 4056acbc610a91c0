#include "decode/GZFloatingPoint.h"

#include "platform/Base.h"
#include "platform/ByteOrder.h"

#include <limits>
#include <zlib.h>

namespace Quillmoran {

namespace {

constexpr int zlibError = 40230;
constexpr int rawDeflate = -15; // window bits; negative means no zlib wrapper

const char* message(const char* text)
{
    return text ? text : "buffer error";
}

// A thread's serves all readers in turn: with its window it has some 40 kB, and there can be thousands of
// readers.
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

} // namespace

template <class T>
GZFloatingPoint<T>::GZFloatingPoint(DataType type, TransformType transform, const char* name,
                                    std::size_t subblockSize)
    : SubblockReader(type, transform, name, subblockSize, false)
{}

template <class T>
void GZFloatingPoint<T>::init()
{
    SubblockReader::init(deflateBound(nullptr, static_cast<uLong>(getSubblockSize() * sizeof(T))));
}

template <class T>
void GZFloatingPoint<T>::decode(const CodedSubblock& subblock) const
{
    z_stream& stream = getInflater();
    if (inflateReset(&stream) != Z_OK)
        QM_THROW(zlibError, "inflateReset(): %s", message(stream.msg));
    auto* bytes = static_cast<Bytef*>(subblock.samples);
    stream.next_in = const_cast<Bytef*>(subblock.payload);
    stream.avail_in = static_cast<uInt>(subblock.header.payloadLength);
    stream.next_out = bytes;
    stream.avail_out = static_cast<uInt>(subblock.count * sizeof(T));
    if (inflate(&stream, Z_NO_FLUSH) != Z_STREAM_END || stream.avail_out != 0)
        QM_THROW(zlibError, "inflate(Z_NO_FLUSH): %s", message(stream.msg));

    auto* samples = static_cast<T*>(subblock.samples);
    for (std::size_t i = 0; i < subblock.count; ++i)
        samples[i] = loadBigEndian<T>(bytes + i * sizeof(T));
}

template class GZFloatingPoint<float>;
template class GZFloatingPoint<double>;

} // namespace Quillmoran
