// The MQ coder: binary adaptive arithmetic coding as in JPEG 2000 and JBIG2. It codes the decisions of
// integer coefficients, bit plane by bit plane.
//
// A decision is coded in one of 64 contexts. A context stands at an entry of one shared state table, into
// which the more probable symbol is folded (two entries per probability state). The encoder's contexts point
// at their entries; the decoder's hold what a decision needs of them in one word. Neither side allocates or
// fails: a damaged segment decodes to some decisions. One object is used by one thread at a time.
//
// This coder differs from the published one in two places: the flush, which writes no end marker, and the
// byte after an 0xFF that is no stuffed byte, which is consumed instead of being taken for a marker.
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
    // Entry 2s + m is probability state s with the more probable symbol m.
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
    // The buffer must hold all that is coded; it is never checked.
    void begin(void* buffer, std::size_t capacity) noexcept;
    void encode(int context, int bit) noexcept
    {
        encode(m_contexts[static_cast<std::size_t>(context)], static_cast<std::uint32_t>(bit));
    }
    // The same decision `count` times.
    void encodeRun(int context, int bit, std::size_t count) noexcept;
    // Flushes and returns the bytes written since begin().
    std::size_t end() noexcept;

    // How many bytes of the segment, followed by bytes of 0xFF, a decoder has taken when it has decoded
    // everything; it may be more than end() has written. Called after end().
    std::size_t decoderPosition() const noexcept;

private:
    inline void encode(const State*& context, std::uint32_t bit) noexcept;
    inline void renormalise() noexcept;
    void byteOut() noexcept;

    std::uint32_t C = 0;  // code register
    std::uint32_t A = 0;  // interval, in [0x8000, 0xFFFF] between decisions
    std::uint32_t CT = 0; // shifts left before the next byte moves
    std::int32_t B = 0;   // the byte held back, -1 for none
    std::array<const State*, numContexts> m_contexts{};
    std::uint64_t m_shifts = 0; // of all renormalisations, as many as the decoder makes
    std::uint8_t* m_start = nullptr;
    std::uint8_t* m_current = nullptr;
};

class MQDecoder : public MQBase
{
public:
    // What every decision changes. A loop holds it in a local, so that it stays in machine registers.
    //
    //   bit  63 .. 48   47 ..              0
    //   A    interval   0                        in [0x8000, 0xFFFF] between decisions
    //   C    code       bits taken ahead | 0
    struct Registers
    {
        std::uint64_t A = 0;
        std::uint64_t C = 0;
        std::uint32_t ahead = 0; // how many bits were taken ahead, up to 48
    };

    // Reads only [data, data + length). Past the end the decoder is fed ones for ever; an empty segment is
    // all ones.
    void begin(const void* data, std::size_t length) noexcept;
    void end() noexcept {}

    int decode(int context) noexcept { return static_cast<int>(decode(m_registers, context)); }

    Registers registers() const noexcept { return m_registers; }
    void setRegisters(const Registers& registers) noexcept { m_registers = registers; }
    // A decision with the registers in a local: without a branch on its outcome, which for noise would be
    // mispredicted every other time.
    inline std::uint32_t decode(Registers& registers, int context) noexcept;
    // The same for decisions that are nearly always the more probable symbol, which most often changes
    // nothing but the interval.
    inline std::uint32_t decodeSkewed(Registers& registers, int context) noexcept;

    // How many bytes of the segment had to be taken so far.
    std::size_t position() const noexcept;

private:
    // Qe << 16 | entry << 2 | the more probable symbol: all that a decision needs of its state.
    using Context = std::uint32_t;
    static constexpr std::uint32_t entryMask = 0x1FC;
    static constexpr int registerShift = 48; // of the 16 bits that the published registers compare
    // The context that follows, by the present one's entry (times 4) plus 0 when the interval stays, 1 after
    // the more probable symbol, 3 after the other.
    struct TransitionTable
    {
        std::array<Context, 4 * numStates> next;
    };
    static const TransitionTable transitions;
    static constexpr TransitionTable buildTransitions();

    // Shifts by more bits than were taken ahead, and takes more.
    Registers refill(Registers registers, std::uint32_t shift) noexcept;
    void takeAhead(Registers& registers) noexcept;

    Registers m_registers;
    std::array<Context, numContexts> m_contexts{};
    const std::uint8_t* m_start = nullptr;
    const std::uint8_t* m_current = nullptr; // behind the bytes that were taken, those ahead included
    const std::uint8_t* m_end = nullptr;
    std::uint32_t m_padding = 0; // bytes of ones that were taken past the end
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

// Decisions that confirm the more probable symbol only add up until the interval has shrunk to half.
inline void MQEncoder::encodeRun(int context, int bit, std::size_t count) noexcept
{
    const State*& entry = m_contexts[static_cast<std::size_t>(context)];
    while (count != 0) {
        if (static_cast<std::uint32_t>(bit) == entry->MPS) {
            const std::uint32_t room = (A - 0x8000) / entry->Qe;
            const auto steps = static_cast<std::uint32_t>(count < room ? count : room);
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

// All shifts up to the next byte at once: A is never 0, and its top bit is to become bit 15.
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
    // All ones when the lower part of the interval was chosen. It is the less probable one unless the parts
    // are inverted.
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
