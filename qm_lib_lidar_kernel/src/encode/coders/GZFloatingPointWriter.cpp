// Writes the subblocks that decode/coders/GZFloatingPoint.cpp reads: big-endian numbers, raw deflate.
#include "common/coders/KernelTypes.h"
#include "encode/coders/SubblockWriter.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <zlib.h>

namespace Quillmoran {

namespace {

constexpr ErrorCode zlibError = ErrorCode::Inflate;
constexpr int rawDeflate = -15; // window bits; negative means no zlib wrapper
constexpr int defaultMemory = 8;

const char* message(const char* text)
{
    return text ? text : "buffer error";
}

struct Deflater
{
    z_stream stream = {};

    Deflater()
    {
        if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, rawDeflate, defaultMemory,
                         Z_DEFAULT_STRATEGY) != Z_OK)
            QM_THROW(zlibError, "deflateInit(): %s", message(stream.msg));
    }
    ~Deflater() { deflateEnd(&stream); }
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;
};

template <class T>
class GZFloatingPointWriter final : public SubblockWriter
{
public:
    using SubblockWriter::SubblockWriter;

    // Inflate "deflateInit(): %s" when created; "deflate(Z_FINISH): %s".
    void encode(const void* samples, std::size_t count, Bytes& headers, Bytes& data) override
    {
        m_raw.resize(count * sizeof(T));
        for (std::size_t i = 0; i < count; ++i)
            storeBigEndian(m_raw.data() + i * sizeof(T), static_cast<const T*>(samples)[i]);

        z_stream& stream = m_deflater.stream;
        m_payload.resize(deflateBound(&stream, static_cast<uLong>(m_raw.size())));
        stream.next_in = m_raw.data();
        stream.avail_in = static_cast<uInt>(m_raw.size());
        stream.next_out = m_payload.data();
        stream.avail_out = static_cast<uInt>(m_payload.size());
        if (deflateReset(&stream) != Z_OK || deflate(&stream, Z_FINISH) != Z_STREAM_END)
            QM_THROW(zlibError, "deflate(Z_FINISH): %s", message(stream.msg));
        const std::size_t length = m_payload.size() - stream.avail_out;
        putPayloadHeader(length, headers);
        data.insert(data.end(), m_payload.begin(), m_payload.begin() + static_cast<std::ptrdiff_t>(length));
    }

private:
    Deflater m_deflater;
    Bytes m_raw;
    Bytes m_payload;
};

} // namespace

std::unique_ptr<SubblockWriter> createGZWriter(const SubblockFormat& format)
{
    return createCoder<SubblockWriter, GZFloatingPointWriter, std::is_floating_point>(format);
}

} // namespace Quillmoran
