// The kinds of options of QMCmdLine. An option has its names, its part of the usage texts and the values
// converted from its arguments. Only the parser uses these classes.
#pragma once

#include "cli/QMCmdLine.h"

namespace Quillmoran {

// The properties that all kinds of options have.
struct QMCmdLine::Declaration
{
    const char* shortName;
    const char* longName; // may be null
    const char* description;
    bool isRequired;
};

class QMCmdLine::Option
{
public:
    // A missing name or description is a configuration error and is replaced by an empty text.
    Option(const QMCmdLine& parser, const Declaration& declaration);
    virtual ~Option();
    Option(const Option&) = delete;
    Option& operator=(const Option&) = delete;

    // Reads the arguments of one occurrence from argv[index] on and advances index past them. If there are
    // too few, skips them, reports a usage error and keeps the old values.
    virtual void setArg(int& index, int argc, const char* const* argv) = 0;
    virtual void dumpDerived() const = 0;
    virtual void showArgMessage() const = 0;

    bool hasName(const char* name) const;
    const char* getShortName() const { return m_shortName; }
    // The name in messages: the long name, if there is one, since it is more descriptive.
    const char* getMessageName() const { return m_longName != nullptr ? m_longName : m_shortName; }

    bool isPresent() const { return m_isPresent; }
    bool isRequired() const { return m_isRequired; }
    bool isExtra() const { return m_isExtra; }
    bool isUndocumented() const { return m_isUndocumented; }
    void setExtra() { m_isExtra = true; }
    void setUndocumented() { m_isUndocumented = true; }

    void showLongUsage() const;
    void dump() const;

protected:
    const QMCmdLine& getParser() const { return m_parser; }
    void setPresent() { m_isPresent = true; }
    bool hasArgs(int wanted, int& index, int argc) const;
    bool hasStrictNumbers() const { return m_parser.m_strictNumbers; }

private:
    const QMCmdLine& m_parser;
    bool m_isPresent = false;
    const char* m_shortName;
    const char* m_longName;
    bool m_isRequired;
    const char* m_description;
    bool m_isExtra = false;
    bool m_isUndocumented = false;
};

class QMCmdLine::OptionFlag final : public QMCmdLine::Option
{
public:
    using Option::Option;

    void setArg(int& index, int argc, const char* const* argv) override;
    void dumpDerived() const override;
    void showArgMessage() const override;

    bool getValue() const { return m_value; }

private:
    bool m_value = false;
};

class QMCmdLine::OptionBool final : public QMCmdLine::Option
{
public:
    using Option::Option;

    void setArg(int& index, int argc, const char* const* argv) override;
    void dumpDerived() const override;
    void showArgMessage() const override;

    bool getValue() const { return m_value; }

private:
    bool m_value = false;
};

// The common base of options with values of type T. A kind adds the name of its type and the conversion of
// one argument.
template <class T>
class QMCmdLine::OptionArray : public QMCmdLine::Option
{
public:
    using Value = T;

    OptionArray(const QMCmdLine& parser, const Declaration& declaration, int numArgs);

    void setArg(int& index, int argc, const char* const* argv) override;
    void dumpDerived() const override;
    void showArgMessage() const override;

    virtual const char* getTypeWord() const = 0;
    const std::vector<T>& getValues() const { return m_values; }

private:
    virtual T convert(const char* text) const = 0;
    // Whether the whole text is a value of this kind.
    virtual bool accepts(const char* text) const = 0;

    int m_numArgs; // as in QMCmdLine::addStringArray
    std::vector<T> m_values;
};

class QMCmdLine::OptionStringArray final : public QMCmdLine::OptionArray<const char*>
{
public:
    using OptionArray::OptionArray;
    const char* getTypeWord() const override { return "STRING"; }

private:
    const char* convert(const char* text) const override { return text; }
    bool accepts(const char*) const override { return true; }
};

class QMCmdLine::OptionSintArray final : public QMCmdLine::OptionArray<int>
{
public:
    using OptionArray::OptionArray;
    const char* getTypeWord() const override { return "SIGNED-INT"; }

private:
    int convert(const char* text) const override { return toSint(text); }
    bool accepts(const char* text) const override;
};

class QMCmdLine::OptionUintArray final : public QMCmdLine::OptionArray<unsigned int>
{
public:
    using OptionArray::OptionArray;
    const char* getTypeWord() const override { return "UNSIGNED-INT"; }

private:
    unsigned int convert(const char* text) const override { return toUint(text); }
    bool accepts(const char* text) const override;
};

class QMCmdLine::OptionFloatArray final : public QMCmdLine::OptionArray<double>
{
public:
    using OptionArray::OptionArray;
    const char* getTypeWord() const override { return "FLOAT"; }

private:
    double convert(const char* text) const override { return toFloat(text); }
    bool accepts(const char* text) const override;
};

} // namespace Quillmoran
