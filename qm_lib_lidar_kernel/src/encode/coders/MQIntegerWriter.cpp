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
// A decision moves at most 15 bits out of the coder; a byte after an 0xFF holds only 7 bits.
constexpr std::size_t maxBytesPerDecision = 3;
constexpr std::size_t flushBytes = 16;
// A plane is sparse if fewer than 1 in this number of coefficients have a digit in it or above. Runs of zeros
// of sparse planes are coded at once.
constexpr std::size_t sparsePart = 3;

// The first coefficient at or after `i` with more than `plane` digits. A word of zeros follows the array.
inline std::size_t findWider(const std::uint8_t* widths, std::size_t i, std::size_t count, int plane)
{
    constexpr std::uint64_t everyByte = 0x0101010101010101;
    // Widths are at most 64, so after the addition a byte's top bit says whether its width is above the
    // plane.
    const std::uint64_t bias = everyByte * static_cast<std::uint64_t>(127 - plane);
    for (; i < count; i += sizeof bias) {
        std::uint64_t word;
        std::memcpy(&word, widths + i, sizeof word);
        const std::uint64_t wider = (word + bias) & (everyByte << 7);
        if (wider != 0)
            return i + static_cast<std::size_t>(__builtin_ctzll(wider)) / 8;
    }
    return count;
}

// `count` insignificant coefficients in a row, at least 1, with the states of the neighbours on both sides.
inline void encodeZeros(MQEncoder& encoder, std::size_t count, unsigned left, unsigned right)
{
    const auto significance = [](unsigned a, unsigned b) { return static_cast<int>(3 * a + b); };
    if (count == 1)
        return encoder.encode(significance(left, right), 0);
    encoder.encode(significance(left, INSIGNIFICANT), 0);
    encoder.encodeRun(significance(INSIGNIFICANT, INSIGNIFICANT), 0, count - 2);
    encoder.encode(significance(INSIGNIFICANT, right), 0);
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

    void loadSamples(const T* samples, std::size_t count)
    {
        m_magnitudes.resize(count);
        m_negative.resize(count);
        m_widths.assign(count + sizeof(std::uint64_t), 0);
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
        planes.rawTop = rawPlanes ? std::min(planes.bottom - 1 + *rawPlanes, planes.top)
                                  : chooseRawTop(count, planes.top, planes.bottom);
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

    void encodePayload(const BitPlanes& planes, std::size_t count)
    {
        const auto codedPlanes = static_cast<std::size_t>(planes.top - planes.rawTop);
        m_states.assign(count + 2, INSIGNIFICANT);
        m_segment.resize(
            std::max(m_segment.size(), (codedPlanes + 1) * count * maxBytesPerDecision + flushBytes));
        MQEncoder encoder;
        encoder.begin(m_segment.data(), m_segment.size());
        std::size_t wider = 0;
        for (int plane = planes.top; plane > planes.rawTop; --plane) {
            wider += m_widthCounts[static_cast<std::size_t>(plane) + 1];
            if (wider < count / sparsePart)
                encodePlane<true>(encoder, count, plane);
            else
                encodePlane<false>(encoder, count, plane);
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

    template <bool sparse>
    void encodePlane(MQEncoder& shared, std::size_t count, int plane)
    {
        // A local encoder stays in registers. The counterpart is Coefficients::decodePlane() in
        // MQInteger.cpp.
        MQEncoder encoder = shared;
        std::uint8_t* const states = m_states.data();
        const U* const magnitudes = m_magnitudes.data();
        unsigned left = INSIGNIFICANT;
        for (std::size_t i = 0; i < count; ++i) {
            if constexpr (sparse) {
                const std::size_t next = findWider(m_widths.data(), i, count, plane);
                if (next != i) {
                    // All coefficients before `next` stay insignificant; only the outermost have other
                    // neighbours.
                    encodeZeros(encoder, next - i, left, states[next + 1]);
                    left = INSIGNIFICANT;
                    i = next;
                }
                if (i == count)
                    break;
            }
            const unsigned own = states[i + 1];
            const unsigned right = states[i + 2];
            const int bit = static_cast<int>((magnitudes[i] >> plane) & 1);
            encoder.encode(firstContexts[9 * left + 3 * own + right], bit);
            if (bit && own == INSIGNIFICANT) {
                encoder.encode(signContexts + static_cast<int>(3 * left + right), m_negative[i]);
                states[i + 1] = m_negative[i] ? NEGATIVE : POSITIVE;
            }
            left = own;
        }
        shared = encoder;
    }

    void encodeRawPlanes(const BitPlanes& planes, std::size_t count)
    {
        const std::size_t begin = m_payload.size();
        const auto numPlanes = static_cast<std::size_t>(planes.rawTop - planes.bottom + 1);
        m_payload.resize(begin + count * (numPlanes + 1) / 8 + 1 + RawBitWriter::slack);
        RawBitWriter raw(m_payload.data() + begin);
        for (int plane = planes.rawTop; plane >= planes.bottom; --plane) {
            for (std::size_t i = 0; i < count; ++i) {
                const auto bit = static_cast<unsigned>((m_magnitudes[i] >> plane) & 1);
                const unsigned becoming = bit & static_cast<unsigned>(m_states[i + 1] == INSIGNIFICANT);
                const unsigned sign = m_negative[i];
                raw.put(bit | (sign & becoming) << 1, 1 + becoming);
                if (becoming)
                    m_states[i + 1] = sign ? NEGATIVE : POSITIVE;
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
    std::vector<std::uint8_t> m_negative;        // 1 for samples below 0
    std::vector<std::uint8_t> m_widths;          // digits of the magnitudes
    std::array<std::size_t, 65> m_widthCounts{}; // coefficients by their digits
    // State of coefficient i at i + 1; the two ends are neighbours that never become significant.
    std::vector<std::uint8_t> m_states;
    Bytes m_segment; // scratch of the MQ coder
    Bytes m_payload;
};

} // namespace

std::unique_ptr<SubblockWriter> createMQWriter(const SubblockFormat& format)
{
    return createCoder<SubblockWriter, MQIntegerWriter, std::is_integral>(format);
}

} // namespace Quillmoran
