// Writes the subblocks that decode/coders/ACInteger.cpp reads.
#include "common/coders/ACIntegerModels.h"
#include "common/coders/KernelTypes.h"
#include "encode/coders/SubblockWriter.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <bit>

namespace Quillmoran {

namespace {

constexpr int maxBits = 15; // of a magnitude
// A sample has up to three symbols of at most 16 bits each and fewer than 8 raw bits.
constexpr std::size_t maxBytesPerSample = 7;
constexpr std::size_t flushBytes = 16;

// Inlined to keep the coder in registers.
[[gnu::always_inline]] inline void encodeMagnitude(ACEncoder& encoder, ACIntegerModels& models,
                                                   std::uint32_t magnitude)
{
    const int length = static_cast<int>(std::bit_width(magnitude));
    encoder.encode(static_cast<std::uint32_t>(length), models.length);
    if (length < 2)
        return;
    const int raw = length > ACIntegerModels::modelledBits ? length - ACIntegerModels::modelledBits : 0;
    const std::uint32_t leadingOne = 1u << (length - 1 - raw);
    encoder.encode((magnitude >> raw) ^ leadingOne, models.lowBits[length - 1]);
    if (raw > 0)
        encoder.putBits(magnitude & ((1u << raw) - 1), raw);
}

template <class T>
class ACIntegerWriter final : public SubblockWriter
{
public:
    using SubblockWriter::SubblockWriter;

    // InvalidArgument for magnitudes of more than 15 bits.
    void encode(const void* samples, std::size_t count, Bytes& headers, Bytes& data) override
    {
        using U = UnsignedOf<T>;
        m_models.reset();
        m_payload.resize(count * maxBytesPerSample + flushBytes);
        ACEncoder encoder;
        encoder.begin(m_payload.data(), m_payload.size());
        const T* const values = static_cast<const T*>(samples);
        for (std::size_t i = 0; i < count; ++i) {
            const T value = values[i];
            if (value == 0) {
                encoder.encode(ACIntegerModels::ZERO, m_models.sign);
                continue;
            }
            const U magnitude = value < 0 ? static_cast<U>(0 - static_cast<U>(value)) : static_cast<U>(value);
            if (magnitude >> maxBits)
                QM_THROW(ErrorCode::InvalidArgument,
                         "a coefficient of more than %d bits cannot be arithmetic coded", maxBits);
            encoder.encode(value < 0 ? ACIntegerModels::NEGATIVE : ACIntegerModels::POSITIVE, m_models.sign);
            encodeMagnitude(encoder, m_models, static_cast<std::uint32_t>(magnitude));
        }
        const std::size_t length = encoder.end();
        if (length > getCapacity())
            QM_THROW(ErrorCode::InvalidArgument, "a subblock of %zu samples is too small for its payload",
                     getFormat().subblockSize);
        putPayloadHeader(length, headers);
        data.insert(data.end(), m_payload.begin(), m_payload.begin() + static_cast<std::ptrdiff_t>(length));
    }

private:
    ACIntegerModels m_models;
    Bytes m_payload;
};

} // namespace

std::unique_ptr<SubblockWriter> createACWriter(const SubblockFormat& format)
{
    return createCoder<SubblockWriter, ACIntegerWriter, std::is_integral>(format);
}

} // namespace Quillmoran
