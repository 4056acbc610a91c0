#include "common/ACIntegerModels.h"

namespace Quillmoran {

void ACIntegerModels::reset()
{
    sign.setAlphabet(3);
    length.setAlphabet(numLengths);
    for (std::uint32_t i = 0; i < numLengths; ++i)
        lowBits[i].setAlphabet(i < 6 ? 2u << i : largestAlphabet);
}

ACIntegerModels& ACIntegerModels::ofThread()
{
    thread_local ACIntegerModels models;
    return models;
}

} // namespace Quillmoran
