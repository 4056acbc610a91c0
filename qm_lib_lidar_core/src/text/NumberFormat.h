// Formats numbers as decimal text, with exactly the characters of printf in the C locale. The text writer
// calls it for each field of each point, so that usual values are formatted by integer arithmetic.
//
// Each function writes to `out` without a terminating NUL and returns the end of the text, which is cut after
// maxFieldLength characters. It may overwrite all maxFieldLength characters.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

inline constexpr std::size_t maxFieldLength = 63;

char* formatUnsigned(char* out, std::uint64_t value) noexcept;
char* formatSigned(char* out, std::int64_t value) noexcept;
// "%.*f" with 1 to 15 decimals.
char* formatFixed(char* out, double value, int decimals) noexcept;
// "%.*g" with 1 to 18 significant digits.
char* formatGeneral(char* out, double value, int precision) noexcept;

} // namespace Quillmoran
