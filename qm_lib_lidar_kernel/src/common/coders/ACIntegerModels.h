// The models of integers that are coded symbol by symbol: the sign (or zero), the bit length of the
// magnitude, and its leading bits with one model per bit length. Further bits are raw.
#pragma once

#include "common/coders/ArithmeticCoder.h"

#include <array>
#include <cstdint>

namespace Quillmoran {

// The models of one subblock. Encoder and decoder use the same ones; their sizes are part of the format.
struct ACIntegerModels
{
    static constexpr std::uint32_t numLengths = 16;
    static constexpr std::uint32_t largestAlphabet = 128;
    static constexpr int modelledBits = 8; // leading bits of a magnitude with a model; the rest is raw
    static constexpr int rawBitsAtOnce = 8;

    enum Sign : std::uint32_t
    {
        NEGATIVE = 0,
        ZERO = 1,
        POSITIVE = 2
    };

    ACBase::DataModel sign;
    ACBase::DataModel length;
    ACBase::DataModel lowBits[numLengths]; // index: bit length - 1

    // In their initial state.
    ACIntegerModels();
    void reset() noexcept;

    // Two sets per thread, shared by its readers, since every subblock starts with fresh models: a set uses
    // about 10 kB, and there can be thousands of readers. Out of line, so that the thread's address is looked
    // up once per subblock.
    static std::array<ACIntegerModels, 2>& ofThread();
};

} // namespace Quillmoran
