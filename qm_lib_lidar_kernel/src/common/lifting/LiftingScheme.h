// Which lifting steps decompose a channel into bands.
#pragma once

#include "common/coders/TransformUtils.h"

#include <cstddef>

namespace Quillmoran {

struct LiftingScheme
{
    TransformType code; // a transform's code is that of its coder plus this
    int order;          // of the steps: 0 (none), 1 or 3
    bool hasUpdate;     // low bands are smoothed; otherwise they hold samples of the channel itself
    const char* name;   // human-readable

    // Bits that the steps may add to a sample.
    constexpr int getHeadroom() const { return order == 0 ? 0 : order == 1 ? 3 : 6; }
    // Neighbours that a step reads on each side.
    constexpr std::size_t getPadding() const { return order == 3 ? 2 : 1; }
};

// No lifting comes first: of equally good transforms, the first is chosen for a file.
inline constexpr LiftingScheme liftingSchemes[] = {
    {10, 0, false, "no lifting"},         {1, 1, true, "order 1 lifting"},
    {3, 3, true, "order 3 lifting"},      {11, 1, false, "order 1 prediction"},
    {13, 3, false, "order 3 prediction"},
};

} // namespace Quillmoran
