// The MQ coder contexts of integers that are coded bit plane by bit plane.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Quillmoran {

// The states of a coefficient; they are digits of the context numbers.
enum CoefficientState : std::uint8_t
{
    POSITIVE = 0,
    INSIGNIFICANT = 1,
    NEGATIVE = 2
};

inline constexpr int signContexts = 9;        // 3 * left + right
inline constexpr int refinementContexts = 18; // 6 * left + 3 if negative + right

// The context of a coefficient's first decision in a plane. Index: 9 * state of the left neighbour + 3 * own
// state + state of the right neighbour. 0 to 8: whether the coefficient becomes significant; 18 to 35: the
// next bit of a significant one.
inline constexpr auto firstContexts = [] {
    std::array<std::uint8_t, 27> contexts{};
    for (int left = 0; left < 3; ++left) {
        for (int own = 0; own < 3; ++own) {
            for (int right = 0; right < 3; ++right) {
                const int significance = 3 * left + right;
                const int refinement = refinementContexts + 6 * left + (own == NEGATIVE ? 3 : 0) + right;
                contexts[static_cast<std::size_t>(9 * left + 3 * own + right)] =
                    static_cast<std::uint8_t>(own == INSIGNIFICANT ? significance : refinement);
            }
        }
    }
    return contexts;
}();

} // namespace Quillmoran
