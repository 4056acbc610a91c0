#include "cli/QMCmdLineOptions.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace Quillmoran {

namespace {

const char* boolText(bool value)
{
    return value ? "true" : "false";
}

void printValue(const char* value)
{
    std::printf(" %s", value);
}

void printValue(int value)
{
    std::printf(" %d", value);
}

void printValue(unsigned int value)
{
    std::printf(" %u", value);
}

void printValue(double value)
{
    std::printf(" %g", value);
}

template <class Integer>
bool isInteger(const char* text)
{
    const char* const end = text + std::strlen(text);
    Integer value = 0;
    const auto [rest, error] = std::from_chars(text + (*text == '+'), end, value);
    return error == std::errc() && rest == end && std::strncmp(text, "+-", 2) != 0;
}

} // namespace

QMCmdLine::Option::Option(const QMCmdLine& parser, const Declaration& declaration)
    : m_parser(parser),
      m_shortName(declaration.shortName),
      m_longName(declaration.longName),
      m_isRequired(declaration.isRequired),
      m_description(declaration.description)
{
    if (m_shortName == nullptr) {
        m_shortName = "";
        m_parser.configError("no option name set (Option ctor)");
    }
    if (m_description == nullptr) {
        m_description = "";
        m_parser.configError("no description set (Option ctor)");
    }
}

QMCmdLine::Option::~Option() = default;

bool QMCmdLine::Option::hasName(const char* name) const
{
    return std::strcmp(m_shortName, name) == 0 ||
           (m_longName != nullptr && std::strcmp(m_longName, name) == 0);
}

bool QMCmdLine::Option::hasArgs(int wanted, int& index, int argc) const
{
    if (wanted <= argc - index)
        return true;
    // The remaining arguments belong to this option; reading them as others would only cause more errors.
    index = argc;
    m_parser.usageError("not enough arguments for option -%s", getMessageName());
    return false;
}

void QMCmdLine::Option::showLongUsage() const
{
    const char* dash = m_isExtra ? "" : "-";
    std::printf("\n  %s%s", dash, m_shortName);
    if (m_longName != nullptr)
        std::printf(" or %s%s", dash, m_longName);
    showArgMessage();
    std::printf("\n");
    if (m_isRequired)
        std::printf("  [required]\n");
    std::printf("  %s\n", m_description);
}

void QMCmdLine::Option::dump() const
{
    std::printf("\n---------------------------------------------\n");
    std::printf("shortName: %s\n", m_shortName);
    std::printf("longName: %s\n", m_longName != nullptr ? m_longName : "(none)");
    std::printf("description: %s\n", m_description);
    std::printf("isRequired: %s\n", boolText(m_isRequired));
    std::printf("isPresent: %s\n", boolText(m_isPresent));
    dumpDerived();
}

void QMCmdLine::OptionFlag::setArg(int&, int, const char* const*)
{
    m_value = true;
    setPresent();
}

void QMCmdLine::OptionFlag::dumpDerived() const
{
    std::printf("type: FLAG\nvalue: %s\n", boolText(m_value));
}

void QMCmdLine::OptionFlag::showArgMessage() const
{}

void QMCmdLine::OptionBool::setArg(int& index, int argc, const char* const* argv)
{
    if (!hasArgs(1, index, argc))
        return;
    m_value = getParser().toBool(argv[index++]);
    setPresent();
}

void QMCmdLine::OptionBool::dumpDerived() const
{
    std::printf("type: BOOL\nvalue: %s\n", boolText(m_value));
}

void QMCmdLine::OptionBool::showArgMessage() const
{
    std::printf(" BOOL");
}

template <class T>
QMCmdLine::OptionArray<T>::OptionArray(const QMCmdLine& parser, const Declaration& declaration, int numArgs)
    : Option(parser, declaration), m_numArgs(numArgs)
{}

template <class T>
void QMCmdLine::OptionArray<T>::setArg(int& index, int argc, const char* const* argv)
{
    int wanted = m_numArgs;
    if (m_numArgs < 0)
        wanted = 1;
    else if (m_numArgs == 0)
        wanted = argc - index;
    if (!hasArgs(wanted, index, argc))
        return;

    if (m_numArgs >= 0)
        m_values.clear();
    for (const int end = index + wanted; index < end; ++index) {
        if (hasStrictNumbers() && !accepts(argv[index]))
            getParser().usageError("bad value '%s' of option -%s", argv[index], getMessageName());
        m_values.push_back(convert(argv[index]));
    }
    setPresent();
}

template <class T>
void QMCmdLine::OptionArray<T>::dumpDerived() const
{
    std::printf("type: %s\nnumArgs: %d\nvalues:", getTypeWord(), m_numArgs);
    for (const T& value : m_values)
        printValue(value);
    std::printf("\n");
}

template <class T>
void QMCmdLine::OptionArray<T>::showArgMessage() const
{
    const char* word = getTypeWord();
    if (m_numArgs < 0)
        std::printf(" %s*", word);
    else if (m_numArgs == 0)
        std::printf(" %ss...", word);
    else if (m_numArgs == 1)
        std::printf(" %s", word);
    else
        for (int i = 0; i < m_numArgs; ++i)
            std::printf(" %s%d", word, i);
}

bool QMCmdLine::OptionSintArray::accepts(const char* text) const
{
    return isInteger<int>(text);
}

bool QMCmdLine::OptionUintArray::accepts(const char* text) const
{
    return isInteger<unsigned int>(text);
}

bool QMCmdLine::OptionFloatArray::accepts(const char* text) const
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

template class QMCmdLine::OptionArray<const char*>;
template class QMCmdLine::OptionArray<int>;
template class QMCmdLine::OptionArray<unsigned int>;
template class QMCmdLine::OptionArray<double>;

} // namespace Quillmoran
