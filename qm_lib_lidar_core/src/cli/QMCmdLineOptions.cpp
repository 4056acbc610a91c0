#include "cli/QMCmdLineOptions.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <strings.h>
#include <type_traits>

namespace Quillmoran {

namespace {

const char* boolText(bool value)
{
    return value ? "true" : "false";
}

template <class T>
T convert([[maybe_unused]] const QMCmdLine& parser, const char* text)
{
    if constexpr (std::is_same_v<T, bool>)
        return parser.toBool(text);
    else if constexpr (std::is_same_v<T, int>)
        return QMCmdLine::toSint(text);
    else if constexpr (std::is_same_v<T, unsigned int>)
        return QMCmdLine::toUint(text);
    else if constexpr (std::is_same_v<T, double>)
        return QMCmdLine::toFloat(text);
    else
        return text;
}

template <class Integer>
bool isInteger(const char* text)
{
    const char* const end = text + std::strlen(text);
    Integer value = 0;
    const auto [rest, error] = std::from_chars(text + (*text == '+'), end, value);
    return error == std::errc() && rest == end && std::strncmp(text, "+-", 2) != 0;
}

bool isFloat(const char* text)
{
    for (const char* infinity : {"inf", "+inf", "-inf"})
        if (strcasecmp(text, infinity) == 0)
            return true;
    // strtod() also reads hexadecimal numbers, spelled-out infinities and NaNs, and skips white space.
    if (text[std::strspn(text, "0123456789+-.eE")] != '\0')
        return false;
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(value);
}

// Whether the whole text is a number of this type; true for types that are not numbers.
template <class T>
bool isNumber([[maybe_unused]] const char* text)
{
    if constexpr (std::is_same_v<T, double>)
        return isFloat(text);
    else if constexpr (std::is_same_v<T, int> || std::is_same_v<T, unsigned int>)
        return isInteger<T>(text);
    else
        return true;
}

} // namespace

QMCmdLine::Option::Option(const QMCmdLine& owner, const Declaration& declaration)
    : Declaration(declaration), parser(owner)
{
    if (shortName == nullptr) {
        shortName = "";
        parser.configError("no option name set (Option ctor)");
    }
    if (description == nullptr) {
        description = "";
        parser.configError("no description set (Option ctor)");
    }
}

bool QMCmdLine::Option::hasName(const char* name) const
{
    return std::strcmp(shortName, name) == 0 || (longName != nullptr && std::strcmp(longName, name) == 0);
}

void QMCmdLine::Option::showLongUsage() const
{
    const char* dash = isExtra() ? "" : "-";
    std::printf("\n  %s%s", dash, shortName);
    if (longName != nullptr)
        std::printf(" or %s%s", dash, longName);
    std::printf("%s\n%s  %s\n", getArgumentText().c_str(), isRequired ? "  [required]\n" : "", description);
}

void QMCmdLine::Option::dump() const
{
    std::printf("\n---------------------------------------------\n");
    std::printf("shortName: %s\nlongName: %s\n", shortName, longName != nullptr ? longName : "(none)");
    std::printf("description: %s\n", description);
    std::printf("isRequired: %s\nisPresent: %s\n", boolText(isRequired), boolText(isPresent));
    dumpDerived();
}

void QMCmdLine::OptionFlag::dumpDerived() const
{
    std::printf("type: FLAG\nvalue: %s\n", boolText(isPresent));
}

template <class T>
const char* QMCmdLine::OptionArray<T>::getTypeWord()
{
    if constexpr (std::is_same_v<T, bool>)
        return "BOOL";
    else if constexpr (std::is_same_v<T, int>)
        return "SIGNED-INT";
    else if constexpr (std::is_same_v<T, unsigned int>)
        return "UNSIGNED-INT";
    else if constexpr (std::is_same_v<T, double>)
        return "FLOAT";
    else
        return "STRING";
}

template <class T>
void QMCmdLine::OptionArray<T>::setArg(int& index, int argc, const char* const* argv)
{
    const int left = argc - index;
    const int wanted = numArgs < 0 ? 1 : numArgs == 0 ? left : numArgs;
    if (wanted > left) {
        // The remaining arguments belong to this option; reading them as others would only cause more errors.
        index = argc;
        parser.usageError("not enough arguments for option -%s", getMessageName());
        return;
    }
    if (numArgs >= 0)
        values.clear();
    for (const int end = index + wanted; index < end; ++index) {
        if (parser.m_strictNumbers && !isNumber<T>(argv[index]))
            parser.usageError("bad value '%s' of option -%s", argv[index], getMessageName());
        if constexpr (std::is_same_v<T, const char*>)
            values.push_back(findChoice(argv[index]));
        else
            values.push_back(convert<T>(parser, argv[index]));
    }
    isPresent = true;
}

template <class T>
void QMCmdLine::OptionArray<T>::dumpDerived() const
{
    std::ostringstream texts;
    for (const auto value : values)
        texts << ' ' << value;
    std::printf("type: %s\nnumArgs: %d\nvalues:%s\n", getTypeWord(), numArgs, texts.str().c_str());
}

template <class T>
std::string QMCmdLine::OptionArray<T>::getArgumentText() const
{
    const std::string word = std::string(" ") + (argumentName != nullptr ? argumentName : getTypeWord());
    if (numArgs < 2)
        return word + (numArgs == 0 ? "s..." : numArgs < 0 && argumentName == nullptr ? "*" : "");
    std::string text = argumentName != nullptr ? word : "";
    for (int i = 0; i < numArgs && argumentName == nullptr; ++i)
        text += word + std::to_string(i);
    return text;
}

template struct QMCmdLine::OptionArray<bool>;
template struct QMCmdLine::OptionArray<const char*>;
template struct QMCmdLine::OptionArray<int>;
template struct QMCmdLine::OptionArray<unsigned int>;
template struct QMCmdLine::OptionArray<double>;

} // namespace Quillmoran
