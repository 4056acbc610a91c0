#include "encode/coders/SubblockWriter.h"

#include "common/coders/Coder.h"

#include <cstring>

namespace Quillmoran {

std::unique_ptr<SubblockWriter> SubblockWriter::create(const SubblockFormat& format)
{
    return TransformUtils::getCoder(format.transform).createWriter(format);
}

SubblockWriter::~SubblockWriter() = default;

bool SubblockWriter::isZero(const void* samples, std::size_t bytes) noexcept
{
    const auto* first = static_cast<const unsigned char*>(samples);
    return bytes == 0 || (*first == 0 && std::memcmp(first, first + 1, bytes - 1) == 0);
}

void SubblockWriter::putZeroRun(TransformType transform, std::size_t count, Bytes& headers)
{
    if (TransformUtils::getCoder(transform).zeroRunBytes == sizeof(std::uint16_t))
        appendBigEndian(headers, static_cast<std::uint16_t>(count - 1));
    else
        appendBigEndian(headers, static_cast<std::uint32_t>(count - 1));
}

void SubblockWriter::putPayloadHeader(std::size_t length, Bytes& headers)
{
    appendBigEndian(headers, static_cast<std::uint32_t>(firstPayloadHeader + length));
}

} // namespace Quillmoran
