#include "decode/MQInteger.h"

#include "common/BitPlanes.h"
#include "platform/Stream.h"

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr int subblockError = 40207;

// Raw bits are taken from the least significant end of each byte. Behind the last byte come zeros.
class RawBits
{
public:
    RawBits(const std::uint8_t* current, const std::uint8_t* end) : m_current(current), m_end(end) {}

    std::uint32_t next() noexcept
    {
        if (m_left == 0) {
            m_byte = m_current != m_end ? *m_current++ : 0;
            m_left = 8;
        }
        const std::uint32_t bit = m_byte & 1;
        m_byte >>= 1;
        --m_left;
        return bit;
    }

private:
    const std::uint8_t* m_current;
    const std::uint8_t* m_end;
    std::uint32_t m_byte = 0;
    int m_left = 0;
};

} // namespace

template <class T>
MQInteger<T>::MQInteger(DataType type, TransformType transform, const char* name, std::size_t subblockSize,
                        bool perPlaneLengths)
    : SubblockReader(type, transform, name, subblockSize, perPlaneLengths)
{}

template <class T>
void MQInteger<T>::init()
{
    // One and a half times the raw size.
    SubblockReader::init(std::uint64_t{getSubblockSize()} * sizeof(T) * 3 / 2);
}

template <class T>
std::size_t MQInteger<T>::readSubblockHeader(StreamReader& headers)
{
    std::uint16_t header = 0;
    if (!headers.get_be(header))
        QM_THROW(subblockError, "bad read -- subblock header");
    if (header < firstPayloadHeader) {
        m_topPlane = m_bottomPlane = -1;
        m_rawTopPlane = -2;
        return std::size_t{header} + 1;
    }
    if (header == firstPayloadHeader)
        QM_THROW(subblockError, "bad read -- subblock header");
    setPlanes(header - firstPayloadHeader - 1);
    readPlaneLengths(headers);
    return 0;
}

template <class T>
void MQInteger<T>::setPlanes(std::uint32_t code)
{
    const BitPlanes planes = BitPlanes::fromCode(code);
    if (planes.top >= static_cast<int>(8 * sizeof(T)))
        QM_THROW(subblockError, "bad read -- subblock header");
    m_topPlane = planes.top;
    m_bottomPlane = planes.bottom;
    m_rawTopPlane = planes.rawTop;
}

template <class T>
void MQInteger<T>::readPlaneLengths(StreamReader& headers)
{
    if (!hasPlaneLengths()) {
        std::uint32_t length = 0;
        if (!headers.get_be(length))
            QM_THROW(subblockError, "bad read -- plane length header");
        setPayloadLength(length);
        return;
    }
    std::uint64_t sum = 0;
    for (int plane = m_topPlane; plane >= m_bottomPlane; --plane) {
        std::uint8_t layer = 0; // of no use to a reader
        std::uint16_t length = 0;
        if (!headers.get_be(layer))
            QM_THROW(subblockError, "bad read -- plane layer header");
        if (!headers.get_be(length))
            QM_THROW(subblockError, "bad read -- plane length header");
        sum += length;
    }
    setPayloadLength(sum);
}

template <class T>
void MQInteger<T>::decodePlane(MQDecoder& shared, U* __restrict magnitudes, std::size_t count, U bit)
{
    // A local decoder lives in registers. Whether a coefficient is significant already is folded into the
    // context, so that one branch a decision, that on its outcome, is all there is to predict.
    MQDecoder decoder = shared;
    std::uint8_t* const states = m_states.data();
    unsigned left = INSIGNIFICANT;
    unsigned own = states[1];
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned right = states[i + 2];
        if (decoder.decode(firstContexts[9 * left + 3 * own + right])) {
            magnitudes[i] |= bit;
            if (own == INSIGNIFICANT) {
                const int sign = decoder.decode(signContexts + static_cast<int>(3 * left + right));
                states[i + 1] = sign ? NEGATIVE : POSITIVE;
            }
        }
        left = own;
        own = right;
    }
    shared = decoder;
}

template <class T>
void MQInteger<T>::decodeRawPlanes(const std::uint8_t* bits, const std::uint8_t* end,
                                   U* __restrict magnitudes, std::size_t count)
{
    RawBits raw(bits, end);
    for (int plane = m_rawTopPlane; plane >= m_bottomPlane; --plane) {
        const U bit = static_cast<U>(U{1} << plane);
        for (std::size_t i = 0; i < count; ++i) {
            if (!raw.next())
                continue;
            if (m_states[i + 1] == INSIGNIFICANT)
                m_states[i + 1] = raw.next() ? NEGATIVE : POSITIVE;
            magnitudes[i] |= bit;
        }
    }
}

template <class T>
void MQInteger<T>::decode(std::size_t, void* out, std::size_t count)
{
    // Magnitudes are built up in place of the samples.
    auto* magnitudes = static_cast<U*>(out);
    std::fill_n(magnitudes, count, U{0});
    if (m_states.capacity() < count + 2)
        takeMemory(count + 2 - m_states.capacity());
    m_states.assign(count + 2, INSIGNIFICANT);

    MQDecoder decoder;
    decoder.begin(payload(), payloadSize());
    for (int plane = m_topPlane; plane > m_rawTopPlane; --plane)
        decodePlane(decoder, magnitudes, count, static_cast<U>(U{1} << plane));
    // The raw bits begin where the decoder stopped reading.
    decodeRawPlanes(payload() + decoder.position(), payload() + payloadSize(), magnitudes, count);

    for (std::size_t i = 0; i < count; ++i)
        if (m_states[i + 1] == NEGATIVE)
            magnitudes[i] = static_cast<U>(0 - magnitudes[i]);
}

template class MQInteger<std::int16_t>;
template class MQInteger<std::int32_t>;
template class MQInteger<std::int64_t>;

} // namespace Quillmoran
