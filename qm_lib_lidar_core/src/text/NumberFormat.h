// Numbers as decimal text, with exactly the bytes that printf gives in the C locale, for every double. Used
// by the text writer for each field of each point, so the usual values take a path of integer arithmetic
// only.
//
// Each function writes at `out` without a terminating NUL and returns the end of the text, which is at most
// maxFieldLength characters; what is longer is cut. The rest of those characters may be overwritten, too.
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
