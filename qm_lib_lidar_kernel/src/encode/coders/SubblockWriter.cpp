#include "encode/coders/SubblockWriter.h"

#include "encode/coders/ACIntegerWriter.h"
#include "encode/coders/GZFloatingPointWriter.h"
#include "encode/coders/MQIntegerWriter.h"
#include <vxunpack/Base.h>

#include <cstring>

namespace Quillmoran {

namespace {

template <template <class> class Coder>
std::unique_ptr<SubblockWriter> createInteger(const SubblockFormat& format)
{
    switch (format.type) {
    case SINT16:
        return std::make_unique<Coder<std::int16_t>>(format);
    case SINT32:
        return std::make_unique<Coder<std::int32_t>>(format);
    case SINT64:
        return std::make_unique<Coder<std::int64_t>>(format);
    default:
        QM_THROW(ErrorCode::InvalidArgument, "unkown datatype");
    }
}

} // namespace

std::unique_ptr<SubblockWriter> SubblockWriter::create(const SubblockFormat& format)
{
    switch (TransformUtils::getCoder(format.transform)) {
    case TransformUtils::Coder::MQ:
        return createInteger<MQIntegerWriter>(format);
    case TransformUtils::Coder::Arithmetic:
        return createInteger<ACIntegerWriter>(format);
    case TransformUtils::Coder::Deflate:
        if (format.type == FLOAT32)
            return std::make_unique<GZFloatingPointWriter<float>>(format);
        if (format.type == FLOAT64)
            return std::make_unique<GZFloatingPointWriter<double>>(format);
        QM_THROW(ErrorCode::InvalidArgument, "unkown datatype");
    }
    QM_THROW(ErrorCode::InvalidArgument, "unkown transform");
}

SubblockWriter::~SubblockWriter() = default;

bool SubblockWriter::isZero(const void* samples, std::size_t bytes) noexcept
{
    const auto* first = static_cast<const unsigned char*>(samples);
    return bytes == 0 || (*first == 0 && std::memcmp(first, first + 1, bytes - 1) == 0);
}

void SubblockWriter::putZeroRun(TransformType transform, std::size_t count, Bytes& headers)
{
    if (TransformUtils::getCoder(transform) == TransformUtils::Coder::MQ)
        appendBigEndian(headers, static_cast<std::uint16_t>(count - 1));
    else
        appendBigEndian(headers, static_cast<std::uint32_t>(count - 1));
}

void SubblockWriter::putPayloadHeader(std::size_t length, Bytes& headers)
{
    appendBigEndian(headers, static_cast<std::uint32_t>(firstPayloadHeader + length));
}

} // namespace Quillmoran
