// Reads subblocks of floating-point samples: their big-endian bytes as one raw deflate stream.
//
// The counterpart is encode/coders/GZFloatingPointWriter.h.
#pragma once

#include "decode/coders/SubblockReader.h"

namespace Quillmoran {

template <class T>
class GZFloatingPoint final : public SubblockReader
{
public:
    explicit GZFloatingPoint(const SubblockFormat& format) : SubblockReader(format) {}

    void init() override;

    // Inflate with the library's message: "inflateInit(): %s", "inflateReset(): %s" and "inflate(Z_NO_FLUSH):
    // %s", the last one also for a stream that does not end with the last sample.
    void decode(const CodedSubblock& subblock) const override;
};

extern template class GZFloatingPoint<float>;
extern template class GZFloatingPoint<double>;

} // namespace Quillmoran
