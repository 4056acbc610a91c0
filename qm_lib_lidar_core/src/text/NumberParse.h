// Decimal text as a double, independent of the program's locale. Used by the text reader for each field of a
// floating-point channel, and for quantization values.
#pragma once

namespace Quillmoran {

// Reads what strtod reads in the C locale, hexadecimal numbers aside: leading white space is skipped, too
// large a number is infinite. `end` is the terminating NUL. Returns the end of the number, or `text` when
// there is none; the value is untouched then.
const char* parseDouble(const char* text, const char* end, double& value) noexcept;

// In the C locale, whatever the program's own is.
constexpr bool isWhiteSpace(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace Quillmoran
