#include "las/laszip/LASzipTableCode.h"

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr std::uint32_t minLength = 1U << 24; // of the coder's interval
constexpr std::uint32_t one = 1U << 31;       // a probability of 1, before it is scaled

// The adaptive frequencies of up to 256 symbols.
class SymbolModel
{
public:
    static constexpr unsigned shift = 15;

    explicit SymbolModel(std::size_t numSymbols)
        : m_counts(numSymbols, 1), m_distribution(numSymbols), m_total(static_cast<std::uint32_t>(numSymbols))
    {
        distribute();
        m_cycle = m_left = static_cast<std::uint32_t>((numSymbols + 6) >> 1);
    }

    std::uint32_t last() const noexcept { return static_cast<std::uint32_t>(m_counts.size() - 1); }
    // The sum of the frequencies of lower symbols.
    std::uint32_t below(std::uint32_t symbol) const noexcept { return m_distribution[symbol]; }
    std::uint32_t find(std::uint32_t position) const noexcept
    {
        const auto above = std::upper_bound(m_distribution.begin(), m_distribution.end(), position);
        return static_cast<std::uint32_t>(above - m_distribution.begin() - 1);
    }
    void count(std::uint32_t symbol)
    {
        ++m_counts[symbol];
        if (--m_left == 0)
            update();
    }

private:
    void update()
    {
        m_total += m_cycle;
        if (m_total > 1U << shift) {
            m_total = 0;
            for (std::uint32_t& count : m_counts)
                m_total += count = (count + 1) >> 1;
        }
        distribute();
        m_cycle = std::min<std::uint32_t>(5 * m_cycle >> 2, (last() + 7) << 3);
        m_left = m_cycle;
    }
    void distribute()
    {
        const std::uint32_t scale = one / m_total;
        std::uint32_t sum = 0;
        for (std::size_t i = 0; i < m_counts.size(); ++i) {
            m_distribution[i] = scale * sum >> (31 - shift);
            sum += m_counts[i];
        }
    }

    std::vector<std::uint32_t> m_counts;
    std::vector<std::uint32_t> m_distribution;
    std::uint32_t m_total;
    std::uint32_t m_cycle = 0; // symbols from one update to the next
    std::uint32_t m_left = 0;  // symbols until the next update
};

// The adaptive probability of a zero bit.
class BitModel
{
public:
    static constexpr unsigned shift = 13;

    std::uint32_t zero() const noexcept { return m_zero; }
    void count(bool bit)
    {
        m_zeros += bit ? 0 : 1;
        if (--m_left == 0)
            update();
    }

private:
    void update()
    {
        m_total += m_cycle;
        if (m_total > 1U << shift) {
            m_total = (m_total + 1) >> 1;
            m_zeros = (m_zeros + 1) >> 1;
            m_total += m_zeros == m_total ? 1 : 0;
        }
        m_zero = m_zeros * (one / m_total) >> (31 - shift);
        m_cycle = std::min<std::uint32_t>(5 * m_cycle >> 2, 64);
        m_left = m_cycle;
    }

    std::uint32_t m_zeros = 1;
    std::uint32_t m_total = 2;
    std::uint32_t m_zero = 1U << (shift - 1);
    std::uint32_t m_cycle = 4;
    std::uint32_t m_left = 4;
};

class Encoder
{
public:
    void put(SymbolModel& model, std::uint32_t symbol)
    {
        const std::uint32_t unit = m_length >> SymbolModel::shift;
        const std::uint32_t low = model.below(symbol) * unit;
        const std::uint32_t high = symbol == model.last() ? m_length : model.below(symbol + 1) * unit;
        narrow(low, high - low);
        model.count(symbol);
    }
    void putBit(BitModel& model, bool bit)
    {
        const std::uint32_t zero = model.zero() * (m_length >> BitModel::shift);
        narrow(bit ? zero : 0, bit ? m_length - zero : zero);
        model.count(bit);
    }
    // `count` is at most 32.
    void putBits(std::uint32_t bits, unsigned count)
    {
        if (count > 19) {
            putRaw(bits & 0xFFFF, 16);
            bits >>= 16;
            count -= 16;
        }
        putRaw(bits, count);
    }

    std::vector<unsigned char> finish()
    {
        // The fewest bytes that identify the interval, then as many as the decoder reads ahead.
        const bool isLong = m_length > 2 * minLength;
        narrow(isLong ? minLength : minLength >> 1, isLong ? minLength >> 1 : minLength >> 9);
        m_bytes.insert(m_bytes.end(), isLong ? 3 : 2, 0);
        return std::move(m_bytes);
    }

private:
    void putRaw(std::uint32_t bits, unsigned count)
    {
        const std::uint32_t unit = m_length >> count;
        narrow(bits * unit, unit);
    }
    void narrow(std::uint32_t offset, std::uint32_t length)
    {
        const std::uint32_t before = m_base;
        m_base += offset;
        m_length = length;
        for (std::size_t i = m_bytes.size(); m_base < before && i-- > 0;)
            if (++m_bytes[i] != 0) // the carry ends here
                break;
        for (; m_length < minLength; m_length <<= 8) {
            m_bytes.push_back(static_cast<unsigned char>(m_base >> 24));
            m_base <<= 8;
        }
    }

    std::uint32_t m_base = 0;
    std::uint32_t m_length = UINT32_MAX;
    std::vector<unsigned char> m_bytes;
};

class Decoder
{
public:
    explicit Decoder(std::span<const unsigned char> code) : m_code(code)
    {
        for (unsigned i = 0; i < 4; ++i)
            m_value = m_value << 8 | next();
    }

    // Whether the code was damaged or too short. The results are then arbitrary, but in their ranges.
    bool hasFailed() const noexcept { return m_failed; }

    std::uint32_t get(SymbolModel& model)
    {
        const std::uint32_t unit = m_length >> SymbolModel::shift;
        const std::uint32_t symbol = model.find(m_value / unit);
        const std::uint32_t low = model.below(symbol) * unit;
        const std::uint32_t high = symbol == model.last() ? m_length : model.below(symbol + 1) * unit;
        narrow(low, high - low);
        model.count(symbol);
        return symbol;
    }
    bool getBit(BitModel& model)
    {
        const std::uint32_t zero = model.zero() * (m_length >> BitModel::shift);
        const bool bit = m_value >= zero;
        narrow(bit ? zero : 0, bit ? m_length - zero : zero);
        model.count(bit);
        return bit;
    }
    std::uint32_t getBits(unsigned count)
    {
        if (count <= 19)
            return getRaw(count);
        const std::uint32_t low = getRaw(16);
        return getRaw(count - 16) << 16 | low;
    }

private:
    std::uint32_t getRaw(unsigned count)
    {
        const std::uint32_t unit = m_length >> count;
        const std::uint32_t bits = std::min(m_value / unit, (1U << count) - 1);
        narrow(bits * unit, unit);
        return bits;
    }
    void narrow(std::uint32_t offset, std::uint32_t length)
    {
        m_value -= offset;
        m_length = length;
        m_failed = m_failed || m_value >= m_length; // no encoder produces this
        if (m_failed)
            m_value = 0;
        for (; m_length < minLength; m_length <<= 8)
            m_value = m_value << 8 | next();
    }
    unsigned next()
    {
        m_failed = m_failed || m_position == m_code.size();
        return m_failed ? 0 : m_code[m_position++];
    }

    std::span<const unsigned char> m_code;
    std::size_t m_position = 0;
    std::uint32_t m_value = 0;
    std::uint32_t m_length = UINT32_MAX;
    bool m_failed = false;
};

// The models of a difference: the number of its bits for each kind of integer, and its highest bits.
struct Models
{
    static constexpr unsigned coded = 8; // bits; lower ones are stored as they are

    Models()
    {
        high.reserve(32);
        for (unsigned bits = 1; bits <= 32; ++bits)
            high.emplace_back(std::size_t{1} << std::min(bits, coded));
    }

    SymbolModel numBits[2]{SymbolModel(33), SymbolModel(33)};
    BitModel single;
    std::vector<SymbolModel> high; // [numBits - 1]
};

enum Kind
{
    POINTS,
    BYTES
};

// A difference of `bits` bits is in [-(2^bits - 1), 2^bits], less those of fewer bits.
void put(Encoder& encoder, Models& models, Kind kind, std::uint32_t predicted, std::uint32_t value)
{
    const auto difference = static_cast<std::int32_t>(value - predicted);
    const auto magnitude = difference <= 0 ? 0 - static_cast<std::uint32_t>(difference)
                                           : static_cast<std::uint32_t>(difference) - 1;
    unsigned bits = 0;
    while (bits < 32 && magnitude >> bits != 0)
        ++bits;
    encoder.put(models.numBits[kind], bits);
    if (bits == 32)
        return;
    if (bits == 0) {
        encoder.putBit(models.single, difference != 0);
        return;
    }
    const std::uint32_t code = difference < 0 ? static_cast<std::uint32_t>(difference) + ((1U << bits) - 1)
                                              : static_cast<std::uint32_t>(difference) - 1;
    const unsigned low = bits > Models::coded ? bits - Models::coded : 0;
    encoder.put(models.high[bits - 1], code >> low);
    if (low != 0)
        encoder.putBits(code & ((1U << low) - 1), low);
}

std::uint32_t get(Decoder& decoder, Models& models, Kind kind, std::uint32_t predicted)
{
    const unsigned bits = decoder.get(models.numBits[kind]);
    if (bits == 32)
        return predicted + one;
    if (bits == 0)
        return predicted + (decoder.getBit(models.single) ? 1 : 0);
    const unsigned low = bits > Models::coded ? bits - Models::coded : 0;
    std::uint32_t code = decoder.get(models.high[bits - 1]);
    if (low != 0)
        code = code << low | decoder.getBits(low);
    return predicted + (code >= 1U << (bits - 1) ? code + 1 : code - ((1U << bits) - 1));
}

} // namespace

std::vector<unsigned char> LASzipTableCode::encode(std::span<const LASzipTableEntry> entries, bool variable)
{
    Encoder encoder;
    Models models;
    LASzipTableEntry before;
    for (const LASzipTableEntry& entry : entries) {
        if (variable)
            put(encoder, models, POINTS, before.numPoints, entry.numPoints);
        put(encoder, models, BYTES, before.numBytes, entry.numBytes);
        before = entry;
    }
    return encoder.finish();
}

std::optional<std::vector<LASzipTableEntry>> LASzipTableCode::decode(std::span<const unsigned char> code,
                                                                     std::size_t count, bool variable,
                                                                     std::uint64_t maxBytes)
{
    Decoder decoder(code);
    Models models;
    std::vector<LASzipTableEntry> entries;
    LASzipTableEntry entry;
    for (std::size_t i = 0; i < count; ++i) {
        if (variable)
            entry.numPoints = get(decoder, models, POINTS, entry.numPoints);
        entry.numBytes = get(decoder, models, BYTES, entry.numBytes);
        const bool isEmpty = entry.numBytes == 0 || (variable && entry.numPoints == 0);
        if (decoder.hasFailed() || isEmpty || entry.numBytes > maxBytes)
            return std::nullopt;
        maxBytes -= entry.numBytes;
        entries.push_back(entry);
    }
    return entries;
}

} // namespace Quillmoran
