#include "text/FieldParse.h"

#include "text/NumberParse.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <type_traits>

namespace Quillmoran::FieldParse {

namespace {

bool isDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

bool isSign(char c) noexcept
{
    return c == '-' || c == '+';
}

bool endsField(char c) noexcept
{
    return c == '\0' || c == '#' || isSeparator(c);
}

template <class T>
const char* parseInteger(const char* text, const char*, void* samples, std::size_t index)
{
    const char* at = text + isSign(*text);
    std::uint64_t value = 0;
    for (; isDigit(*at); ++at)
        value = value * 10 + static_cast<std::uint64_t>(*at - '0');
    if (at == text)
        return nullptr;
    static_cast<T*>(samples)[index] = static_cast<T>(*text == '-' ? 0 - value : value);
    return at;
}

template <class T>
const char* parseFloat(const char* text, const char* end, void* samples, std::size_t index)
{
    double value = 0;
    const char* const after = parseDouble(text, end, value);
    if (after == text)
        return nullptr;
    static_cast<T*>(samples)[index] = static_cast<T>(value);
    return after;
}

template <class T>
bool storeInteger(std::uint64_t magnitude, bool isNegative, void* samples, std::size_t index) noexcept
{
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<T>::max());
    constexpr std::uint64_t largestNegative = std::is_signed_v<T> ? largest + 1 : 0;
    if (magnitude > (isNegative ? largestNegative : largest))
        return false;
    static_cast<T*>(samples)[index] = static_cast<T>(isNegative ? 0 - magnitude : magnitude);
    return true;
}

// An integer of any length, or a decimal whose fraction is 0.
[[gnu::noinline]] const char* parseUnusualInteger(const char* text, const char* end, std::uint64_t& magnitude)
{
    const char* const digits = text + isSign(*text);
    const auto whole = std::from_chars(digits, end, magnitude);
    if (whole.ec == std::errc() && endsField(*whole.ptr))
        return whole.ptr;
    constexpr double tooLarge = 9007199254740992.0; // 2^53, also the value of 2^53 + 1
    double value = 0;
    const char* const after = parseDouble(text, end, value);
    if (after == text || !endsField(*after) || std::trunc(value) != value || std::fabs(value) >= tooLarge)
        return nullptr;
    magnitude = static_cast<std::uint64_t>(std::fabs(value));
    return after;
}

template <class T>
const char* parseStrictInteger(const char* text, const char* end, void* samples, std::size_t index)
{
    constexpr std::ptrdiff_t safeDigits = 19; // 10^19 is below 2^64
    const char* const digits = text + isSign(*text);
    const char* at = digits;
    std::uint64_t magnitude = 0;
    for (; isDigit(*at); ++at)
        magnitude = magnitude * 10 + static_cast<std::uint64_t>(*at - '0');
    if (at == digits || at - digits > safeDigits || !endsField(*at))
        at = parseUnusualInteger(text, end, magnitude);
    return at && storeInteger<T>(magnitude, *text == '-', samples, index) ? at : nullptr;
}

// Whether the text is an integer that the double does not represent exactly.
[[gnu::noinline]] bool isRounded(const char* text, const char* after, double value) noexcept
{
    constexpr double tooLarge = 18446744073709551616.0; // 2^64
    std::uint64_t magnitude = 0;
    const auto whole = std::from_chars(text + isSign(*text), after, magnitude);
    if (whole.ptr != after)
        return false;
    return whole.ec != std::errc() || std::fabs(value) >= tooLarge ||
           static_cast<std::uint64_t>(std::fabs(value)) != magnitude;
}

template <class T>
const char* parseStrictFloat(const char* text, const char* end, void* samples, std::size_t index)
{
    constexpr double mayBeRounded = 9007199254740992.0; // 2^53, also the value of 2^53 + 1
    double value = 0;
    const char* const after = parseDouble(text, end, value);
    if (after == text || !endsField(*after))
        return nullptr;
    const auto sample = static_cast<T>(value);
    if (!(std::fabs(value) < mayBeRounded) && !std::isnan(value)) {
        const char first = text[isSign(*text)];
        const bool isInfinity = !isDigit(first) && first != '.';
        if ((std::isinf(sample) && !isInfinity) ||
            (sizeof(T) == sizeof(double) && isRounded(text, after, value)))
            return nullptr;
    }
    static_cast<T*>(samples)[index] = sample;
    return after;
}

template <class T>
std::string rangeOf()
{
    if constexpr (std::is_integral_v<T>)
        return std::to_string(std::numeric_limits<T>::min()) + " to " +
               std::to_string(std::numeric_limits<T>::max());
    else
        return DataTypeUtils::toString(sizeof(T) == 4 ? FLOAT32 : FLOAT64);
}

} // namespace

bool isSeparator(char c) noexcept
{
    return c == ',' || isWhiteSpace(c);
}

Parser get(DataType type, bool strict) noexcept
{
    Parser parser = nullptr;
    visitDataType(type, [&](auto sample) {
        using T = decltype(sample);
        if constexpr (std::is_floating_point_v<T>)
            parser = strict ? parseStrictFloat<T> : parseFloat<T>;
        else
            parser = strict ? parseStrictInteger<T> : parseInteger<T>;
    });
    return parser;
}

const char* skip(const char* text, const char*, void*, std::size_t)
{
    while (*text != '\0' && !isSeparator(*text))
        ++text;
    return text;
}

std::string explain(const char* text, const char* end, const ChannelInfo& channel)
{
    constexpr std::size_t longestShown = 40;
    const char* const after = std::find_if(text, end, endsField);
    std::string field(text, std::min(static_cast<std::size_t>(after - text), longestShown));
    if (field.size() < static_cast<std::size_t>(after - text))
        field += "...";
    const std::string name = channel.getName();
    double value = 0;
    if (parseDouble(text, end, value) != after)
        return "'" + field + "' is not a number (" + name + ')';
    if (!DataTypeUtils::isFloat(channel.getDataType()) && std::trunc(value) != value)
        return field + " is not an integer (" + name + ')';
    std::string range;
    visitDataType(channel.getDataType(), [&range](auto sample) { range = rangeOf<decltype(sample)>(); });
    return field + " does not fit " + name + " (" + range + ')';
}

} // namespace Quillmoran::FieldParse
