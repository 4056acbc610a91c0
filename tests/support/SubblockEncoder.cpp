#include "support/SubblockEncoder.h"

#include "common/ArithmeticCoder.h"
#include "common/MQCoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <type_traits>
#include <zlib.h>

namespace Quillmoran::Testing {

namespace {

constexpr std::uint32_t firstPayloadHeader = 2048;

struct EncodedSubblock
{
    Bytes header;
    Bytes payload;
};

template <class T>
std::uint64_t magnitudeOf(T value)
{
    const auto wide = static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
    return value < 0 ? 0 - wide : wide;
}

// The decisions of a subblock in coding order, each with its context.
class DecisionCoder
{
public:
    void code(int context, int bit)
    {
        m_contexts.push_back(static_cast<std::uint8_t>(context));
        m_bits.push_back(static_cast<std::uint8_t>(bit));
    }

    // The segment, cut where a decoder stands after the last decision.
    Bytes finish() const
    {
        Bytes segment(m_bits.size() + 64);
        MQEncoder encoder;
        encoder.begin(segment.data(), segment.size());
        for (std::size_t i = 0; i < m_bits.size(); ++i)
            encoder.encode(m_contexts[i], m_bits[i]);
        segment.resize(encoder.end());
        segment.insert(segment.end(), 8, 0xFF);
        MQDecoder decoder;
        decoder.begin(segment.data(), segment.size());
        for (std::size_t i = 0; i < m_bits.size(); ++i)
            if (decoder.decode(m_contexts[i]) != m_bits[i])
                throw std::logic_error("the MQ coder does not give back what went in");
        segment.resize(decoder.position());
        return segment;
    }

private:
    Bytes m_contexts;
    Bytes m_bits;
};

class RawBitWriter
{
public:
    void put(std::uint32_t bit)
    {
        if (m_used == 0)
            m_bytes.push_back(0);
        m_bytes.back() = static_cast<std::uint8_t>(m_bytes.back() | bit << m_used);
        m_used = (m_used + 1) % 8;
    }
    const Bytes& bytes() const { return m_bytes; }

private:
    Bytes m_bytes;
    unsigned m_used = 0; // bits of the last byte
};

template <class T>
EncodedSubblock encodeMQ(const T* samples, std::size_t count, const BandOptions& options)
{
    std::uint64_t all = 0;
    for (std::size_t i = 0; i < count; ++i)
        all |= magnitudeOf(samples[i]);
    const int top = static_cast<int>(std::bit_width(all)) - 1;
    const int bottom = std::min(options.droppedPlanes, top);
    const int rawTop = std::min(bottom - 1 + options.rawPlanes, top);

    enum
    {
        positive = 0,
        insignificant = 1,
        negative = 2
    };
    std::vector<int> states(count + 2, insignificant);
    DecisionCoder coder;
    const auto isNegative = [&](std::size_t i) { return samples[i] < 0; };
    for (int plane = top; plane > rawTop; --plane) {
        const std::vector<int> before = states;
        for (std::size_t i = 0; i < count; ++i) {
            const int left = before[i], own = before[i + 1], right = before[i + 2];
            const int bit = static_cast<int>(magnitudeOf(samples[i]) >> plane & 1);
            if (own != insignificant) {
                coder.code(18 + 6 * left + (own == negative ? 3 : 0) + right, bit);
                continue;
            }
            coder.code(3 * left + right, bit);
            if (bit) {
                coder.code(9 + 3 * left + right, isNegative(i));
                states[i + 1] = isNegative(i) ? negative : positive;
            }
        }
    }
    EncodedSubblock encoded;
    encoded.payload = coder.finish();
    RawBitWriter raw;
    for (int plane = rawTop; plane >= bottom; --plane) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto bit = static_cast<std::uint32_t>(magnitudeOf(samples[i]) >> plane & 1);
            raw.put(bit);
            if (bit && states[i + 1] == insignificant) {
                raw.put(isNegative(i));
                states[i + 1] = isNegative(i) ? negative : positive;
            }
        }
    }
    encoded.payload.insert(encoded.payload.end(), raw.bytes().begin(), raw.bytes().end());

    const int code =
        top * (top + 1) * (top + 5) / 6 + bottom * (2 * top + 5 - bottom) / 2 + rawTop - (bottom - 1);
    putBigEndian(encoded.header,
                 static_cast<std::uint16_t>(firstPayloadHeader + 1 + static_cast<unsigned>(code)));
    std::size_t left = encoded.payload.size();
    if (!options.perPlaneLengths) {
        putBigEndian(encoded.header, static_cast<std::uint32_t>(left));
        return encoded;
    }
    for (int plane = top; plane >= bottom; --plane) {
        const std::size_t share = plane == bottom ? left : std::min<std::size_t>(left, 7);
        encoded.header.push_back(static_cast<std::uint8_t>(plane)); // a reader ignores it
        putBigEndian(encoded.header, static_cast<std::uint16_t>(share));
        left -= share;
    }
    return encoded;
}

template <class T>
EncodedSubblock encodeArithmetic(const T* samples, std::size_t count)
{
    ACBase::DataModel sign, length, low[16];
    sign.setAlphabet(3);
    length.setAlphabet(16);
    for (unsigned j = 0; j < 16; ++j)
        low[j].setAlphabet(j < 7 ? 2u << j : 128u);

    Bytes payload(count * 8 + 64);
    ACEncoder encoder;
    encoder.begin(payload.data(), payload.size());
    for (std::size_t i = 0; i < count; ++i) {
        const auto magnitude = static_cast<std::uint32_t>(magnitudeOf(samples[i]));
        encoder.encode(magnitude == 0 ? 1u : samples[i] < 0 ? 0u : 2u, sign);
        if (magnitude == 0)
            continue;
        const int bits = static_cast<int>(std::bit_width(magnitude));
        if (bits > 15)
            throw std::invalid_argument("a magnitude of more than 15 bits");
        encoder.encode(static_cast<std::uint32_t>(bits), length);
        if (bits < 2)
            continue;
        const int raw = std::max(bits - 8, 0);
        const std::uint32_t leading = magnitude >> raw;
        encoder.encode(leading & ~std::bit_floor(leading), low[bits - 1]);
        if (raw > 0)
            encoder.putBits(magnitude & ((1u << raw) - 1), raw);
    }
    payload.resize(encoder.end());
    EncodedSubblock encoded;
    putBigEndian(encoded.header, static_cast<std::uint32_t>(firstPayloadHeader + payload.size()));
    encoded.payload = std::move(payload);
    return encoded;
}

template <class T>
EncodedSubblock encodeDeflate(const T* samples, std::size_t count)
{
    Bytes raw;
    for (std::size_t i = 0; i < count; ++i) {
        using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
        Bits bits;
        std::memcpy(&bits, samples + i, sizeof bits);
        putBigEndian(raw, bits);
    }
    z_stream stream = {};
    if (deflateInit2(&stream, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("deflateInit2");
    Bytes payload(deflateBound(&stream, raw.size()));
    stream.next_in = raw.data();
    stream.avail_in = static_cast<uInt>(raw.size());
    stream.next_out = payload.data();
    stream.avail_out = static_cast<uInt>(payload.size());
    deflate(&stream, Z_FINISH);
    payload.resize(stream.total_out);
    deflateEnd(&stream);
    EncodedSubblock encoded;
    putBigEndian(encoded.header, static_cast<std::uint32_t>(firstPayloadHeader + payload.size()));
    encoded.payload = std::move(payload);
    return encoded;
}

template <class T>
EncodedSubblock encodeSubblock(const T* samples, std::size_t count, const BandOptions& options)
{
    if constexpr (std::is_floating_point_v<T>)
        return encodeDeflate(samples, count);
    else if (TransformUtils::getCoder(options.transform) == TransformUtils::Coder::MQ)
        return encodeMQ(samples, count, options);
    else
        return encodeArithmetic(samples, count);
}

// Bytewise, so that a negative zero is not taken for zero. Planes that are left out do not make a sample zero
// here.
template <class T>
bool isZero(const T* samples, std::size_t count)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(samples);
    return std::all_of(bytes, bytes + count * sizeof(T), [](unsigned char byte) { return byte == 0; });
}

} // namespace

template <class T>
EncodedBand encodeBand(const std::vector<T>& samples, const BandOptions& options, bool interleaved)
{
    EncodedBand band;
    Bytes& data = interleaved ? band.headers : band.data;
    const bool shortHeaders = !std::is_floating_point_v<T> &&
                              TransformUtils::getCoder(options.transform) == TransformUtils::Coder::MQ;
    std::size_t zeros = 0;
    const auto flushZeros = [&] {
        while (zeros != 0) {
            const std::size_t run = std::min(zeros, options.maxZeroRun);
            if (shortHeaders)
                putBigEndian(band.headers, static_cast<std::uint16_t>(run - 1));
            else
                putBigEndian(band.headers, static_cast<std::uint32_t>(run - 1));
            zeros -= run;
        }
    };
    for (std::size_t at = 0; at < samples.size(); at += options.subblockSize) {
        const std::size_t count = std::min(options.subblockSize, samples.size() - at);
        if (isZero(samples.data() + at, count)) {
            ++zeros;
            continue;
        }
        flushZeros();
        const EncodedSubblock subblock = encodeSubblock(samples.data() + at, count, options);
        band.headers.insert(band.headers.end(), subblock.header.begin(), subblock.header.end());
        data.insert(data.end(), subblock.payload.begin(), subblock.payload.end());
    }
    flushZeros();
    return band;
}

template EncodedBand encodeBand(const std::vector<std::int16_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<std::int32_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<std::int64_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<float>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<double>&, const BandOptions&, bool);

} // namespace Quillmoran::Testing
