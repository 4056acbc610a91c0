// Writes the subblocks that decode/coders/MQInteger.h reads. The lowest planes of noisy samples are nearly
// random, and raw bits are decoded many times faster than coded ones: planes are stored raw where coding
// would save almost nothing.
#pragma once

#include "common/coders/BitPlanes.h"
#include "common/coders/MQCoder.h"
#include "encode/coders/SubblockWriter.h"
#include "platform/ByteOrder.h"

#include <array>

namespace Quillmoran {

template <class T>
class MQIntegerWriter final : public SubblockWriter
{
public:
    explicit MQIntegerWriter(const SubblockFormat& format) : SubblockWriter(format) {}

    void encode(const void* samples, std::size_t count, Bytes& headers, Bytes& data) override;

private:
    using U = UnsignedOf<T>; // magnitudes

    void loadSamples(const T* samples, std::size_t count);
    BitPlanes choosePlanes(std::size_t count) const;
    int chooseRawTop(std::size_t count, int top, int bottom) const;
    void encodePayload(const BitPlanes& planes, std::size_t count);
    template <bool sparse>
    void encodePlane(MQEncoder& shared, std::size_t count, int plane);
    void encodeRawPlanes(const BitPlanes& planes, std::size_t count);
    void putHeader(const BitPlanes& planes, Bytes& headers) const;

    std::vector<U> m_magnitudes;
    std::vector<std::uint8_t> m_negative;        // 1 for samples below 0
    std::vector<std::uint8_t> m_widths;          // digits of the magnitudes
    std::array<std::size_t, 65> m_widthCounts{}; // coefficients by their digits
    // State of coefficient i at i + 1; the two ends are neighbours that never become significant.
    std::vector<std::uint8_t> m_states;
    Bytes m_segment; // scratch of the MQ coder
    Bytes m_payload;
};

extern template class MQIntegerWriter<std::int16_t>;
extern template class MQIntegerWriter<std::int32_t>;
extern template class MQIntegerWriter<std::int64_t>;

} // namespace Quillmoran
