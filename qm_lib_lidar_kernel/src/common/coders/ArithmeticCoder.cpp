#include "common/coders/ArithmeticCoder.h"

namespace Quillmoran {

namespace {

// Counts are halved above these totals, so that models adapt to changing data.
constexpr std::uint32_t maxBitCount = 1u << 13;
constexpr std::uint32_t maxSymbolCount = 1u << 15;
constexpr std::uint32_t maxBitUpdateCycle = 64;

} // namespace

void ACBase::DataModel::setAlphabet(std::uint32_t symbols)
{
    if (symbols != data_symbols) {
        data_symbols = symbols;
        last_symbol = symbols - 1;
        distribution = makeBuffer<std::uint16_t>(distributionSize());
        std::fill_n(distribution.get(), distributionSize(), unreachable);
        symbol_count = makeBuffer<std::uint32_t>(symbols);
        std::uint32_t tableBits = 0;
        if (symbols > smallAlphabet) {
            tableBits = 3;
            while (symbols > 1u << (tableBits + 2))
                ++tableBits;
        }
        table_size = 1u << tableBits;
        table_shift = static_cast<std::uint32_t>(dataModelShift) - tableBits;
        decoder_table = makeBuffer<std::uint16_t>(table_size);
    }
    reset();
}

void ACBase::DataModel::assign(const DataModel& other) noexcept
{
    std::copy_n(other.distribution.get(), distributionSize(), distribution.get());
    std::copy_n(other.symbol_count.get(), data_symbols, symbol_count.get());
    std::copy_n(other.decoder_table.get(), table_size, decoder_table.get());
    total_count = other.total_count;
    update_cycle = other.update_cycle;
    symbols_until_update = other.symbols_until_update;
}

void ACBase::DataModel::reset() noexcept
{
    if (data_symbols == 0)
        return;
    total_count = 0;
    update_cycle = data_symbols;
    std::fill_n(symbol_count.get(), data_symbols, 1u);
    update(false);
    update_cycle = symbols_until_update = (data_symbols + 6) >> 1;
}

void ACBase::DataModel::update(bool fromEncoder) noexcept
{
    total_count += update_cycle;
    if (total_count > maxSymbolCount) {
        total_count = 0;
        for (std::uint32_t k = 0; k < data_symbols; ++k) {
            symbol_count[k] = (symbol_count[k] + 1) >> 1;
            total_count += symbol_count[k];
        }
    }

    // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): every symbol has a count of at least 1
    const std::uint32_t scale = 0x80000000u / total_count;
    std::uint32_t sum = 0;
    for (std::uint32_t k = 0; k < data_symbols; ++k) {
        distribution[k] = static_cast<std::uint16_t>((scale * sum) >> (31 - dataModelShift));
        sum += symbol_count[k];
    }
    if (!fromEncoder)
        updateTable();

    update_cycle = std::min((5 * update_cycle) >> 2, 8 * data_symbols + 48);
    symbols_until_update = update_cycle;
}

void ACBase::DataModel::updateTable() noexcept
{
    std::uint32_t slot = 0;
    for (std::uint32_t k = 0; k < data_symbols; ++k) {
        const std::uint32_t first = distribution[k] >> table_shift;
        while (slot < first)
            decoder_table[++slot] = static_cast<std::uint16_t>(k - 1);
    }
    decoder_table[0] = 0;
    while (slot + 1 < table_size)
        decoder_table[++slot] = static_cast<std::uint16_t>(last_symbol);
}

void ACDecoder::begin(const void* data, std::size_t length) noexcept
{
    m_current = static_cast<const std::uint8_t*>(data);
    m_end = m_current + length;
    m_value = readLast(4);
    m_length = maxLength;
}

std::uint32_t ACDecoder::readLast(std::uint32_t bytes) noexcept
{
    std::uint32_t next = 0;
    for (std::ptrdiff_t i = 0; i < 4; ++i)
        next = next << 8 | (i < m_end - m_current ? m_current[i] : 0u);
    m_current += std::min<std::ptrdiff_t>(bytes, m_end - m_current);
    return next;
}

void ACBase::BitModel::update() noexcept
{
    bit_count += update_cycle;
    if (bit_count > maxBitCount) {
        bit_count = (bit_count + 1) >> 1;
        bit_0_count = (bit_0_count + 1) >> 1;
        if (bit_0_count == bit_count)
            ++bit_count;
    }
    const std::uint32_t scale = 0x80000000u / bit_count;
    bit_0_prob = (bit_0_count * scale) >> (31 - bitModelShift);
    update_cycle = std::min((5 * update_cycle) >> 2, maxBitUpdateCycle);
    bits_until_update = update_cycle;
}

void ACEncoder::putBit(int bit) noexcept
{
    m_length >>= 1;
    if (bit)
        addToBase(m_length);
    renormalise();
}

void ACEncoder::encode(int bit, BitModel& model) noexcept
{
    const std::uint32_t split = model.bit_0_prob * (m_length >> bitModelShift);
    if (bit) {
        addToBase(split);
        m_length -= split;
    } else {
        m_length = split;
    }
    renormalise();
    model.countSymbol(bit ? 1 : 0);
}

std::uint32_t ACDecoder::getBit() noexcept
{
    m_length >>= 1;
    const std::uint32_t bit = m_value >= m_length ? 1 : 0;
    if (bit)
        m_value -= m_length;
    renormalise();
    return bit;
}

std::uint32_t ACDecoder::decode(BitModel& model) noexcept
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

} // namespace Quillmoran
