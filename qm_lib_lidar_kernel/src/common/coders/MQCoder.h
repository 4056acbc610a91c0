// The MQ coder: binary adaptive arithmetic coding as in JPEG 2000 and JBIG2. It codes the decisions of
// integer coefficients, bit plane by bit plane.
//
// A decision is coded in one of 64 contexts. The state of a context is an entry of one shared table, which
// has two entries per probability state, one for each value of the more probable symbol. A context is a word
// with the fields of its entry that a decision needs. Neither side allocates or fails: a damaged segment
// decodes to arbitrary decisions. An object is used by one thread at a time.
//
// This coder differs from the published one in two places: the flush writes no end marker, and a byte after
// an 0xFF that is not a stuffed byte is consumed and not treated as a marker.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

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

    // Qe << 16 | entry << 2 | more probable symbol.
    using Context = std::uint32_t;
    static constexpr std::uint32_t entryMask = 0x1FC;
    // The next context. Index: entry of the current context * 4, plus 0 if the interval is not renormalised,
    // 1 after the more probable symbol, 3 after the less probable one.
    struct TransitionTable
    {
        std::array<Context, 4 * numStates> next;
    };
    static const TransitionTable transitions;
    static constexpr TransitionTable buildTransitions();
};

class MQEncoder : public MQBase
{
public:
    // A run of zeros in one context, followed by a decision in any context: run << 8 | context << 1 | bit.
    using Step = std::uint32_t;
    static constexpr std::size_t maxRun = 0xFFFF;
    static constexpr Step makeStep(std::size_t run, int context, int bit) noexcept
    {
        return static_cast<Step>(run << 8) | static_cast<Step>(2 * context + bit);
    }

    // The buffer must be large enough for the coded bytes; the size is not checked.
    void begin(void* buffer, std::size_t capacity) noexcept;
    // The bytes written so far, and another buffer to which they were copied.
    std::size_t size() const noexcept { return static_cast<std::size_t>(m_registers.current - m_start); }
    void moveTo(void* buffer) noexcept
    {
        m_registers.current = static_cast<std::uint8_t*>(buffer) + size();
        m_start = static_cast<std::uint8_t*>(buffer);
    }
    // The runs are in `runContext`.
    void encode(int runContext, std::span<const Step> steps) noexcept;
    void encode(int context, int bit) noexcept
    {
        const Step step = makeStep(0, context, bit);
        encode(context, {&step, 1});
    }
    // Flushes and returns the bytes written since begin().
    std::size_t end() noexcept;

    // The number of bits of all decisions so far.
    std::uint64_t codedBits() const noexcept { return m_registers.capacity - m_registers.CT; }
    // The number of bytes that a decoder has read after the last decision, if bytes of 0xFF follow the
    // segment. It can be larger than the result of end(). Called after end().
    std::size_t decoderPosition() const noexcept;

private:
    // What decisions change. Loops copy it to a local variable, so that it stays in machine registers.
    struct Registers
    {
        std::uint32_t A = 0;        // interval, in [0x8000, 0xFFFF] between decisions
        std::uint32_t C = 0;        // code register
        std::uint32_t CT = 0;       // remaining shifts before the next byte is output
        std::int32_t B = 0;         // the pending byte, -1 for none
        std::uint64_t capacity = 0; // shifts up to the next byte that is output, since begin()
        std::uint8_t* current = nullptr;
    };

    static inline void byteOut(Registers& registers) noexcept;
    inline void encode(Registers& registers, std::size_t context, std::uint32_t bit) noexcept;
    inline void encodeZeros(Registers& registers, std::size_t context, std::uint32_t count) noexcept;

    Registers m_registers;
    std::array<Context, numContexts> m_contexts{};
    std::uint64_t m_shifts = 0; // of all renormalisations; the decoder makes the same number
    std::uint8_t* m_start = nullptr;
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
    static constexpr int registerShift = 48; // position of the 16 bits that the published registers compare

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
