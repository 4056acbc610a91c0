// Subblocks of signed integers, symbol by symbol: the sign (or zero), the bit length of the magnitude, its
// leading bits with a model that belongs to the length, the rest raw. Magnitudes end at 15 bits. The models
// start afresh in every subblock.
#pragma once

#include "common/ACIntegerModels.h"
#include "decode/SubblockReader.h"
#include "platform/ByteOrder.h"

namespace Quillmoran {

template <class T>
class QM_API ACInteger final : public SubblockReader
{
public:
    ACInteger(DataType type, TransformType transform, const char* name, std::size_t subblockSize);

    void init() override;

protected:
    void decode(std::size_t index, void* out, std::size_t count) override;

private:
    using U = UnsignedOf<T>; // magnitudes

    static U decodeMagnitude(ACDecoder& decoder, ACIntegerModels& models);
};

extern template class ACInteger<std::int16_t>;
extern template class ACInteger<std::int32_t>;
extern template class ACInteger<std::int64_t>;

} // namespace Quillmoran
