#include "cli/QMCmdLine.h"
#include "cli/QMCmdLineOptions.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <strings.h>

namespace Quillmoran {

namespace {

// Compares up to the length of the shorter text, ignoring case: abbreviations of the keyword match, longer
// words match, and an empty text always matches.
bool matchesKeyword(const char* text, const char* keyword)
{
    return strncasecmp(text, keyword, std::min(std::strlen(text), std::strlen(keyword))) == 0;
}

} // namespace

// Null for an unknown name or another kind of option, which are configuration errors.
template <class OptionKind>
const OptionKind* QMCmdLine::findOfKind(const char* name) const
{
    const Option* option = findOption(name);
    if (option == nullptr) {
        configError("switch name -%s invalid", name != nullptr ? name : "");
        return nullptr;
    }
    const auto* typed = dynamic_cast<const OptionKind*>(option);
    if (typed == nullptr)
        configError("wrong type used for getting value of option %s", option->getMessageName());
    return typed;
}

template <class OptionKind>
auto QMCmdLine::getSingle(const char* name) const
{
    const OptionKind* option = findOfKind<OptionKind>(name);
    const std::size_t count = option != nullptr ? option->values.size() : 0;
    if (count > 1)
        configError("got more than one arg from %s option %s", option->getTypeWord(),
                    option->getMessageName());
    return count == 1 ? option->values.front() : typename OptionKind::Value{};
}

bool QMCmdLine::isPresent(const char* name) const
{
    const Option* option = findOfKind<Option>(name);
    return option != nullptr && option->isPresent;
}

bool QMCmdLine::getFlag(const char* name) const
{
    const Option* option = findOfKind<OptionFlag>(name);
    return option != nullptr && option->isPresent;
}

bool QMCmdLine::getBool(const char* name) const
{
    return getSingle<OptionBool>(name);
}

template <class OptionKind>
auto QMCmdLine::getArray(const char* name, std::size_t& count) const
{
    const OptionKind* option = findOfKind<OptionKind>(name);
    count = option != nullptr ? option->values.size() : 0;
    return count != 0 ? option->values.data() : nullptr;
}

const char* QMCmdLine::getString(const char* name) const
{
    return getSingle<OptionStringArray>(name);
}

int QMCmdLine::getSint(const char* name) const
{
    return getSingle<OptionSintArray>(name);
}

unsigned int QMCmdLine::getUint(const char* name) const
{
    return getSingle<OptionUintArray>(name);
}

double QMCmdLine::getFloat(const char* name) const
{
    return getSingle<OptionFloatArray>(name);
}

const char* const* QMCmdLine::getStringArray(const char* name, std::size_t& count) const
{
    return getArray<OptionStringArray>(name, count);
}

const int* QMCmdLine::getSintArray(const char* name, std::size_t& count) const
{
    return getArray<OptionSintArray>(name, count);
}

const unsigned int* QMCmdLine::getUintArray(const char* name, std::size_t& count) const
{
    return getArray<OptionUintArray>(name, count);
}

const double* QMCmdLine::getFloatArray(const char* name) const
{
    std::size_t count = 0;
    return getFloatArray(name, count);
}

const double* QMCmdLine::getFloatArray(const char* name, std::size_t& count) const
{
    return getArray<OptionFloatArray>(name, count);
}

bool QMCmdLine::toBool(const char* text) const
{
    // Only the first letter counts, so "true", "T" and "tomorrow" are all accepted, and so is an empty text.
    if (matchesKeyword(text, "t"))
        return true;
    if (!matchesKeyword(text, "f"))
        usageError("expected bool argument (got %s)", text);
    return false;
}

int QMCmdLine::toSint(const char* text)
{
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

unsigned int QMCmdLine::toUint(const char* text)
{
    return static_cast<unsigned int>(std::strtoul(text, nullptr, 10));
}

double QMCmdLine::toFloat(const char* text)
{
    // A sign alone means an infinity: no limit on this side.
    if (matchesKeyword(text, "+INF") || matchesKeyword(text, "INF"))
        return std::numeric_limits<double>::infinity();
    if (matchesKeyword(text, "-INF"))
        return -std::numeric_limits<double>::infinity();
    return std::strtod(text, nullptr);
}

} // namespace Quillmoran
