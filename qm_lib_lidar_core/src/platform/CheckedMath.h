// Sums of positions and lengths that come from a file.
#pragma once

#include <cstdint>

namespace Quillmoran {

// Stops at the ends of the range: no file reaches that far, so such a position reads as one past the end.
inline std::int64_t saturatingAdd(std::int64_t a, std::int64_t b) noexcept
{
    std::int64_t sum;
    if (!__builtin_add_overflow(a, b, &sum))
        return sum;
    return a < 0 ? INT64_MIN : INT64_MAX;
}

} // namespace Quillmoran
