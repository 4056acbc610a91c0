#include "common/coders/ACIntegerModels.h"

namespace Quillmoran {

ACIntegerModels::ACIntegerModels()
{
    sign.setAlphabet(3);
    length.setAlphabet(numLengths);
    for (std::uint32_t i = 0; i < numLengths; ++i)
        lowBits[i].setAlphabet(i < 6 ? 2u << i : largestAlphabet);
}

void ACIntegerModels::reset() noexcept
{
    static const ACIntegerModels fresh;
    sign.assign(fresh.sign);
    length.assign(fresh.length);
    for (std::uint32_t i = 0; i < numLengths; ++i)
        lowBits[i].assign(fresh.lowBits[i]);
}

std::array<ACIntegerModels, 2>& ACIntegerModels::ofThread()
{
    thread_local std::array<ACIntegerModels, 2> models;
    return models;
}

} // namespace Quillmoran
