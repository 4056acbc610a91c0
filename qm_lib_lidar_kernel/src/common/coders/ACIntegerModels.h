// The models with which integers are coded symbol by symbol: the sign (or zero), the bit length of the
// magnitude, its leading bits with a model that belongs to the length; further bits are raw.
#pragma once

#include "common/coders/ArithmeticCoder.h"

#include <array>
#include <cstdint>

namespace Quillmoran {

// The models of one subblock, the same on both sides. The sizes are part of the format.
struct ACIntegerModels
{
    static constexpr std::uint32_t numLengths = 16;
    static constexpr std::uint32_t largestAlphabet = 128;
    static constexpr int modelledBits = 8; // leading bits of a magnitude that have a model; the rest is raw
    static constexpr int rawBitsAtOnce = 8;

    enum Sign : std::uint32_t
    {
        NEGATIVE = 0,
        ZERO = 1,
        POSITIVE = 2
    };

    ACBase::DataModel sign;
    ACBase::DataModel length;
    ACBase::DataModel lowBits[numLengths]; // by the bit length less one

    // In their first state.
    ACIntegerModels();
    void reset() noexcept;

    // Two sets of the thread's own. They serve all its readers in turn, since every subblock begins with
    // fresh models: a set has some 10 kB, and there can be thousands of readers. Out of line, so that a loop
    // over samples asks for them once.
    static std::array<ACIntegerModels, 2>& ofThread();
};

} // namespace Quillmoran
