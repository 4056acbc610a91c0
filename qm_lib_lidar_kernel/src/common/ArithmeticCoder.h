// A 32-bit range coder with adaptive models for two and for many symbols, after "Introduction to Arithmetic
// Coding - Theory and Practice" (2004). It codes signs, bit lengths and leading bits of integer samples;
// further bits are mixed in raw.
//
// A model counts its symbols and rebuilds its probabilities at growing intervals, in step on both sides. The
// decoder never reads outside the bytes it was given and is fed zeros behind them; damaged data decodes to
// some symbols. Coders and models are used by one thread at a time.
#pragma once

#include "platform/Base.h"
#include "platform/Export.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Quillmoran {

class QM_API ACBase
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

class QM_API ACBase::BitModel
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

class QM_API ACBase::DataModel
{
public:
    // Sizes the model for `symbols` symbols, at least 1, and resets it. A model that has that size already
    // keeps its memory.
    void setAlphabet(std::uint32_t symbols);
    void reset() noexcept;
    // `fromEncoder` leaves out the decoder's look-up table.
    void update(bool fromEncoder) noexcept;

private:
    friend class ACEncoder;
    friend class ACDecoder;

    void countSymbol(std::uint32_t symbol, bool fromEncoder) noexcept
    {
        ++symbol_count[symbol];
        if (--symbols_until_update == 0)
            update(fromEncoder);
    }

    Buffer<std::uint32_t> distribution; // cumulative probabilities, scaled to 2^15
    Buffer<std::uint32_t> symbol_count;
    std::uint32_t total_count = 0;
    std::uint32_t update_cycle = 0;
    std::uint32_t symbols_until_update = 0;
    std::uint32_t data_symbols = 0;
    std::uint32_t last_symbol = 0;
    Buffer<std::uint32_t> decoder_table; // for more than 16 symbols: where to start the bisection
    std::uint32_t table_size = 0;
    std::uint32_t table_shift = 0;
};

class QM_API ACEncoder : public ACBase
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

class QM_API ACDecoder : public ACBase
{
public:
    void begin(const void* data, std::size_t length) noexcept;
    std::uint32_t getBit() noexcept;
    std::uint32_t getBits(int bits) noexcept; // up to 16 bits at a time
    std::uint32_t decode(BitModel& model) noexcept;
    std::uint32_t decode(DataModel& model) noexcept;
    void end() noexcept {}

private:
    std::uint32_t nextByte() noexcept { return m_current != m_end ? *m_current++ : 0; }
    void renormalise() noexcept
    {
        while (m_length < minLength) {
            m_value = m_value << 8 | nextByte();
            m_length <<= 8;
        }
    }

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

inline std::uint32_t ACDecoder::decode(DataModel& model) noexcept
{
    const std::uint32_t* const distribution = model.distribution.get();
    std::uint32_t upper = m_length;
    m_length >>= dataModelShift;
    std::uint32_t symbol = 0;
    std::uint32_t lower = 0;
    if (model.decoder_table) {
        // Damaged data can leave the value outside the interval; the look-up stays inside its table all the
        // same.
        constexpr std::uint32_t largest = (1u << dataModelShift) - 1;
        const std::uint32_t scaled = std::min(m_value / m_length, largest);
        const std::uint32_t slot = scaled >> model.table_shift;
        symbol = model.decoder_table[slot];
        std::uint32_t above = model.decoder_table[slot + 1] + 1;
        while (above > symbol + 1) {
            const std::uint32_t middle = (symbol + above) >> 1;
            if (scaled < distribution[middle])
                above = middle;
            else
                symbol = middle;
        }
        lower = distribution[symbol] * m_length;
        if (symbol != model.last_symbol)
            upper = distribution[symbol + 1] * m_length;
    } else {
        std::uint32_t above = model.data_symbols;
        std::uint32_t middle = above >> 1;
        do {
            const std::uint32_t bound = m_length * distribution[middle];
            if (bound > m_value) {
                above = middle;
                upper = bound;
            } else {
                symbol = middle;
                lower = bound;
            }
            middle = (symbol + above) >> 1;
        } while (middle != symbol);
    }
    m_value -= lower;
    m_length = upper - lower;
    renormalise();
    model.countSymbol(symbol, false);
    return symbol;
}

} // namespace Quillmoran
