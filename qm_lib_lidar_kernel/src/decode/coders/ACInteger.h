// Reads subblocks of signed integers that are coded symbol by symbol with the arithmetic coder;
// ACIntegerModels has the symbols. Magnitudes have at most 15 bits. Every subblock starts with fresh models.
//
// The counterpart is encode/coders/ACIntegerWriter.h.
#pragma once

#include "decode/coders/SubblockReader.h"

namespace Quillmoran {

template <class T>
class ACInteger final : public SubblockReader
{
public:
    explicit ACInteger(const SubblockFormat& format) : SubblockReader(format) {}

    void init() override { initForIntegers(); }

    void decode(const CodedSubblock& subblock) const override;
    // Each symbol depends on the one before it, so two subblocks are interleaved to hide latency.
    void decodeTwo(const CodedSubblock& first, const CodedSubblock& second) const override;
    bool prefersTwo() const noexcept override { return true; }
};

extern template class ACInteger<std::int16_t>;
extern template class ACInteger<std::int32_t>;
extern template class ACInteger<std::int64_t>;

} // namespace Quillmoran
