// Subblocks of signed integers, symbol by symbol: the sign (or zero), the bit length of the magnitude, its
// leading bits with a model that belongs to the length, the rest raw. Magnitudes end at 15 bits. The models
// start afresh in every subblock.
#pragma once

#include "decode/coders/SubblockReader.h"

namespace Quillmoran {

template <class T>
class ACInteger final : public SubblockReader
{
public:
    ACInteger(DataType type, TransformType transform, const char* name, std::size_t subblockSize);

    void init() override;

    void decode(const CodedSubblock& subblock) const override;
    // Every symbol waits for the one before it; two subblocks wait at the same time.
    void decodeTwo(const CodedSubblock& first, const CodedSubblock& second) const override;
    bool prefersTwo() const noexcept override { return true; }
};

extern template class ACInteger<std::int16_t>;
extern template class ACInteger<std::int32_t>;
extern template class ACInteger<std::int64_t>;

} // namespace Quillmoran
