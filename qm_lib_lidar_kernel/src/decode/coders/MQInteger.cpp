// Reads subblocks of signed integers that are coded bit plane by bit plane: the upper planes with the MQ
// coder, the lower ones as raw bits; the lowest planes may be omitted.
//
//   plane   t  ...  r+1 | r  ...  l | l-1 ... 0
//           MQ coded    | raw bits  | zero
//
// A coefficient becomes significant with its first one-bit; its sign is coded after that bit. The context of
// a decision is made of the states that both neighbours had when the plane began.
//
// The counterpart is encode/coders/MQIntegerWriter.cpp.
#include "common/coders/BitPlaneContexts.h"
#include "common/coders/KernelTypes.h"
#include "common/coders/MQCoder.h"
#include "decode/coders/SubblockReader.h"
#include "platform/ByteOrder.h"
#include "platform/Stream.h"

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr ErrorCode subblockError = ErrorCode::SubbandRead;

// Decodes one raw plane of a few coefficients and returns the number of bits read. No branch depends on the
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

// Raw bits are read from the least significant end of each byte. Zeros follow the last byte.
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

// The coefficients of a subblock that is being decoded.
template <class U>
class Coefficients
{
public:
    // The magnitudes are zero.
    Coefficients(U* magnitudes, std::size_t count)
        : m_magnitudes(magnitudes), m_count(count), m_states(count + 2, INSIGNIFICANT)
    {}

    void decodePlanes(MQDecoder& decoder, const BitPlanes& planes)
    {
        // A plane resembles the one above it; the uppermost planes hold the first bits of few coefficients.
        // With three decisions per coded bit both variants take the same time.
        constexpr std::size_t skewedDecisions = 3; // per coded bit, at least
        bool skewed = true;
        for (int plane = planes.top; plane > planes.rawTop; --plane) {
            const std::size_t before = decoder.position();
            if (skewed)
                decodePlane<true>(decoder, plane);
            else
                decodePlane<false>(decoder, plane);
            skewed = (decoder.position() - before) * 8 * skewedDecisions < m_count;
        }
    }

    void decodeRawPlanes(RawBits bits, const BitPlanes& planes)
    {
        // A coefficient has at most two bits, so a group of coefficients fits into the visible bits.
        constexpr std::size_t group = RawBits::visibleBits / 2;
        for (int plane = planes.rawTop; plane >= planes.bottom; --plane)
            for (std::size_t i = 0; i < m_count; i += group)
                bits.skip(decodeRawGroup(bits.peek(), m_states.data() + 1 + i, m_magnitudes + i,
                                         std::min(group, m_count - i), plane));
    }

    void applySigns()
    {
        U* const __restrict magnitudes = m_magnitudes;
        const std::uint8_t* const states = m_states.data() + 1;
        for (std::size_t i = 0; i < m_count; ++i) {
            const auto negative = static_cast<U>(0 - (states[i] >> 1)); // all ones
            magnitudes[i] = static_cast<U>((magnitudes[i] ^ negative) - negative);
        }
    }

private:
    // `skewed`: for planes with few one-bits, where nearly all decisions are the more probable symbol.
    template <bool skewed>
    void decodePlane(MQDecoder& decoder, int plane)
    {
        // The context includes whether the coefficient is already significant. The only branch on a decoded
        // bit leads to the sign, once per coefficient.
        MQDecoder::Registers registers = decoder.registers();
        U* const __restrict magnitudes = m_magnitudes;
        std::uint8_t* const states = m_states.data();
        const std::size_t count = m_count;
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

    U* m_magnitudes;
    std::size_t m_count;
    // The state of coefficient i is at i + 1. The two ends are neighbours that never become significant.
    std::vector<std::uint8_t> m_states;
};

template <class T>
class MQInteger final : public SubblockReader
{
public:
    using SubblockReader::SubblockReader;

    void init() override { initForIntegers(); }

    void decode(const CodedSubblock& subblock) const override
    {
        // Magnitudes are built in the buffer of the samples.
        using U = UnsignedOf<T>;
        auto* const samples = static_cast<U*>(subblock.samples);
        std::fill_n(samples, subblock.count, U{0});
        Coefficients<U> coefficients(samples, subblock.count);

        const auto length = static_cast<std::size_t>(subblock.header.payloadLength);
        MQDecoder decoder;
        decoder.begin(subblock.payload, length);
        coefficients.decodePlanes(decoder, subblock.header.planes);
        // Raw bits start where the decoder stopped reading.
        coefficients.decodeRawPlanes({subblock.payload + decoder.position(), subblock.payload + length},
                                     subblock.header.planes);
        coefficients.applySigns();
    }

protected:
    std::size_t readSubblockHeader(StreamReader& headers, SubblockHeader& header) const override
    {
        std::uint16_t value = 0;
        if (!headers.get_be(value))
            QM_THROW(subblockError, "bad read -- subblock header");
        if (value < firstPayloadHeader)
            return std::size_t{value} + 1;
        if (value == firstPayloadHeader)
            QM_THROW(subblockError, "bad read -- subblock header");
        header.planes = BitPlanes::fromCode(value - firstPayloadHeader - 1u);
        if (header.planes.top >= static_cast<int>(8 * sizeof(T)))
            QM_THROW(subblockError, "bad read -- subblock header");
        header.payloadLength = readPlaneLengths(headers, header.planes);
        return 0;
    }

private:
    std::uint64_t readPlaneLengths(StreamReader& headers, const BitPlanes& planes) const
    {
        if (!getFormat().perPlaneLengths) {
            std::uint32_t length = 0;
            if (!headers.get_be(length))
                QM_THROW(subblockError, "bad read -- plane length header");
            return length;
        }
        std::uint64_t sum = 0;
        for (int plane = planes.top; plane >= planes.bottom; --plane) {
            std::uint8_t layer = 0; // not needed for decoding
            std::uint16_t length = 0;
            if (!headers.get_be(layer))
                QM_THROW(subblockError, "bad read -- plane layer header");
            if (!headers.get_be(length))
                QM_THROW(subblockError, "bad read -- plane length header");
            sum += length;
        }
        return sum;
    }
};

} // namespace

std::unique_ptr<SubblockReader> createMQReader(const SubblockFormat& format)
{
    return createCoder<SubblockReader, MQInteger, std::is_integral>(format);
}

} // namespace Quillmoran
