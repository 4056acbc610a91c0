// A 32-bit range coder with adaptive models for two and for many symbols, after "Introduction to Arithmetic
// Coding - Theory and Practice" (2004). It codes signs, bit lengths and leading bits of integer samples;
// further bits are mixed in raw.
//
// A model counts its symbols and rebuilds its probabilities at growing intervals, in step on both sides. The
// decoder never reads outside the bytes it was given and is fed zeros behind them; damaged data decodes to
// some symbols. Coders and models are used by one thread at a time.
#pragma once

#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Quillmoran {

class ACBase
{
public:
    class BitModel;
    class DataModel;

protected:
    static constexpr std::uint32_t minLength = 0x01000000;
    static constexpr std::uint32_t maxLength = 0xFFFFFFFF;
    static constexpr int bitModelShift = 13;  // precision of a bit's probability
    static constexpr int dataModelShift = 15; // precision of a symbol's cumulative probability
};

class ACBase::BitModel
{
public:
    void reset() noexcept { *this = BitModel(); }
    void update() noexcept;

private:
    friend class ACEncoder;
    friend class ACDecoder;

    void countSymbol(std::uint32_t bit) noexcept
    {
        bit_0_count += 1 - bit;
        if (--bits_until_update == 0)
            update();
    }

    std::uint32_t update_cycle = 4;
    std::uint32_t bits_until_update = 4;
    std::uint32_t bit_0_prob = 1u << (bitModelShift - 1);
    std::uint32_t bit_0_count = 1;
    std::uint32_t bit_count = 2;
};

class ACBase::DataModel
{
public:
    // Models of so many symbols and fewer are searched as a whole.
    static constexpr std::uint32_t smallAlphabet = 16;

    // Sizes the model for `symbols` symbols, at least 1 and at most 2^15, and resets it. A model that has
    // that size already keeps its memory.
    void setAlphabet(std::uint32_t symbols);
    void reset() noexcept;
    // Takes over the state of a model with the same alphabet.
    void assign(const DataModel& other) noexcept;
    // `fromEncoder` leaves out the decoder's look-up table.
    void update(bool fromEncoder) noexcept;

private:
    friend class ACEncoder;
    friend class ACDecoder;

    // The decoder looks at so many shares at once, behind the last symbol's, too: those begin where no value
    // comes to.
    static constexpr std::uint32_t searchWidth = 8;
    static constexpr std::uint16_t unreachable = 0xFFFF;
    // How many of the shares from that symbol on begin at or before a scaled value: 0 to searchWidth.
    std::uint32_t countBegun(std::uint32_t symbol, std::uint16_t scaled) const noexcept;

    void countSymbol(std::uint32_t symbol, bool fromEncoder) noexcept
    {
        ++symbol_count[symbol];
        if (--symbols_until_update == 0)
            update(fromEncoder);
    }
    void updateTable() noexcept;
    std::size_t distributionSize() const noexcept
    {
        return std::max(data_symbols, smallAlphabet) + std::size_t{searchWidth};
    }

    Buffer<std::uint16_t> distribution; // cumulative probabilities, scaled to 2^15
    Buffer<std::uint32_t> symbol_count;
    std::uint32_t total_count = 0;
    std::uint32_t update_cycle = 0;
    std::uint32_t symbols_until_update = 0;
    std::uint32_t data_symbols = 0;
    std::uint32_t last_symbol = 0;
    // By the upper bits of a scaled value: a symbol whose share begins there or before.
    Buffer<std::uint16_t> decoder_table;
    std::uint32_t table_size = 0;
    std::uint32_t table_shift = 0;
};

class ACEncoder : public ACBase
{
public:
    // The buffer must hold all that is coded; it is never checked.
    void begin(void* buffer, std::size_t capacity) noexcept;
    void putBit(int bit) noexcept;
    void putBits(std::uint32_t value, int bits) noexcept; // up to 16 bits at a time
    void encode(int bit, BitModel& model) noexcept;
    void encode(std::uint32_t symbol, DataModel& model) noexcept;
    // Flushes and returns the bytes written since begin().
    std::size_t end() noexcept;

private:
    // A sum that wraps carries into the bytes already written.
    void addToBase(std::uint32_t value) noexcept
    {
        m_base += value;
        if (m_base < value)
            carry();
    }
    void carry() noexcept;
    void renormalise() noexcept
    {
        while (m_length < minLength) {
            *m_current++ = static_cast<std::uint8_t>(m_base >> 24);
            m_base <<= 8;
            m_length <<= 8;
        }
    }

    std::uint32_t m_base = 0;
    std::uint32_t m_length = 0;
    std::uint8_t* m_start = nullptr;
    std::uint8_t* m_current = nullptr;
};

class ACDecoder : public ACBase
{
public:
    void begin(const void* data, std::size_t length) noexcept;
    std::uint32_t getBit() noexcept;
    std::uint32_t getBits(int bits) noexcept; // up to 16 bits at a time
    std::uint32_t decode(BitModel& model) noexcept;
    std::uint32_t decode(DataModel& model) noexcept;
    // The same, faster, for a model of a small alphabet and for one of three symbols.
    std::uint32_t decodeSmall(DataModel& model) noexcept;
    std::uint32_t decodeThree(DataModel& model) noexcept;
    void end() noexcept {}

private:
    // The value in units of a model's probabilities. Damaged data can leave it outside the interval.
    std::uint32_t scaledValue() const noexcept
    {
        constexpr std::uint32_t largest = (1u << dataModelShift) - 1;
        return std::min(m_value / (m_length >> dataModelShift), largest);
    }
    std::uint32_t finish(DataModel& model, std::uint32_t symbol) noexcept;
    void narrow(std::uint32_t lower, std::uint32_t upper) noexcept
    {
        m_value -= lower;
        m_length = upper - lower;
        renormalise();
    }
    // The length is never 0; whole bytes are shifted in until it has 25 bits.
    void renormalise() noexcept
    {
        const auto shift = static_cast<std::uint32_t>(__builtin_clz(m_length)) & 24;
        std::uint32_t next;
        if (__builtin_expect(m_end - m_current >= 4, 1)) {
            next = loadBigEndian<std::uint32_t>(m_current);
            m_current += shift / 8;
        } else {
            next = takeLast(shift / 8);
        }
        m_value = static_cast<std::uint32_t>((std::uint64_t{m_value} << 32 | next) << shift >> 32);
        m_length <<= shift;
    }
    // The upper bytes of the result are the next ones, zeros behind the last.
    std::uint32_t takeLast(std::uint32_t bytes) noexcept;

    std::uint32_t m_value = 0;
    std::uint32_t m_length = 0;
    const std::uint8_t* m_current = nullptr;
    const std::uint8_t* m_end = nullptr;
};

inline void ACEncoder::putBits(std::uint32_t value, int bits) noexcept
{
    m_length >>= bits;
    addToBase(value * m_length);
    renormalise();
}

inline void ACEncoder::encode(std::uint32_t symbol, DataModel& model) noexcept
{
    std::uint32_t upper = m_length;
    m_length >>= dataModelShift;
    const std::uint32_t lower = model.distribution[symbol] * m_length;
    if (symbol != model.last_symbol)
        upper = model.distribution[symbol + 1] * m_length;
    addToBase(lower);
    m_length = upper - lower;
    renormalise();
    model.countSymbol(symbol, true);
}

inline std::uint32_t ACDecoder::getBit() noexcept
{
    m_length >>= 1;
    const std::uint32_t bit = m_value >= m_length ? 1 : 0;
    if (bit)
        m_value -= m_length;
    renormalise();
    return bit;
}

inline std::uint32_t ACDecoder::getBits(int bits) noexcept
{
    m_length >>= bits;
    const std::uint32_t value = m_value / m_length;
    m_value -= value * m_length;
    renormalise();
    return value;
}

inline std::uint32_t ACDecoder::decode(BitModel& model) noexcept
{
    const std::uint32_t split = model.bit_0_prob * (m_length >> bitModelShift);
    const std::uint32_t bit = m_value >= split ? 1 : 0;
    if (bit) {
        m_value -= split;
        m_length -= split;
    } else {
        m_length = split;
    }
    renormalise();
    model.countSymbol(bit);
    return bit;
}

inline std::uint32_t ACDecoder::finish(DataModel& model, std::uint32_t symbol) noexcept
{
    const std::uint32_t unit = m_length >> dataModelShift;
    const std::uint32_t upper =
        symbol != model.last_symbol ? model.distribution[symbol + 1] * unit : m_length;
    narrow(model.distribution[symbol] * unit, upper);
    model.countSymbol(symbol, false);
    return symbol;
}

// Shares are in order: the begun ones are the first ones. Written with vectors, since GCC 12 miscounts in the
// plain loop that it vectorises by itself.
inline std::uint32_t ACBase::DataModel::countBegun(std::uint32_t symbol, std::uint16_t scaled) const noexcept
{
    using Shares [[gnu::vector_size(2 * searchWidth)]] = std::uint16_t;
    using Flags [[gnu::vector_size(searchWidth)]] = std::int8_t;
    Shares shares;
    std::memcpy(&shares, &distribution[symbol], sizeof shares);
    const Flags flags = __builtin_convertvector(shares <= Shares{} + scaled, Flags);
    // A byte of ones for each that has begun. Copied as a whole, so that it stays in a register.
    std::uint64_t bytes;
    std::memcpy(&bytes, &flags, sizeof bytes);
    const int ones =
        std::endian::native == std::endian::little ? std::countr_one(bytes) : std::countl_one(bytes);
    return static_cast<std::uint32_t>(ones) / 8;
}

// Without branches: which symbol comes next cannot be predicted, or it would not have been coded.
inline std::uint32_t ACDecoder::decode(DataModel& model) noexcept
{
    const auto scaled = static_cast<std::uint16_t>(scaledValue());
    std::uint32_t symbol = model.decoder_table[scaled >> model.table_shift];
    std::uint32_t begun = model.countBegun(symbol + 1, scaled);
    while (__builtin_expect(begun == DataModel::searchWidth, 0)) {
        symbol += begun;
        begun = model.countBegun(symbol + 1, scaled);
    }
    return finish(model, symbol + begun);
}

inline std::uint32_t ACDecoder::decodeSmall(DataModel& model) noexcept
{
    const auto scaled = static_cast<std::uint16_t>(scaledValue());
    static_assert(DataModel::smallAlphabet == 2 * DataModel::searchWidth);
    const std::uint32_t begun =
        model.countBegun(0, scaled) + model.countBegun(DataModel::searchWidth, scaled);
    return finish(model, begun - 1);
}

// Two products are faster than a quotient.
inline std::uint32_t ACDecoder::decodeThree(DataModel& model) noexcept
{
    const std::uint32_t unit = m_length >> dataModelShift;
    const std::uint32_t first = model.distribution[1] * unit;
    const std::uint32_t second = model.distribution[2] * unit;
    // All ones where the value lies behind a bound.
    const std::uint32_t behindFirst = 0 - std::uint32_t{m_value >= first};
    const std::uint32_t behindSecond = 0 - std::uint32_t{m_value >= second};
    const std::uint32_t symbol = 0 - (behindFirst + behindSecond);
    const std::uint32_t lower = (first & behindFirst) + ((second - first) & behindSecond);
    const std::uint32_t upper =
        first + ((second - first) & behindFirst) + ((m_length - second) & behindSecond);
    narrow(lower, upper);
    model.countSymbol(symbol, false);
    return symbol;
}

} // namespace Quillmoran
