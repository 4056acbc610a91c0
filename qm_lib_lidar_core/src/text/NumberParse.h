// Parses decimal numbers independently of the program's locale. The text reader uses it for fields of
// floating-point channels and for quantization values.
#pragma once

namespace Quillmoran {

// Parses what strtod parses in the C locale, except hexadecimal numbers: skips leading white space; a number
// that is too large is infinite. `end` is the terminating NUL. Returns the end of the number, or `text` and
// leaves the value unchanged if there is none.
const char* parseDouble(const char* text, const char* end, double& value) noexcept;

// In the C locale.
constexpr bool isWhiteSpace(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace Quillmoran
