// Subblocks of signed integers, coded bit plane by bit plane: the upper planes with the MQ coder, the lower
// ones as raw bits, the lowest may be left out.
//
//   plane   t  ...  r+1 | r  ...  l | l-1 ... 0
//           MQ coded    | raw bits  | zero
//
// A coefficient is not yet significant until its first one-bit, behind which its sign is coded. The contexts
// of a decision are the states of both neighbours as they were when the plane began.
#pragma once

#include "common/MQCoder.h"
#include "decode/SubblockReader.h"
#include "platform/ByteOrder.h"

namespace Quillmoran {

template <class T>
class QM_API MQInteger final : public SubblockReader
{
public:
    MQInteger(DataType type, TransformType transform, const char* name, std::size_t subblockSize,
              bool perPlaneLengths);

    void init() override;

protected:
    std::size_t readSubblockHeader(StreamReader& headers) override;
    void decode(std::size_t index, void* out, std::size_t count) override;

private:
    using U = UnsignedOf<T>; // magnitudes

    void setPlanes(std::uint32_t code);
    void readPlaneLengths(StreamReader& headers);
    // `skewed`: for planes that hold little, nearly all decisions being the probable ones.
    template <bool skewed>
    void decodePlane(MQDecoder& decoder, U* magnitudes, std::size_t count, int plane);
    void decodePlanes(MQDecoder& decoder, U* magnitudes, std::size_t count);
    void decodeRawPlanes(const std::uint8_t* bits, const std::uint8_t* end, U* magnitudes, std::size_t count);
    void applySigns(U* magnitudes, std::size_t count) const;

    int m_topPlane = -1;
    int m_bottomPlane = -1;
    int m_rawTopPlane = -1;
    // State of coefficient i at i + 1; the two ends are neighbours that never become significant.
    std::vector<std::uint8_t> m_states;
};

extern template class MQInteger<std::int16_t>;
extern template class MQInteger<std::int32_t>;
extern template class MQInteger<std::int64_t>;

} // namespace Quillmoran
