// Which lifting steps decompose a channel into bands.
#pragma once

#include "common/coders/TransformUtils.h"

#include <cstddef>

namespace Quillmoran {

struct LiftingScheme
{
    const char* name;   // human-readable
    int order;          // of the steps: 0 (none), 1 or 3
    TransformType code; // a transform's code is that of its coder plus this
    bool hasUpdate;     // low bands are smoothed; otherwise they hold samples of the channel itself

    // Bits that the steps may add to a sample.
    constexpr int getHeadroom() const { return order == 0 ? 0 : order == 1 ? 3 : 6; }
    // Neighbours that a step reads on each side.
    constexpr std::size_t getPadding() const { return order == 3 ? 2 : 1; }
};

// No lifting comes first: of equally good transforms, the first is chosen for a file.
inline constexpr LiftingScheme liftingSchemes[] = {
    {"no lifting", 0, 10, false},         {"order 1 lifting", 1, 1, true},
    {"order 3 lifting", 3, 3, true},      {"order 1 prediction", 1, 11, false},
    {"order 3 prediction", 3, 13, false},
};

} // namespace Quillmoran
