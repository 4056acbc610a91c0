// The writer of decode/GZFloatingPoint.h's subblocks: big-endian numbers, raw deflate.
#pragma once

#include "encode/SubblockWriter.h"
#include "platform/Export.h"

namespace Quillmoran {

template <class T>
class QM_API GZFloatingPointWriter final : public SubblockWriter
{
public:
    // 40230 "deflateInit(): %s".
    explicit GZFloatingPointWriter(const SubblockFormat& format);
    ~GZFloatingPointWriter() override;

    // 40230 "deflate(Z_FINISH): %s".
    void encode(const void* samples, std::size_t count, Bytes& headers, Bytes& data) override;

private:
    struct Deflater;

    std::unique_ptr<Deflater> m_deflater;
    Bytes m_raw;
    Bytes m_payload;
};

extern template class GZFloatingPointWriter<float>;
extern template class GZFloatingPointWriter<double>;

} // namespace Quillmoran
