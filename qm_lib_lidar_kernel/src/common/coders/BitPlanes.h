// Which bit planes of integers are MQ-coded, raw or zero.
//
//   plane   t  ...  r+1 | r  ...  l | l-1 ... 0
//           MQ coded    | raw bits  | zero
#pragma once

#include <cstdint>

namespace Quillmoran {

// The planes of a subblock. A header stores them as a code, which numbers the triples (top, bottom, raw top):
// top ascending, for each top bottom from 0 to top, for each bottom raw top from bottom - 1 to top. (0,0,-1)
// (0,0,0) (1,0,-1) (1,0,0) (1,0,1) (1,1,0) (1,1,1) (2,0,-1) ...
struct BitPlanes
{
    int top = 0;
    int bottom = 0;
    int rawTop = -1;

    static constexpr BitPlanes fromCode(std::uint32_t code)
    {
        std::uint32_t top = 0;
        while (codesBelow(top + 1) <= code)
            ++top;
        const std::uint32_t inTop = code - codesBelow(top);
        std::uint32_t bottom = 0;
        while (bottom < top && codesBelowBottom(top, bottom + 1) <= inTop)
            ++bottom;
        const auto low = static_cast<int>(bottom);
        return {static_cast<int>(top), low,
                low - 1 + static_cast<int>(inTop - codesBelowBottom(top, bottom))};
    }

    constexpr std::uint32_t toCode() const
    {
        const auto t = static_cast<std::uint32_t>(top);
        const auto b = static_cast<std::uint32_t>(bottom);
        return codesBelow(t) + codesBelowBottom(t, b) + static_cast<std::uint32_t>(rawTop - bottom + 1);
    }

private:
    // The codes of all top planes below `top`.
    static constexpr std::uint32_t codesBelow(std::uint32_t top) { return top * (top + 1) * (top + 5) / 6; }
    // Within one top plane, the codes of all bottom planes below `bottom`.
    static constexpr std::uint32_t codesBelowBottom(std::uint32_t top, std::uint32_t bottom)
    {
        return bottom * (2 * top + 5 - bottom) / 2;
    }
};

} // namespace Quillmoran
