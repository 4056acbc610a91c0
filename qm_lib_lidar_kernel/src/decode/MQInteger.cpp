#include "decode/MQInteger.h"

#include "common/BitPlanes.h"
#include "platform/Stream.h"

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr int subblockError = 40207;

// Decodes one raw plane of a few coefficients and returns how many bits they took. No branch depends on the
// bits, which are noise.
template <class U>
std::uint32_t decodeRawGroup(std::uint64_t bits, std::uint8_t* __restrict states, U* __restrict magnitudes,
                             std::size_t count, int plane)
{
    static_assert(POSITIVE == 0 && INSIGNIFICANT == 1 && NEGATIVE == 2);
    std::uint32_t taken = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const auto bit = static_cast<std::uint32_t>(bits & 1);
        const auto sign = static_cast<std::uint32_t>(bits >> 1 & 1);
        const std::uint32_t hasSign = bit & states[i]; // becomes significant
        states[i] = static_cast<std::uint8_t>(states[i] - hasSign + 2 * (hasSign & sign));
        magnitudes[i] = static_cast<U>(magnitudes[i] | static_cast<U>(bit) << plane);
        bits >>= 1 + hasSign;
        taken += 1 + hasSign;
    }
    return taken;
}

// Raw bits are taken from the least significant end of each byte. Behind the last byte come zeros.
class RawBits
{
public:
    static constexpr std::uint32_t visibleBits = 57; // at least

    RawBits(const std::uint8_t* current, const std::uint8_t* end) : m_current(current), m_end(end) {}

    std::uint64_t peek() const noexcept
    {
        if (m_end - m_current >= 8)
            return loadLittleEndian<std::uint64_t>(m_current) >> m_used;
        std::uint64_t bits = 0;
        for (const std::uint8_t* byte = m_end; byte != m_current;)
            bits = bits << 8 | *--byte;
        return bits >> m_used;
    }

    void skip(std::uint32_t bits) noexcept
    {
        const std::ptrdiff_t bytes = (m_used + bits) / 8;
        m_used = (m_used + bits) % 8;
        m_current += std::min(bytes, m_end - m_current);
    }

private:
    const std::uint8_t* m_current;
    const std::uint8_t* m_end;
    std::uint32_t m_used = 0; // bits of the current byte
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
template <bool skewed>
void MQInteger<T>::decodePlane(MQDecoder& decoder, U* __restrict magnitudes, std::size_t count, int plane)
{
    // Whether a coefficient is significant already is folded into the context. The one branch on what was
    // decoded leads to the sign, once for each coefficient.
    MQDecoder::Registers registers = decoder.registers();
    std::uint8_t* const states = m_states.data();
    unsigned left = INSIGNIFICANT;
    unsigned own = states[1];
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned right = states[i + 2];
        const int context = firstContexts[9 * left + 3 * own + right];
        const std::uint32_t bit =
            skewed ? decoder.decodeSkewed(registers, context) : decoder.decode(registers, context);
        magnitudes[i] = static_cast<U>(magnitudes[i] | static_cast<U>(bit) << plane);
        if (bit & (own == INSIGNIFICANT ? 1u : 0u)) {
            const int signContext = signContexts + static_cast<int>(3 * left + right);
            states[i + 1] = decoder.decode(registers, signContext) ? NEGATIVE : POSITIVE;
        }
        left = own;
        own = right;
    }
    decoder.setRegisters(registers);
}

template <class T>
void MQInteger<T>::decodePlanes(MQDecoder& decoder, U* magnitudes, std::size_t count)
{
    // A plane resembles the one above it. The uppermost ones hold the first bits of few coefficients. At a
    // third of a bit for a decision both ways take the same time.
    constexpr std::size_t skewedDecisions = 3; // and more for each coded bit
    bool skewed = true;
    for (int plane = m_topPlane; plane > m_rawTopPlane; --plane) {
        const std::size_t before = decoder.position();
        if (skewed)
            decodePlane<true>(decoder, magnitudes, count, plane);
        else
            decodePlane<false>(decoder, magnitudes, count, plane);
        skewed = (decoder.position() - before) * 8 * skewedDecisions < count;
    }
}

template <class T>
void MQInteger<T>::decodeRawPlanes(const std::uint8_t* bits, const std::uint8_t* end, U* magnitudes,
                                   std::size_t count)
{
    // A coefficient takes two bits at most. So many of them are decoded from what is seen at once.
    constexpr std::size_t group = RawBits::visibleBits / 2;
    RawBits raw(bits, end);
    for (int plane = m_rawTopPlane; plane >= m_bottomPlane; --plane)
        for (std::size_t i = 0; i < count; i += group)
            raw.skip(decodeRawGroup(raw.peek(), m_states.data() + 1 + i, magnitudes + i,
                                    std::min(group, count - i), plane));
}

template <class T>
void MQInteger<T>::applySigns(U* __restrict magnitudes, std::size_t count) const
{
    const std::uint8_t* const states = m_states.data() + 1;
    for (std::size_t i = 0; i < count; ++i) {
        const auto negative = static_cast<U>(0 - (states[i] >> 1)); // all ones
        magnitudes[i] = static_cast<U>((magnitudes[i] ^ negative) - negative);
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
    decodePlanes(decoder, magnitudes, count);
    // The raw bits begin where the decoder stopped reading.
    decodeRawPlanes(payload() + decoder.position(), payload() + payloadSize(), magnitudes, count);
    applySigns(magnitudes, count);
}

template class MQInteger<std::int16_t>;
template class MQInteger<std::int32_t>;
template class MQInteger<std::int64_t>;

} // namespace Quillmoran
