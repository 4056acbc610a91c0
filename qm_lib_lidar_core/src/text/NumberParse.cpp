#include "text/NumberParse.h"

#include <charconv>
#include <clocale>
#include <cstdlib>
#include <system_error>

namespace Quillmoran {

namespace {

// The library's own conversion, for numbers beyond the range of a double (from_chars leaves the value alone
// and does not tell too large from too small) and where from_chars knows no floating point.
[[gnu::noinline]] const char* parseByLibrary(const char* text, double& value) noexcept
{
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = nullptr;
    const double parsed = strtod_l(text, &end, plain);
    if (end != text)
        value = parsed;
    return end;
}

} // namespace

const char* parseDouble(const char* text, const char* end, double& value) noexcept
{
    const char* number = text;
    while (isWhiteSpace(*number))
        ++number;
    // from_chars takes a minus only.
    const char* unsignedPart = number + (*number == '+' || *number == '-');
    if (*unsignedPart == '+' || *unsignedPart == '-')
        return text;
    if (*number == '+')
        ++number;
#if defined(__cpp_lib_to_chars) && __cpp_lib_to_chars >= 201611L
    const std::from_chars_result result = std::from_chars(number, end, value);
    if (result.ec == std::errc())
        return result.ptr;
    if (result.ec == std::errc::invalid_argument)
        return text;
#else
    static_cast<void>(end);
    // strtod would take a hexadecimal number; decimal text ends behind the 0.
    if (unsignedPart[0] == '0' && (unsignedPart[1] == 'x' || unsignedPart[1] == 'X')) {
        value = *number == '-' ? -0.0 : 0.0;
        return unsignedPart + 1;
    }
#endif
    const char* const parsed = parseByLibrary(number, value);
    return parsed == number ? text : parsed;
}

} // namespace Quillmoran
