// Subblocks of floating-point samples: their big-endian bytes as one raw deflate stream.
#pragma once

#include "decode/coders/SubblockReader.h"

namespace Quillmoran {

template <class T>
class GZFloatingPoint final : public SubblockReader
{
public:
    GZFloatingPoint(DataType type, TransformType transform, const char* name, std::size_t subblockSize);

    void init() override;

    // Errors Inflate with the library's message: "inflateInit(): %s", "inflateReset(): %s" and
    // "inflate(Z_NO_FLUSH): %s", the latter also for a stream that does not end with the last sample.
    void decode(const CodedSubblock& subblock) const override;
};

extern template class GZFloatingPoint<float>;
extern template class GZFloatingPoint<double>;

} // namespace Quillmoran
