// Reads subblocks of signed integers that are coded bit plane by bit plane: the upper planes with the MQ
// coder, the lower ones as raw bits; the lowest planes may be omitted.
//
//   plane   t  ...  r+1 | r  ...  l | l-1 ... 0
//           MQ coded    | raw bits  | zero
//
// A coefficient becomes significant with its first one-bit; its sign is coded after that bit. The context of
// a decision is made of the states that both neighbours had when the plane began.
//
// The counterpart is encode/coders/MQIntegerWriter.h.
#pragma once

#include "decode/coders/SubblockReader.h"

namespace Quillmoran {

template <class T>
class MQInteger final : public SubblockReader
{
public:
    explicit MQInteger(const SubblockFormat& format) : SubblockReader(format) {}

    void init() override { initForIntegers(); }

    void decode(const CodedSubblock& subblock) const override;

protected:
    std::size_t readSubblockHeader(StreamReader& headers, SubblockHeader& header) const override;

private:
    static BitPlanes readPlanes(std::uint32_t code);
    std::uint64_t readPlaneLengths(StreamReader& headers, const BitPlanes& planes) const;
};

extern template class MQInteger<std::int16_t>;
extern template class MQInteger<std::int32_t>;
extern template class MQInteger<std::int64_t>;

} // namespace Quillmoran
