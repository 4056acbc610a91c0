#include "text/NumberParse.h"

#include <charconv>
#include <clocale>
#include <cstdlib>
#include <system_error>

namespace Quillmoran {

namespace {

// For numbers out of the range of a double, for which from_chars returns no value, and for standard libraries
// whose from_chars does not support floating point.
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
    // from_chars accepts only a minus sign.
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
    // strtod accepts hexadecimal numbers; as decimal text they end after the 0.
    if (unsignedPart[0] == '0' && (unsignedPart[1] == 'x' || unsignedPart[1] == 'X')) {
        value = *number == '-' ? -0.0 : 0.0;
        return unsignedPart + 1;
    }
#endif
    const char* const parsed = parseByLibrary(number, value);
    return parsed == number ? text : parsed;
}

} // namespace Quillmoran
