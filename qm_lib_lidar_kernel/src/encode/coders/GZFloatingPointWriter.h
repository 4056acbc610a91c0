// Writes the subblocks that decode/coders/GZFloatingPoint.h reads: big-endian numbers, raw deflate.
#pragma once

#include "encode/coders/SubblockWriter.h"

namespace Quillmoran {

template <class T>
class GZFloatingPointWriter final : public SubblockWriter
{
public:
    // Inflate "deflateInit(): %s".
    explicit GZFloatingPointWriter(const SubblockFormat& format);
    ~GZFloatingPointWriter() override;

    // Inflate "deflate(Z_FINISH): %s".
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
