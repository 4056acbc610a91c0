#include "common/coders/MQCoder.h"

#include <algorithm>
#include <iterator>

namespace Quillmoran {

namespace {

struct ProbabilityState
{
    std::uint16_t Qe;
    std::uint8_t nextMPS;
    std::uint8_t nextLPS;
    std::uint8_t switchMPS; // whether an LPS exchanges the symbols
};

// The published table of probability states.
// clang-format off
constexpr ProbabilityState states[] = {
    // Qe  MPS LPS switch
    {0x5601,  1,  1, 1},
    {0x3401,  2,  6, 0},
    {0x1801,  3,  9, 0},
    {0x0AC1,  4, 12, 0},
    {0x0521,  5, 29, 0},
    {0x0221, 38, 33, 0},
    {0x5601,  7,  6, 1},
    {0x5401,  8, 14, 0},
    {0x4801,  9, 14, 0},
    {0x3801, 10, 14, 0},
    {0x3001, 11, 17, 0},
    {0x2401, 12, 18, 0},
    {0x1C01, 13, 20, 0},
    {0x1601, 29, 21, 0},
    {0x5601, 15, 14, 1},
    {0x5401, 16, 14, 0},
    {0x5101, 17, 15, 0},
    {0x4801, 18, 16, 0},
    {0x3801, 19, 17, 0},
    {0x3401, 20, 18, 0},
    {0x3001, 21, 19, 0},
    {0x2801, 22, 19, 0},
    {0x2401, 23, 20, 0},
    {0x2201, 24, 21, 0},
    {0x1C01, 25, 22, 0},
    {0x1801, 26, 23, 0},
    {0x1601, 27, 24, 0},
    {0x1401, 28, 25, 0},
    {0x1201, 29, 26, 0},
    {0x1101, 30, 27, 0},
    {0x0AC1, 31, 28, 0},
    {0x09C1, 32, 29, 0},
    {0x08A1, 33, 30, 0},
    {0x0521, 34, 31, 0},
    {0x0441, 35, 32, 0},
    {0x02A1, 36, 33, 0},
    {0x0221, 37, 34, 0},
    {0x0141, 38, 35, 0},
    {0x0111, 39, 36, 0},
    {0x0085, 40, 37, 0},
    {0x0049, 41, 38, 0},
    {0x0025, 42, 39, 0},
    {0x0015, 43, 40, 0},
    {0x0009, 44, 41, 0},
    {0x0005, 45, 42, 0},
    {0x0001, 45, 43, 0},
    {0x5601, 46, 46, 0},
};
// clang-format on
static_assert(std::size(states) * 2 == MQBase::numStates);

constexpr MQBase::StateTable buildTable()
{
    MQBase::StateTable built{};
    const MQBase::State* const entries = MQBase::table.entries;
    for (std::uint32_t s = 0; s < std::size(states); ++s) {
        for (std::uint32_t mps = 0; mps < 2; ++mps) {
            const ProbabilityState& state = states[s];
            built.entries[2 * s + mps] = {state.Qe, mps, entries + 2u * state.nextMPS + mps,
                                          entries + 2u * state.nextLPS + (mps ^ state.switchMPS)};
        }
    }
    return built;
}

constexpr std::int32_t nothingPending = -1;

// Whether a byte has seven bits because of the byte before it.
constexpr bool isStuffed(std::uint32_t before, std::uint32_t byte)
{
    return before == 0xFF && byte < 0x90;
}

} // namespace

constinit const MQBase::StateTable MQBase::table = buildTable();

constexpr MQBase::TransitionTable MQBase::buildTransitions()
{
    const auto contextOf = [](std::uint32_t s, std::uint32_t mps) -> Context {
        return std::uint32_t{states[s].Qe} << 16 | (2 * s + mps) << 2 | mps;
    };
    TransitionTable built{};
    for (std::uint32_t s = 0; s < std::size(states); ++s) {
        for (std::uint32_t mps = 0; mps < 2; ++mps) {
            const ProbabilityState& state = states[s];
            Context* const next = &built.next[std::size_t{4} * (2 * s + mps)];
            next[0] = contextOf(s, mps);
            next[1] = contextOf(state.nextMPS, mps);
            next[2] = next[3] = contextOf(state.nextLPS, mps ^ state.switchMPS);
        }
    }
    return built;
}

constinit const MQBase::TransitionTable MQBase::transitions = MQBase::buildTransitions();

void MQEncoder::begin(void* buffer, std::size_t) noexcept
{
    m_start = static_cast<std::uint8_t*>(buffer);
    m_registers = {0x8000, 0, 12, nothingPending, 12, m_start};
    m_contexts.fill(transitions.next[0]);
    m_shifts = 0;
}

// One byte is pending in B, so that a carry out of C can still change it.
inline void MQEncoder::byteOut(Registers& registers) noexcept
{
    auto& [A, C, CT, B, capacity, current] = registers;
    if (B != 0xFF && (C & 0x8000000)) {
        ++B;
        if (B == 0xFF)
            C &= 0x7FFFFFF;
    }
    if (B == 0xFF) {
        *current++ = 0xFF;
        B = static_cast<std::int32_t>((C >> 20) & 0xFF);
        C &= 0xFFFFF;
        CT = 7; // a bit is stuffed after an 0xFF
    } else {
        if (B != nothingPending)
            *current++ = static_cast<std::uint8_t>(B);
        B = static_cast<std::int32_t>((C >> 19) & 0xFF);
        C &= 0x7FFFF;
        CT = 8;
    }
    capacity += CT;
}

// The only branch is that of byteOut(). Others would depend on the decision or on the interval, and a branch
// that is predicted wrongly takes longer than a decision.
inline void MQEncoder::encode(Registers& registers, std::size_t index, std::uint32_t bit) noexcept
{
    auto& [A, C, CT, B, capacity, current] = registers;
    const Context context = m_contexts[index];
    const std::uint32_t isLPS = (context ^ bit) & 1;
    const Context next = transitions.next[(context & entryMask) + 1 + 2 * isLPS];
    const std::uint32_t Qe = context >> 16;
    const std::uint32_t rest = A - Qe;
    // All ones for the part of the interval of length Qe: that of the less probable symbol, unless the parts
    // are exchanged.
    const std::uint32_t lower = 0 - (isLPS ^ std::uint32_t{rest < Qe});
    const std::uint32_t part = rest ^ ((rest ^ Qe) & lower);
    C += Qe & ~lower;
    const std::uint32_t isLong = 0 - (part >> 15); // all ones without renormalisation
    m_contexts[index] = next ^ ((next ^ context) & isLong);
    // The interval is never 0, and its top bit becomes bit 15. All shifts up to the next byte are made at
    // once.
    auto shift = static_cast<std::uint32_t>(__builtin_clz(part)) ^ 16;
    A = part << shift;
    while (shift >= CT) {
        C <<= CT;
        shift -= CT;
        byteOut(registers);
    }
    C <<= shift;
    CT -= shift;
}

// Several more probable symbols can be coded at once until the interval has shrunk to half.
inline void MQEncoder::encodeZeros(Registers& registers, std::size_t index, std::uint32_t count) noexcept
{
    for (; count != 0; --count) {
        const Context context = m_contexts[index];
        if ((context & 1) == 0) {
            const std::uint32_t Qe = context >> 16;
            const std::uint32_t steps = std::min(count, (registers.A - 0x8000) / Qe);
            registers.A -= steps * Qe;
            registers.C += steps * Qe;
            count -= steps;
            if (count == 0)
                return;
        }
        encode(registers, index, 0);
    }
}

void MQEncoder::encode(int runContext, std::span<const Step> steps) noexcept
{
    Registers registers = m_registers;
    const auto runIndex = static_cast<std::size_t>(runContext);
    for (const Step step : steps) {
        if (const std::uint32_t run = step >> 8) {
            const Context context = m_contexts[runIndex];
            const std::uint32_t sum = run * (context >> 16);
            // Most runs are short: no renormalisation, and no division.
            if (registers.A - 0x8000 >= sum && (context & 1) == 0) {
                registers.A -= sum;
                registers.C += sum;
            } else {
                encodeZeros(registers, runIndex, run);
            }
        }
        encode(registers, (step >> 1) & (numContexts - 1), step & 1);
    }
    m_registers = registers;
}

std::size_t MQEncoder::end() noexcept
{
    Registers registers = m_registers;
    m_shifts = codedBits();
    const std::uint32_t limit = registers.C + registers.A;
    registers.C |= 0xFFFF;
    if (registers.C >= limit)
        registers.C -= 0x8000;
    for (int i = 0; i < 2; ++i) {
        registers.C <<= registers.CT;
        byteOut(registers);
    }
    if (registers.B < 0xFF) // a final 0xFF is omitted: the decoder continues with ones
        *registers.current++ = static_cast<std::uint8_t>(registers.B);
    m_registers = registers;
    return static_cast<std::size_t>(registers.current - m_start);
}

// The decoder begins with two bytes, one bit of which is not needed yet (none if the second byte is a stuffed
// one), and reads another byte whenever it has used all bits.
std::size_t MQEncoder::decoderPosition() const noexcept
{
    const auto byteAt = [this](std::size_t index) -> std::uint32_t {
        return m_start + index < m_registers.current ? m_start[index] : 0xFF;
    };
    std::size_t position = 2;
    std::uint32_t last = byteAt(1);
    std::uint64_t bits = byteAt(0) == 0xFF && last < 0x90 ? 0 : 1;
    while (bits < m_shifts) {
        const std::uint32_t byte = byteAt(position++);
        bits += last == 0xFF && byte < 0x90 ? 7 : 8;
        last = byte;
    }
    return position;
}

void MQDecoder::begin(const void* data, std::size_t length) noexcept
{
    m_start = static_cast<const std::uint8_t*>(data);
    m_end = m_start + length;
    m_current = m_start + std::min<std::size_t>(length, 2);
    m_padding = 0;
    const std::uint64_t first = length > 0 ? m_start[0] : 0xFF;
    const std::uint64_t second = length > 1 ? m_start[1] : 0xFF;
    // The registers start after seven shifts, so one bit of the second byte is left, or none of a stuffed
    // one.
    const bool stuffed = isStuffed(static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(second));
    const std::uint64_t low = stuffed ? second << 9 : (first == 0xFF ? 0xFF : second) << 8;
    m_registers.A = std::uint64_t{0x8000} << registerShift;
    m_registers.C = ((first << 16) + low) << 7 << (registerShift - 16);
    m_registers.ahead = stuffed ? 0 : 1;
    m_contexts.fill(transitions.next[0]);
}

MQDecoder::Registers MQDecoder::refill(Registers registers, std::uint32_t shift) noexcept
{
    while (shift > registers.ahead) {
        registers.A <<= registers.ahead;
        registers.C <<= registers.ahead;
        shift -= registers.ahead;
        registers.ahead = 0;
        readAhead(registers);
    }
    registers.A <<= shift;
    registers.C <<= shift;
    registers.ahead -= shift;
    return registers;
}

// Bits that are read ahead must not change the compared ones. Only the top bit of a stuffed byte, which is
// added to the byte before it, can do so: such a byte is read only when it is needed.
void MQDecoder::readAhead(Registers& registers) noexcept
{
    constexpr std::uint32_t maxAhead = registerShift;
    while (registers.ahead <= maxAhead - 8) {
        std::uint64_t byte = 0xFF;
        std::uint32_t bits = 8;
        if (m_current == m_end) {
            ++m_padding;
        } else if (m_current[-1] != 0xFF) {
            byte = *m_current++;
        } else if (*m_current < 0x90) {
            byte = *m_current;
            bits = 7;
            if (byte >= 0x80 && registers.ahead != 0)
                return;
            ++m_current;
        } else {
            ++m_current;
        }
        registers.C += byte << (registerShift - bits - registers.ahead);
        registers.ahead += bits;
    }
}

std::size_t MQDecoder::position() const noexcept
{
    // Subtract the bytes of which no bit was shifted in.
    std::uint32_t ahead = m_registers.ahead;
    std::uint32_t padding = m_padding;
    for (; padding != 0 && ahead >= 8; --padding)
        ahead -= 8;
    const std::uint8_t* current = m_current;
    while (padding == 0 && current - m_start > 2) {
        const std::uint32_t bits = isStuffed(current[-2], current[-1]) ? 7 : 8;
        if (ahead < bits)
            break;
        ahead -= bits;
        --current;
    }
    return static_cast<std::size_t>(current - m_start);
}

} // namespace Quillmoran
