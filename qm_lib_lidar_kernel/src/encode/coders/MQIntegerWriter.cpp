// Writes the subblocks that decode/coders/MQInteger.cpp reads. The lowest planes of noisy samples are nearly
// random, and raw bits are decoded many times faster than coded ones: planes are stored raw where coding
// would save almost nothing.
#include "common/coders/BitPlaneContexts.h"
#include "common/coders/BitPlanes.h"
#include "common/coders/KernelTypes.h"
#include "common/coders/MQCoder.h"
#include "encode/coders/SubblockWriter.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

namespace Quillmoran {

namespace {

// Raw planes, which are decoded in a fifth of the time, may enlarge a subblock by this fraction. Compared
// with 0.5 %, 2 % made files 1.5 % larger and reading 5 % faster.
constexpr double rawTolerance = 0.02;
// If decoding speed is preferred: the bits per coefficient that each raw plane may cost. The files of a
// survey are 4 % larger than balanced ones with 0.42, 0.2 % with 0.3.
constexpr double rawCost = 0.41;
// A decision moves at most 15 bits out of the coder; a byte after an 0xFF holds only 7 bits.
constexpr std::size_t maxBytesPerDecision = 3;
constexpr std::size_t flushBytes = 16;
// The context of most decisions, and that decision as a byte (context << 1 | bit): the coefficient and both
// neighbours stay insignificant.
constexpr int zeroContext = 3 * INSIGNIFICANT + INSIGNIFICANT;
constexpr std::uint8_t zeroDecision = 2 * zeroContext;
constexpr std::uint8_t becomesSignificant = 0x80; // flag of a sign decision

constexpr std::uint64_t everyByte = 0x0101010101010101;

// The lowest bits of eight bytes, of which the others are 0.
inline std::uint64_t gatherBits(std::uint64_t bytes)
{
    return bytes * 0x0102040810204080 >> 56;
}

// One bit per byte: whether the byte is not 0. The bytes are less than 128.
inline std::uint64_t nonzeroBytes(std::uint64_t bytes)
{
    return gatherBits(((bytes + 127 * everyByte) >> 7) & everyByte);
}

// The position of a plane in the byte of digits that holds it.
inline unsigned digitOf(int plane)
{
    return static_cast<unsigned>(plane) % 8;
}

// The total entropy, in bits, of `all` decisions of which `ones` are 1.
double entropyBits(double ones, double all)
{
    if (ones <= 0 || ones >= all)
        return 0;
    return all * std::log2(all) - ones * std::log2(ones) - (all - ones) * std::log2(all - ones);
}

// Fills bytes from their least significant end, eight bytes at a time.
class RawBitWriter
{
public:
    static constexpr std::size_t slack = 8; // bytes after the last one that may be overwritten

    explicit RawBitWriter(std::uint8_t* out) : m_out(out) {}

    // Appends up to 8 bits, the first in the lowest position. Bits above `count` must be 0.
    void put(std::uint64_t bits, unsigned count) noexcept
    {
        m_bits |= bits << m_used;
        m_used += count;
        if (m_used > 56)
            flush();
    }
    std::uint8_t* finish() noexcept
    {
        flush();
        return m_used != 0 ? m_out + 1 : m_out;
    }

private:
    void flush() noexcept
    {
        storeLittleEndian(m_out, m_bits);
        m_out += m_used / 8;
        m_bits = m_used < 64 ? m_bits >> (m_used & ~7u) : 0;
        m_used %= 8;
    }

    std::uint8_t* m_out;
    std::uint64_t m_bits = 0;
    unsigned m_used = 0;
};

template <class T>
class MQIntegerWriter final : public SubblockWriter
{
public:
    using SubblockWriter::SubblockWriter;

    void encode(const void* samples, std::size_t count, Bytes& headers, Bytes& data) override
    {
        loadSamples(static_cast<const T*>(samples), count);
        BitPlanes planes = choosePlanes(count);
        encodePayload(planes, count);
        if (!getFormat().rawPlanes && getFormat().prefer != Preference::Balanced)
            encodeAgain(planes, count);
        if (m_payload.size() > getCapacity()) {
            // The coded planes are larger than raw ones, which always fit.
            planes.rawTop = planes.top;
            encodePayload(planes, count);
        }
        putHeader(planes, headers);
        data.insert(data.end(), m_payload.begin(), m_payload.end());
    }

private:
    using U = UnsignedOf<T>; // magnitudes
    static constexpr std::size_t decisionGroup = 64;

    void loadSamples(const T* samples, std::size_t count)
    {
        m_magnitudes.resize(count);
        m_negative.resize(count);
        m_widths.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            const U value = static_cast<U>(samples[i]);
            const U sign = static_cast<U>(samples[i] < 0 ? ~U{0} : U{0});
            m_magnitudes[i] = static_cast<U>((value ^ sign) - sign);
            m_negative[i] = sign != 0;
            m_widths[i] = static_cast<std::uint8_t>(std::bit_width(m_magnitudes[i]));
        }
        m_widthCounts.fill(0);
        for (std::size_t i = 0; i < count; ++i)
            ++m_widthCounts[m_widths[i]];
    }

    BitPlanes choosePlanes(std::size_t count) const
    {
        U all = 0;
        for (std::size_t i = 0; i < count; ++i)
            all = static_cast<U>(all | m_magnitudes[i]);
        BitPlanes planes;
        planes.top = static_cast<int>(std::bit_width(all)) - 1;
        planes.bottom = __builtin_ctzll(all);
        const std::optional<int> rawPlanes = getFormat().rawPlanes;
        if (rawPlanes)
            planes.rawTop = std::min(planes.bottom - 1 + *rawPlanes, planes.top);
        else if (getFormat().prefer != Preference::Balanced)
            planes.rawTop = planes.bottom - 1; // see encodeAgain()
        else
            planes.rawTop = chooseRawTop(count, planes.top, planes.bottom);
        return planes;
    }

    // In each plane the coder saves bits only for coefficients that are not yet significant; signs and
    // refinements are assumed to be random.
    int chooseRawTop(std::size_t count, int top, int bottom) const
    {
        std::array<double, 64> gains{};
        double total = 0;
        double insignificant = static_cast<double>(count);
        for (int plane = top; plane >= bottom; --plane) {
            const auto becoming = static_cast<double>(m_widthCounts[static_cast<std::size_t>(plane) + 1]);
            const double gain = insignificant - entropyBits(becoming, insignificant);
            gains[static_cast<std::size_t>(plane)] = gain;
            total += static_cast<double>(count) + becoming - gain;
            insignificant -= becoming;
        }
        int rawTop = bottom - 1;
        double lost = 0; // bits
        while (rawTop < top) {
            lost += gains[static_cast<std::size_t>(rawTop + 1)];
            if (lost > rawTolerance * total)
                break;
            ++rawTop;
        }
        return rawTop;
    }

    // After all planes were coded, when their sizes are known: stores the lowest planes raw that are worth
    // it.
    void encodeAgain(BitPlanes& planes, std::size_t count)
    {
        const bool isSmallest = getFormat().prefer == Preference::Size;
        const double saved = isSmallest ? 0 : rawCost * static_cast<double>(count); // per raw plane
        BitPlanes chosen = planes;
        auto least = static_cast<double>(m_codedBits[static_cast<std::size_t>(planes.bottom)]);
        double rawBits = 0;
        for (int plane = planes.bottom; plane <= planes.top; ++plane) {
            const std::size_t next = static_cast<std::size_t>(plane) + 1;
            rawBits += static_cast<double>(count + m_widthCounts[next]) - saved;
            const double coded = plane < planes.top ? static_cast<double>(m_codedBits[next]) : 0;
            if (coded + rawBits < least) {
                least = coded + rawBits;
                chosen.rawTop = plane;
            }
        }
        if (chosen.rawTop == planes.rawTop)
            return;
        Bytes allCoded = m_payload;
        encodePayload(chosen, count);
        if (isSmallest && m_payload.size() >= allCoded.size())
            m_payload.swap(allCoded);
        else
            planes = chosen;
    }

    void encodePayload(const BitPlanes& planes, std::size_t count)
    {
        const std::size_t planeBytes = 2 * count * maxBytesPerDecision + flushBytes; // at most
        m_segment.resize(std::max(m_segment.size(), planeBytes));
        m_states.assign(count + 2, INSIGNIFICANT);
        m_digits.resize(count);
        m_decisions.resize(count + decisionGroup);
        m_signs.resize(count);
        m_steps.resize(2 * count + 1);
        MQEncoder encoder;
        encoder.begin(m_segment.data(), m_segment.size());
        for (int plane = planes.top; plane > planes.rawTop; --plane) {
            loadDigits(plane, plane == planes.top, count);
            makeDecisions(plane, count);
            if (m_segment.size() - encoder.size() < planeBytes) {
                m_segment.resize(encoder.size() + 2 * planeBytes);
                encoder.moveTo(m_segment.data());
            }
            encoder.encode(zeroContext, {m_steps.data(), listSteps(count)});
            m_codedBits[static_cast<std::size_t>(plane)] = encoder.codedBits();
        }
        const std::size_t length = encoder.end();

        // After the end of its segment a decoder reads ones. Raw bits start at the decoder's position after
        // the last decision; without raw bits, bytes that the decoder does not read are omitted.
        const std::size_t position = encoder.decoderPosition();
        const std::size_t kept = std::min(length, position);
        m_payload.assign(m_segment.begin(), m_segment.begin() + static_cast<std::ptrdiff_t>(kept));
        if (planes.rawTop < planes.bottom)
            return;
        m_payload.resize(position, 0xFF);
        encodeRawPlanes(planes, count);
    }

    // Provides eight planes of the magnitudes as bytes, since loops over bytes are the fastest. `first`: none
    // are loaded yet.
    void loadDigits(int plane, bool first, std::size_t count)
    {
        if (!first && digitOf(plane) != 7)
            return;
        const U* const __restrict magnitudes = m_magnitudes.data();
        std::uint8_t* const __restrict digits = m_digits.data();
        for (std::size_t i = 0; i < count; ++i)
            digits[i] = static_cast<std::uint8_t>(magnitudes[i] >> (plane / 8 * 8));
    }

    // The decisions of all coefficients in a plane, and the signs of those that become significant. Contexts
    // are made of the states before the plane, so that no coefficient depends on another.
    void makeDecisions(int plane, std::size_t count)
    {
        using Byte = std::uint8_t;
        const Byte* const __restrict widths = m_widths.data();
        const Byte* const __restrict negative = m_negative.data();
        const Byte* const __restrict digits = m_digits.data();
        Byte* const __restrict states = m_states.data();
        Byte* const __restrict decisions = m_decisions.data();
        Byte* const __restrict signs = m_signs.data();
        const auto insignificantWidth = static_cast<Byte>(plane + 1);
        for (std::size_t i = 0; i < count; ++i) {
            const auto state = static_cast<Byte>(negative[i] ? NEGATIVE : POSITIVE);
            states[i + 1] = widths[i] > insignificantWidth ? state : Byte{INSIGNIFICANT};
        }
        const auto digit = static_cast<Byte>(1u << digitOf(plane));
        for (std::size_t i = 0; i < count; ++i) {
            const Byte left = states[i];
            const Byte own = states[i + 1];
            const Byte right = states[i + 2];
            const Byte bit = (digits[i] & digit) != 0 ? 1 : 0;
            const auto left3 = static_cast<Byte>(left + left + left);
            const auto neighbours = static_cast<Byte>(left3 + right);
            const auto refinement = static_cast<Byte>(
                neighbours + left3 + (own == NEGATIVE ? refinementContexts + 3 : refinementContexts));
            const Byte context = own == INSIGNIFICANT ? neighbours : refinement;
            decisions[i] = static_cast<Byte>(context + context + bit);
            const Byte flag = own == INSIGNIFICANT && bit != 0 ? becomesSignificant : Byte{0};
            signs[i] = static_cast<Byte>((neighbours + neighbours + 2 * signContexts + negative[i]) | flag);
        }
        std::fill_n(decisions + count, decisionGroup, zeroDecision);
    }

    // Lists the decisions for the encoder. Runs of zeros are found 64 decisions at a time, and no branch
    // depends on whether a sign follows. Returns the number of steps.
    std::size_t listSteps(std::size_t count)
    {
        constexpr std::uint64_t zeros = zeroDecision * everyByte;
        MQEncoder::Step* step = m_steps.data();
        std::size_t listed = 0; // decisions
        const auto skipTo = [&](std::size_t end) {
            for (; end - listed > MQEncoder::maxRun; listed += MQEncoder::maxRun + 1)
                *step++ = MQEncoder::makeStep(MQEncoder::maxRun, zeroContext, 0);
            return static_cast<MQEncoder::Step>(end - listed) << 8;
        };
        for (std::size_t i = 0; i < count; i += decisionGroup) {
            std::uint64_t others = 0;
            for (unsigned part = 0; part < decisionGroup; part += 8)
                others |= nonzeroBytes(loadLittleEndian<std::uint64_t>(m_decisions.data() + i + part) ^ zeros)
                          << part;
            for (; others != 0; others &= others - 1) {
                const std::size_t next = i + static_cast<std::size_t>(__builtin_ctzll(others));
                const std::uint32_t sign = m_signs[next];
                *step++ = skipTo(next) | m_decisions[next];
                *step = sign & ~std::uint32_t{becomesSignificant};
                step += sign / becomesSignificant;
                listed = next + 1;
            }
        }
        if (listed != count)
            *step++ = skipTo(count - 1) | zeroDecision;
        return static_cast<std::size_t>(step - m_steps.data());
    }

    void encodeRawPlanes(const BitPlanes& planes, std::size_t count)
    {
        const std::size_t begin = m_payload.size();
        const auto numPlanes = static_cast<std::size_t>(planes.rawTop - planes.bottom + 1);
        m_payload.resize(begin + count * (numPlanes + 1) / 8 + 1 + RawBitWriter::slack);
        RawBitWriter raw(m_payload.data() + begin);
        for (int plane = planes.rawTop; plane >= planes.bottom; --plane) {
            loadDigits(plane, plane == planes.rawTop, count);
            const auto becomingWidth = static_cast<unsigned>(plane + 1);
            const std::uint8_t* const digits = m_digits.data();
            const std::uint8_t* const widths = m_widths.data();
            for (std::size_t i = 0; i < count;) {
                // Few coefficients become significant in the lowest planes.
                if (count - i >= 8 && nonzeroBytes(loadLittleEndian<std::uint64_t>(widths + i) ^
                                                   becomingWidth * everyByte) == 0xFF) {
                    const auto group = loadLittleEndian<std::uint64_t>(digits + i);
                    raw.put(gatherBits(group >> digitOf(plane) & everyByte), 8);
                    i += 8;
                    continue;
                }
                for (const std::size_t end = std::min(i + 8, count); i < end; ++i) {
                    const unsigned bit = (unsigned{digits[i]} >> digitOf(plane)) & 1;
                    const unsigned becoming = widths[i] == becomingWidth ? 1 : 0;
                    raw.put(bit | (m_negative[i] & becoming) << 1, 1 + becoming);
                }
            }
        }
        m_payload.resize(static_cast<std::size_t>(raw.finish() - m_payload.data()));
    }

    void putHeader(const BitPlanes& planes, Bytes& headers) const
    {
        appendBigEndian(headers, static_cast<std::uint16_t>(firstPayloadHeader + 1 + planes.toCode()));
        std::size_t left = m_payload.size();
        if (!getFormat().perPlaneLengths) {
            appendBigEndian(headers, static_cast<std::uint32_t>(left));
            return;
        }
        // Readers use only the sum of the lengths.
        constexpr std::size_t longest = 0xFFFF;
        for (int plane = planes.top; plane >= planes.bottom; --plane) {
            const std::size_t length = std::min(left, longest);
            headers.push_back(static_cast<std::uint8_t>(plane));
            appendBigEndian(headers, static_cast<std::uint16_t>(length));
            left -= length;
        }
        if (left != 0)
            QM_THROW(ErrorCode::InvalidArgument,
                     "a subblock of %zu samples is too long for its plane lengths", getFormat().subblockSize);
    }

    std::vector<U> m_magnitudes;
    Bytes m_negative;                            // 1 for samples below 0
    Bytes m_widths;                              // digits of the magnitudes
    std::array<std::size_t, 65> m_widthCounts{}; // coefficients by their digits
    std::array<std::uint64_t, 64> m_codedBits{}; // by plane: of that plane and those above
    // State of coefficient i at i + 1; the two ends are neighbours that never become significant.
    Bytes m_states;
    Bytes m_digits;
    Bytes m_decisions; // and a group of zero decisions
    Bytes m_signs;
    std::vector<MQEncoder::Step> m_steps; // of a plane
    Bytes m_segment;                      // scratch of the MQ coder
    Bytes m_payload;
};

} // namespace

std::unique_ptr<SubblockWriter> createMQWriter(const SubblockFormat& format)
{
    return createCoder<SubblockWriter, MQIntegerWriter, std::is_integral>(format);
}

} // namespace Quillmoran
