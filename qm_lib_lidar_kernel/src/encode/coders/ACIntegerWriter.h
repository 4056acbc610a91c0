// Writes the subblocks that decode/coders/ACInteger.h reads.
#pragma once

#include "common/coders/ACIntegerModels.h"
#include "encode/coders/SubblockWriter.h"

namespace Quillmoran {

template <class T>
class ACIntegerWriter final : public SubblockWriter
{
public:
    explicit ACIntegerWriter(const SubblockFormat& format) : SubblockWriter(format) {}

    // InvalidArgument for magnitudes of more than 15 bits.
    void encode(const void* samples, std::size_t count, Bytes& headers, Bytes& data) override;

private:
    ACIntegerModels m_models;
    Bytes m_payload;
};

extern template class ACIntegerWriter<std::int16_t>;
extern template class ACIntegerWriter<std::int32_t>;
extern template class ACIntegerWriter<std::int64_t>;

} // namespace Quillmoran
