// The kinds of options of QMCmdLine. An option has its names, its part of the usage texts and the values
// converted from its arguments. Only the parser uses these types.
#pragma once

#include "cli/QMCmdLine.h"

namespace Quillmoran {

// The properties that an option is declared with.
struct QMCmdLine::Declaration
{
    const char* shortName;
    const char* longName; // may be null
    const char* description;
    bool isRequired;
    int numArgs; // as in QMCmdLine::addStringArray
};

struct QMCmdLine::Option : Declaration
{
    // A missing name or description is a configuration error and is replaced by an empty text.
    Option(const QMCmdLine& owner, const Declaration& declaration);
    virtual ~Option() = default;
    Option(const Option&) = delete;
    Option& operator=(const Option&) = delete;

    // Reads the arguments of one occurrence from argv[index] on and advances index past them. If there are
    // too few, skips them, reports a usage error and keeps the old values.
    virtual void setArg(int& index, int argc, const char* const* argv) = 0;
    virtual void dumpDerived() const = 0;
    // The arguments in usage texts, as in " FLOAT0 FLOAT1".
    virtual std::string getArgumentText() const = 0;

    bool hasName(const char* name) const;
    // The name in messages: the long name, if there is one, since it is more descriptive.
    const char* getMessageName() const { return longName != nullptr ? longName : shortName; }
    bool isExtra() const { return parser.m_extra == this; }
    // The choice that equals the argument, ignoring case, or the argument. Usage errors are those of
    // setChoices().
    const char* findChoice(const char* argument) const;
    // The first sentence of the description, as far as it is on the first line.
    std::string getSummary() const;
    // One line: names, arguments and the summary.
    void showLine() const;
    void showLongUsage() const;
    void dump() const;

    const QMCmdLine& parser;
    bool isPresent = false;
    bool isUndocumented = false;
    const char* argumentName = nullptr;
    std::vector<const char*> choices;
    bool hasOtherValues = false;         // besides the choices
    const Option* alternative = nullptr; // which makes this one optional
};

struct QMCmdLine::OptionFlag final : QMCmdLine::Option
{
    using Option::Option;

    void setArg(int&, int, const char* const*) override { isPresent = true; }
    void dumpDerived() const override;
    std::string getArgumentText() const override { return {}; }
};

// Options with values of type T.
template <class T>
struct QMCmdLine::OptionArray final : QMCmdLine::Option
{
    using Value = T;
    using Option::Option;

    void setArg(int& index, int argc, const char* const* argv) override;
    void dumpDerived() const override;
    std::string getArgumentText() const override;

    static const char* getTypeWord();

    std::vector<T> values;
};

} // namespace Quillmoran
