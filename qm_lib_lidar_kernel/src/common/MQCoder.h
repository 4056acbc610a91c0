// The MQ coder: binary adaptive arithmetic coding as in JPEG 2000 and JBIG2. It codes the decisions of
// integer coefficients, bit plane by bit plane.
//
// A decision is coded in one of 64 contexts. Each context points at an entry of one shared state table; the
// more probable symbol is folded into the table (two entries per probability state), so a decision needs no
// look-up by index and a context no symbol of its own. Neither side allocates or fails: a damaged segment
// decodes to some decisions. One object is used by one thread at a time.
//
// This coder differs from the published one in two places: the flush, which writes no end marker, and the
// byte after an 0xFF that is no stuffed byte, which is consumed instead of being taken for a marker.
#pragma once

#include "platform/Export.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Quillmoran {

class QM_API MQBase
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
    MQBase() { resetContexts(); }
    void resetContexts() noexcept { m_contexts.fill(table.entries); }

    std::uint32_t C = 0;  // code register
    std::uint32_t A = 0;  // interval, in [0x8000, 0xFFFF] between decisions
    std::uint32_t CT = 0; // shifts left before the next byte moves
    std::int32_t B = 0;   // encoder: the byte held back, -1 for none; decoder: the last byte taken
    std::array<const State*, numContexts> m_contexts;
};

class QM_API MQEncoder : public MQBase
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

    std::uint64_t m_shifts = 0; // of all renormalisations, as many as the decoder makes
    std::uint8_t* m_start = nullptr;
    std::uint8_t* m_current = nullptr;
};

class QM_API MQDecoder : public MQBase
{
public:
    // Reads only [data, data + length). Past the end the decoder is fed ones for ever; an empty segment is
    // all ones.
    void begin(const void* data, std::size_t length) noexcept;
    void end() noexcept {}

    int decode(int context) noexcept
    {
        return static_cast<int>(decode(m_contexts[static_cast<std::size_t>(context)]));
    }

    // How many bytes of the segment have been taken so far.
    std::size_t position() const noexcept { return static_cast<std::size_t>(m_current - m_start); }

private:
    inline std::uint32_t decode(const State*& context) noexcept;
    inline void renormalise() noexcept;
    inline void byteIn() noexcept;

    const std::uint8_t* m_start = nullptr;
    const std::uint8_t* m_current = nullptr;
    const std::uint8_t* m_end = nullptr;
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

inline std::uint32_t MQDecoder::decode(const State*& context) noexcept
{
    const State& state = *context;
    const std::uint32_t Qe = state.Qe;
    A -= Qe;
    std::uint32_t decision = state.MPS;
    if ((C >> 16) < Qe) {
        // The lower part was chosen; it is the less probable one unless the interval is inverted.
        if (A < Qe) {
            context = state.nextMPS;
        } else {
            decision ^= 1;
            context = state.nextLPS;
        }
        A = Qe;
        renormalise();
        return decision;
    }
    C -= Qe << 16;
    if (A & 0x8000)
        return decision;
    if (A < Qe) {
        decision ^= 1;
        context = state.nextLPS;
    } else {
        context = state.nextMPS;
    }
    renormalise();
    return decision;
}

// All shifts up to the next byte at once: A is never 0, and its top bit is to become bit 15.
inline void MQDecoder::renormalise() noexcept
{
    auto shift = static_cast<std::uint32_t>(__builtin_clz(A)) - 16;
    while (shift > CT) {
        A <<= CT;
        C <<= CT;
        shift -= CT;
        byteIn();
    }
    A <<= shift;
    C <<= shift;
    CT -= shift;
}

inline void MQDecoder::byteIn() noexcept
{
    CT = 8;
    if (m_current == m_end) {
        C += 0xFF00;
        return;
    }
    const std::uint32_t byte = *m_current++;
    if (B != 0xFF) {
        C += byte << 8;
    } else if (byte < 0x90) {
        C += byte << 9; // a stuffed byte carries seven bits
        CT = 7;
    } else {
        C += 0xFF00;
    }
    B = static_cast<std::int32_t>(byte);
}

} // namespace Quillmoran
