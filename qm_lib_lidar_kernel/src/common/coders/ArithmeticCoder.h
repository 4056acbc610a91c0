// A 32-bit range coder with adaptive models, after "Introduction to Arithmetic Coding - Theory and Practice"
// (2004). It codes signs, bit lengths and leading bits of integer samples; further bits are raw.
//
// A model counts its symbols and updates its probabilities at growing intervals, at the same symbols in
// encoder and decoder. The decoder never reads outside its input and continues with zeros after the end;
// damaged data decodes to arbitrary symbols. Coders and models are used by one thread at a time.
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
    static constexpr int bitModelShift = 13;  // bits of a bit model's probability
    static constexpr int dataModelShift = 15; // bits of a symbol's cumulative frequency
};

// The model of a symbol that is 0 or 1. Subblocks do not use it.
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
    // If a model has at most this number of symbols, the decoder compares with all of its cumulative
    // frequencies.
    static constexpr std::uint32_t smallAlphabet = 16;

    // Sets the number of symbols, 1 to 2^15, and resets the model. Reuses the memory if the number is
    // unchanged.
    void setAlphabet(std::uint32_t symbols);
    void reset() noexcept;
    // Copies the state of a model with the same number of symbols.
    void assign(const DataModel& other) noexcept;
    // `fromEncoder`: does not update the look-up table, which only the decoder uses.
    void update(bool fromEncoder) noexcept;

private:
    friend class ACEncoder;
    friend class ACDecoder;

    // The decoder compares with this number of cumulative frequencies at once. Entries after the last symbol
    // are larger than any value.
    static constexpr std::uint32_t searchWidth = 8;
    static constexpr std::uint16_t unreachable = 0xFFFF;
    // The number of symbols from `symbol` on whose cumulative frequencies are at most `scaled`: 0 to
    // searchWidth.
    std::uint32_t countUpTo(std::uint32_t symbol, std::uint16_t scaled) const noexcept;

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

    Buffer<std::uint16_t> distribution; // cumulative frequencies, scaled to 2^15
    Buffer<std::uint32_t> symbol_count;
    std::uint32_t total_count = 0;
    std::uint32_t update_cycle = 0;
    std::uint32_t symbols_until_update = 0;
    std::uint32_t data_symbols = 0;
    std::uint32_t last_symbol = 0;
    // Indexed by the upper bits of a scaled value: a symbol whose cumulative frequency is at most that value.
    Buffer<std::uint16_t> decoder_table;
    std::uint32_t table_size = 0;
    std::uint32_t table_shift = 0;
};

// Everything that codes data symbols is inline, so that a local encoder stays in machine registers.
class ACEncoder : public ACBase
{
public:
    // The number of bytes after the coded ones that may be overwritten.
    static constexpr std::size_t slack = 4;

    // The buffer must be large enough for the coded bytes and the slack; the size is not checked.
    void begin(void* buffer, std::size_t) noexcept
    {
        m_base = 0;
        m_length = maxLength;
        m_start = m_current = static_cast<std::uint8_t*>(buffer);
    }
    void putBit(int bit) noexcept;
    void putBits(std::uint32_t value, int bits) noexcept; // up to 16 bits at a time
    void encode(int bit, BitModel& model) noexcept;
    void encode(std::uint32_t symbol, DataModel& model) noexcept;
    // Flushes and returns the bytes written since begin().
    std::size_t end() noexcept;

private:
    // If the sum wraps, the carry is added to the bytes already written.
    void addToBase(std::uint32_t value) noexcept
    {
        m_base += value;
        if (__builtin_expect(m_base < value, 0))
            carry(m_current);
    }
    static void carry(std::uint8_t* byte) noexcept
    {
        while (*--byte == 0xFF)
            *byte = 0;
        ++*byte;
    }
    // Outputs whole bytes until the length has at least 25 bits, without a branch. The length is never 0.
    void renormalise() noexcept
    {
        const auto shift = static_cast<std::uint32_t>(__builtin_clz(m_length)) & 24;
        storeBigEndian(m_current, m_base);
        m_current += shift / 8;
        m_base <<= shift;
        m_length <<= shift;
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
    // Faster versions for models with a small alphabet and with three symbols.
    std::uint32_t decodeSmall(DataModel& model) noexcept;
    std::uint32_t decodeThree(DataModel& model) noexcept;
    void end() noexcept {}

private:
    // The value in units of a model's frequencies. With damaged data it can be outside the interval.
    std::uint32_t scaledValue() const noexcept
    {
        constexpr std::uint32_t maxValue = (1u << dataModelShift) - 1;
        return std::min(m_value / (m_length >> dataModelShift), maxValue);
    }
    std::uint32_t finish(DataModel& model, std::uint32_t symbol) noexcept;
    void narrow(std::uint32_t lower, std::uint32_t upper) noexcept
    {
        m_value -= lower;
        m_length = upper - lower;
        renormalise();
    }
    // The length is never 0. Shifts in whole bytes until the length has at least 25 bits.
    void renormalise() noexcept
    {
        const auto shift = static_cast<std::uint32_t>(__builtin_clz(m_length)) & 24;
        std::uint32_t next;
        if (__builtin_expect(m_end - m_current >= 4, 1)) {
            next = loadBigEndian<std::uint32_t>(m_current);
            m_current += shift / 8;
        } else {
            next = readLast(shift / 8);
        }
        m_value = static_cast<std::uint32_t>((std::uint64_t{m_value} << 32 | next) << shift >> 32);
        m_length <<= shift;
    }
    // Returns the next four bytes, with zeros after the last byte of the data. Advances by `bytes`.
    std::uint32_t readLast(std::uint32_t bytes) noexcept;

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
    const std::uint32_t unit = m_length >> dataModelShift;
    const std::uint32_t lower = model.distribution[symbol] * unit;
    const std::uint32_t next = model.distribution[symbol + 1] * unit;
    const std::uint32_t isLast = 0 - std::uint32_t{symbol == model.last_symbol}; // all ones
    const std::uint32_t upper = next ^ ((next ^ m_length) & isLast);
    addToBase(lower);
    m_length = upper - lower;
    renormalise();
    model.countSymbol(symbol, true);
}

inline std::size_t ACEncoder::end() noexcept
{
    // The fewest bytes that are inside the interval for all possible following bytes.
    if (m_length > 2 * minLength) {
        addToBase(minLength);
        m_length = minLength >> 1;
    } else {
        addToBase(minLength >> 1);
        m_length = minLength >> 9;
    }
    renormalise();
    return static_cast<std::size_t>(m_current - m_start);
}

inline std::uint32_t ACDecoder::getBits(int bits) noexcept
{
    m_length >>= bits;
    const std::uint32_t value = m_value / m_length;
    m_value -= value * m_length;
    renormalise();
    return value;
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

// The frequencies are in ascending order, so those that are at most `scaled` come first. Uses explicit
// vectors, because GCC 12 generates a wrong count when it vectorises the plain loop.
inline std::uint32_t ACBase::DataModel::countUpTo(std::uint32_t symbol, std::uint16_t scaled) const noexcept
{
    using Frequencies [[gnu::vector_size(2 * searchWidth)]] = std::uint16_t;
    using Flags [[gnu::vector_size(searchWidth)]] = std::int8_t;
    Frequencies frequencies;
    std::memcpy(&frequencies, &distribution[symbol], sizeof frequencies);
    const Flags flags = __builtin_convertvector(frequencies <= Frequencies{} + scaled, Flags);
    // One byte of ones for each symbol that is counted. Copied as one integer, so that it stays in a
    // register.
    std::uint64_t bytes;
    std::memcpy(&bytes, &flags, sizeof bytes);
    const int ones =
        std::endian::native == std::endian::little ? std::countr_one(bytes) : std::countl_one(bytes);
    return static_cast<std::uint32_t>(ones) / 8;
}

// No branch depends on the symbol, because it could not be predicted.
inline std::uint32_t ACDecoder::decode(DataModel& model) noexcept
{
    const auto scaled = static_cast<std::uint16_t>(scaledValue());
    std::uint32_t symbol = model.decoder_table[scaled >> model.table_shift];
    std::uint32_t found = model.countUpTo(symbol + 1, scaled);
    while (__builtin_expect(found == DataModel::searchWidth, 0)) {
        symbol += found;
        found = model.countUpTo(symbol + 1, scaled);
    }
    return finish(model, symbol + found);
}

inline std::uint32_t ACDecoder::decodeSmall(DataModel& model) noexcept
{
    const auto scaled = static_cast<std::uint16_t>(scaledValue());
    static_assert(DataModel::smallAlphabet == 2 * DataModel::searchWidth);
    const std::uint32_t found = model.countUpTo(0, scaled) + model.countUpTo(DataModel::searchWidth, scaled);
    return finish(model, found - 1);
}

// Two multiplications are faster than a division.
inline std::uint32_t ACDecoder::decodeThree(DataModel& model) noexcept
{
    const std::uint32_t unit = m_length >> dataModelShift;
    const std::uint32_t first = model.distribution[1] * unit;
    const std::uint32_t second = model.distribution[2] * unit;
    // All ones if the value is at or above the bound.
    const std::uint32_t aboveFirst = 0 - std::uint32_t{m_value >= first};
    const std::uint32_t aboveSecond = 0 - std::uint32_t{m_value >= second};
    const std::uint32_t symbol = 0 - (aboveFirst + aboveSecond);
    const std::uint32_t lower = (first & aboveFirst) + ((second - first) & aboveSecond);
    const std::uint32_t upper = first + ((second - first) & aboveFirst) + ((m_length - second) & aboveSecond);
    narrow(lower, upper);
    model.countSymbol(symbol, false);
    return symbol;
}

} // namespace Quillmoran
