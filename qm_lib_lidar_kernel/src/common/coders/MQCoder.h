// The MQ coder: binary adaptive arithmetic coding as in JPEG 2000 and JBIG2. It codes the decisions of
// integer coefficients, bit plane by bit plane.
//
// A decision is coded in one of 64 contexts. The state of a context is an entry of one shared table, which
// has two entries per probability state, one for each value of the more probable symbol. The encoder's
// contexts point to their entries; the decoder's contexts are words with the fields that a decision needs.
// Neither side allocates or fails: a damaged segment decodes to arbitrary decisions. An object is used by one
// thread at a time.
//
// This coder differs from the published one in two places: the flush writes no end marker, and a byte after
// an 0xFF that is not a stuffed byte is consumed and not treated as a marker.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Quillmoran {

class MQBase
{
public:
    static constexpr std::size_t numContexts = 64;

    struct State
    {
        std::uint32_t Qe;  // estimated probability of the less probable symbol, in units of the interval A
        std::uint32_t MPS; // the more probable symbol, 0 or 1
        const State* nextMPS;
        const State* nextLPS;
    };
    // Entry 2s + m is probability state s with more probable symbol m.
    static constexpr std::size_t numStates = 94;
    struct StateTable
    {
        State entries[numStates];
    };
    static const StateTable table;

protected:
    MQBase() = default;
};

class MQEncoder : public MQBase
{
public:
    // The buffer must be large enough for the coded bytes; the size is not checked.
    void begin(void* buffer, std::size_t capacity) noexcept;
    void encode(int context, int bit) noexcept
    {
        encode(m_contexts[static_cast<std::size_t>(context)], static_cast<std::uint32_t>(bit));
    }
    // Codes the same decision `count` times.
    void encodeRun(int context, int bit, std::size_t count) noexcept;
    // Flushes and returns the bytes written since begin().
    std::size_t end() noexcept;

    // The number of bytes that a decoder has read after the last decision, if bytes of 0xFF follow the
    // segment. It can be larger than the result of end(). Called after end().
    std::size_t decoderPosition() const noexcept;

private:
    inline void encode(const State*& context, std::uint32_t bit) noexcept;
    inline void renormalise() noexcept;
    void byteOut() noexcept;

    std::uint32_t C = 0;  // code register
    std::uint32_t A = 0;  // interval, in [0x8000, 0xFFFF] between decisions
    std::uint32_t CT = 0; // remaining shifts before the next byte is output
    std::int32_t B = 0;   // the pending byte, -1 for none
    std::array<const State*, numContexts> m_contexts{};
    std::uint64_t m_shifts = 0; // of all renormalisations; the decoder makes the same number
    std::uint8_t* m_start = nullptr;
    std::uint8_t* m_current = nullptr;
};

class MQDecoder : public MQBase
{
public:
    // The state that every decision changes. Loops copy it to a local variable, so that it stays in machine
    // registers.
    //
    //   bit  63 .. 48   47 ..              0
    //   A    interval   0                        in [0x8000, 0xFFFF] between decisions
    //   C    code       bits read ahead | 0
    struct Registers
    {
        std::uint64_t A = 0;
        std::uint64_t C = 0;
        std::uint32_t ahead = 0; // number of bits read ahead, up to 48
    };

    // Reads only [data, data + length). After the end of the segment the decoder continues with ones.
    void begin(const void* data, std::size_t length) noexcept;
    void end() noexcept {}

    int decode(int context) noexcept { return static_cast<int>(decode(m_registers, context)); }

    Registers registers() const noexcept { return m_registers; }
    void setRegisters(const Registers& registers) noexcept { m_registers = registers; }
    // Decodes with the registers in a local variable. There is no branch on the decision, since noise would
    // mispredict it every second time.
    inline std::uint32_t decode(Registers& registers, int context) noexcept;
    // The same, faster for decisions that are nearly always the more probable symbol: that usually changes
    // only the interval.
    inline std::uint32_t decodeSkewed(Registers& registers, int context) noexcept;

    // The number of bytes of the segment that were needed so far.
    std::size_t position() const noexcept;

private:
    // Qe << 16 | entry << 2 | more probable symbol: the fields of a state that a decision needs.
    using Context = std::uint32_t;
    static constexpr std::uint32_t entryMask = 0x1FC;
    static constexpr int registerShift = 48; // position of the 16 bits that the published registers compare
    // The next context. Index: entry of the current context * 4, plus 0 if the interval is not renormalised,
    // 1 after the more probable symbol, 3 after the less probable one.
    struct TransitionTable
    {
        std::array<Context, 4 * numStates> next;
    };
    static const TransitionTable transitions;
    static constexpr TransitionTable buildTransitions();

    // Shifts by more bits than were read ahead, and reads more.
    Registers refill(Registers registers, std::uint32_t shift) noexcept;
    void readAhead(Registers& registers) noexcept;

    Registers m_registers;
    std::array<Context, numContexts> m_contexts{};
    const std::uint8_t* m_start = nullptr;
    const std::uint8_t* m_current = nullptr; // after the bytes that were read, including those read ahead
    const std::uint8_t* m_end = nullptr;
    std::uint32_t m_padding = 0; // bytes of ones that were read after the end
};

inline void MQEncoder::encode(const State*& context, std::uint32_t bit) noexcept
{
    const State& state = *context;
    const std::uint32_t Qe = state.Qe;
    A -= Qe;
    if (bit == state.MPS) {
        if (A & 0x8000) {
            C += Qe;
            return;
        }
        if (A < Qe)
            A = Qe;
        else
            C += Qe;
        context = state.nextMPS;
    } else {
        if (A < Qe)
            C += Qe;
        else
            A = Qe;
        context = state.nextLPS;
    }
    renormalise();
}

// Several more probable symbols can be coded at once until the interval has shrunk to half.
inline void MQEncoder::encodeRun(int context, int bit, std::size_t count) noexcept
{
    const State*& entry = m_contexts[static_cast<std::size_t>(context)];
    while (count != 0) {
        if (static_cast<std::uint32_t>(bit) == entry->MPS) {
            const std::uint32_t limit = (A - 0x8000) / entry->Qe;
            const auto steps = static_cast<std::uint32_t>(count < limit ? count : limit);
            A -= steps * entry->Qe;
            C += steps * entry->Qe;
            count -= steps;
            if (count == 0)
                return;
        }
        encode(entry, static_cast<std::uint32_t>(bit));
        --count;
    }
}

// Makes all shifts up to the next byte at once. A is never 0, and its top bit becomes bit 15.
inline void MQEncoder::renormalise() noexcept
{
    auto shift = static_cast<std::uint32_t>(__builtin_clz(A)) - 16;
    m_shifts += shift;
    A <<= shift;
    while (shift >= CT) {
        C <<= CT;
        shift -= CT;
        byteOut();
    }
    C <<= shift;
    CT -= shift;
}

inline std::uint32_t MQDecoder::decode(Registers& registers, int index) noexcept
{
    Context& context = m_contexts[static_cast<std::size_t>(index)];
    const Context state = context;
    const std::uint64_t Qe = std::uint64_t{state >> 16} << registerShift;
    const std::uint64_t rest = registers.A - Qe;
    // All ones if the code is in the lower part of the interval, which is the less probable symbol unless the
    // parts are exchanged.
    const std::uint64_t lower = std::uint64_t{0} - std::uint64_t{registers.C < Qe};
    const std::uint64_t A = rest ^ ((rest ^ Qe) & lower);
    const std::uint64_t C = registers.C - (Qe & ~lower);
    const std::uint32_t isLPS = static_cast<std::uint32_t>(lower & 1) ^ std::uint32_t{rest < Qe};
    const auto isShort = static_cast<std::uint32_t>(~A >> 63); // always so after a less probable symbol
    context = transitions.next[(state & entryMask) + isShort + 2 * isLPS];
    // A is never 0; its top bit becomes bit 63.
    const auto shift = static_cast<std::uint32_t>(__builtin_clzll(A));
    if (__builtin_expect(shift > registers.ahead, 0)) {
        registers = refill({A, C, registers.ahead}, shift);
    } else {
        registers.A = A << shift;
        registers.C = C << shift;
        registers.ahead -= shift;
    }
    return (state & 1) ^ isLPS;
}

inline std::uint32_t MQDecoder::decodeSkewed(Registers& registers, int index) noexcept
{
    const Context state = m_contexts[static_cast<std::size_t>(index)];
    const std::uint64_t Qe = std::uint64_t{state >> 16} << registerShift;
    const std::uint64_t rest = registers.A - Qe;
    if (registers.C < Qe || rest >> 63 == 0)
        return decode(registers, index);
    registers.A = rest;
    registers.C -= Qe;
    return state & 1;
}

} // namespace Quillmoran
