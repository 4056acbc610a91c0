// What the parser offers beyond its basic syntax: double dashes, suggestions, examples, choices.
#include "cli/QMCmdLine.h"
#include "cli/QMCmdLineOptions.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <strings.h>
#include <utility>

namespace Quillmoran {

namespace {

// Without hyphens and case: "--gps-week" is "gpsWeek".
std::string simplified(const char* name)
{
    std::string result;
    for (; *name != '\0'; ++name)
        if (*name != '-')
            result += static_cast<char>(std::tolower(static_cast<unsigned char>(*name)));
    return result;
}

// The number of letters that must be inserted, removed, replaced or swapped with the next one (optimal string
// alignment).
std::size_t editDistance(const std::string& a, const std::string& b)
{
    std::vector<std::size_t> beforePrevious, previous(b.size() + 1), row(b.size() + 1);
    std::iota(previous.begin(), previous.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({previous[j] + 1, row[j - 1] + 1, previous[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], beforePrevious[j - 2] + 1);
        }
        beforePrevious = std::exchange(previous, row);
    }
    return previous[b.size()];
}

} // namespace

void QMCmdLine::setExamples(const char* synopsis, std::vector<Example> examples)
{
    m_synopsis = synopsis;
    m_examples = std::move(examples);
}

void QMCmdLine::setArgumentName(const char* name, const char* argumentName)
{
    if (Option* option = requireOption(name))
        option->argumentName = argumentName;
}

void QMCmdLine::setChoices(const char* name, std::vector<const char*> choices, bool isClosed)
{
    if (Option* option = requireOption(name)) {
        option->choices = std::move(choices);
        option->hasOtherValues = !isClosed;
    }
}

void QMCmdLine::setAlternative(const char* name, const char* other)
{
    Option* option = requireOption(name);
    const Option* alternative = requireOption(other);
    if (option != nullptr)
        option->alternative = alternative;
}

std::vector<QMCmdLine::OptionDescription> QMCmdLine::describeOptions() const
{
    std::vector<OptionDescription> descriptions;
    for (const auto& option : m_options)
        descriptions.push_back({option->shortName, option->longName, option->getSummary(),
                                dynamic_cast<const OptionFlag*>(option.get()) != nullptr,
                                dynamic_cast<const OptionStringArray*>(option.get()) != nullptr,
                                option->numArgs, option->argumentName, option->choices});
    return descriptions;
}

bool QMCmdLine::readSwitch(int& index)
{
    const char* const text = m_argv[index++] + 1;
    if (Option* option = findOption(text)) {
        option->setArg(index, m_argc, m_argv);
        return true;
    }
    if (!m_extendedSyntax || text[0] != '-')
        return false;
    const char* const equals = std::strchr(text, '=');
    Option* option = findExtended(equals != nullptr ? std::string(text + 1, equals) : text + 1);
    if (option == nullptr)
        return false;
    if (equals == nullptr) {
        option->setArg(index, m_argc, m_argv);
    } else if (dynamic_cast<OptionFlag*>(option) != nullptr) {
        usageError("option -%s has no value", option->getMessageName());
    } else {
        const char* const value = equals + 1;
        int only = 0;
        option->setArg(only, 1, &value);
    }
    return true;
}

// One letter needs a single dash: "-v" and "-V" differ.
QMCmdLine::Option* QMCmdLine::findExtended(const std::string& name) const
{
    if (name.size() < 2)
        return nullptr;
    if (Option* option = findOption(name.c_str()))
        return option;
    const std::string wanted = simplified(name.c_str());
    for (const auto& option : m_options)
        for (const char* other : {option->shortName, option->longName})
            if (other != nullptr && simplified(other) == wanted)
                return option.get();
    return nullptr;
}

std::string QMCmdLine::suggest(const char* unknownSwitch) const
{
    std::string wanted(unknownSwitch);
    wanted = simplified(wanted.substr(0, wanted.find('=')).c_str());
    // One letter of a short name, two of a longer one.
    std::size_t best = 1 + (wanted.size() > 4) + 1;
    const char* nearest = nullptr;
    for (const auto& option : m_options)
        for (const char* name : {option->shortName, option->longName}) {
            if (name == nullptr || std::max(std::strlen(name), wanted.size()) < 3)
                continue;
            const std::size_t distance = editDistance(wanted, simplified(name));
            if (distance < best) {
                best = distance;
                nearest = name;
            }
        }
    return nearest != nullptr ? nearest : "";
}

void QMCmdLine::showExamples() const
{
    std::printf("Usage: %s %s\n\n", m_appName, m_synopsis);
    std::size_t width = 0;
    for (const Example& example : m_examples)
        width = std::max(width, std::strlen(example.command));
    for (const Example& example : m_examples)
        std::printf("  %-*s   %s\n", static_cast<int>(width), example.command, example.effect);
}

const char* QMCmdLine::Option::findChoice(const char* argument) const
{
    for (const char* choice : choices)
        if (strcasecmp(choice, argument) == 0)
            return choice;
    if (!choices.empty() && !hasOtherValues && parser.m_strictNumbers) {
        std::string all;
        for (std::size_t i = 0; i < choices.size(); ++i)
            all += (i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + std::string(choices[i]);
        parser.usageError("bad value '%s' of option -%s, it is %s", argument, getMessageName(), all.c_str());
    }
    return argument;
}

void QMCmdLine::Option::showLine() const
{
    constexpr int descriptionColumn = 34;
    constexpr const char* dash = "-";
    std::string names = std::string("  ") + dash + shortName;
    if (longName != nullptr)
        names += std::string(", ") + dash + longName;
    names += getArgumentText();
    if (names.size() > descriptionColumn - 2)
        names += '\n' + std::string(descriptionColumn, ' ');
    else
        names.resize(descriptionColumn, ' ');
    std::printf("%s%s\n", names.c_str(), getSummary().c_str());
}

std::string QMCmdLine::Option::getSummary() const
{
    std::string text(description, std::strcspn(description, "\n"));
    text = text.substr(0, text.find(".  "));
    while (!text.empty() && (text.back() == '.' || text.back() == ':'))
        text.pop_back();
    return text;
}

} // namespace Quillmoran
