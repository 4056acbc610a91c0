// Sums of positions and lengths that come from a file.
#pragma once

#include <cstdint>

namespace Quillmoran {

// The sum, limited to the range of the type. No file has bytes there, so that reads at that position are
// empty.
inline std::int64_t saturatingAdd(std::int64_t a, std::int64_t b) noexcept
{
    std::int64_t sum;
    if (!__builtin_add_overflow(a, b, &sum))
        return sum;
    return a < 0 ? INT64_MIN : INT64_MAX;
}

} // namespace Quillmoran
