// Subblocks of signed integers, coded bit plane by bit plane: the upper planes with the MQ coder, the lower
// ones as raw bits, the lowest may be left out.
//
//   plane   t  ...  r+1 | r  ...  l | l-1 ... 0
//           MQ coded    | raw bits  | zero
//
// A coefficient is not yet significant until its first one-bit, behind which its sign is coded. The contexts
// of a decision are the states of both neighbours as they were when the plane began.
#pragma once

#include "decode/coders/SubblockReader.h"

namespace Quillmoran {

template <class T>
class MQInteger final : public SubblockReader
{
public:
    MQInteger(DataType type, TransformType transform, const char* name, std::size_t subblockSize,
              bool perPlaneLengths);

    void init() override;

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
