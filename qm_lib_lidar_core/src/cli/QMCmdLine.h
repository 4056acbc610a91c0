// The command-line parser of the programs: a program declares typed options, parse() reads argv, and the
// getters return the values by either name of an option. The parser prints usage, version and error texts and
// ends the process through a replaceable exit handler. If the handler returns, a failed getter returns false,
// 0 or null. Names, descriptions and argv are not copied and must outlive the parser. Used by one thread at a
// time.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace Quillmoran {

// Thrown by the parser in place of std::bad_alloc.
class QMUtilException : public std::exception
{
public:
    static constexpr int outOfMemory = 8;

    explicit QMUtilException(int code) noexcept : m_code(code) {}

    int getCode() const noexcept { return m_code; }
    const char* what() const noexcept override { return "out of memory"; }

private:
    int m_code;
};

class QMCmdLine
{
public:
    // The option kinds are defined in cli/QMCmdLineOptions.h; applications do not need them.
    struct Declaration;
    struct Option;
    struct OptionFlag;
    template <class T>
    struct OptionArray;
    using OptionBool = OptionArray<bool>;
    using OptionStringArray = OptionArray<const char*>;
    using OptionSintArray = OptionArray<int>;
    using OptionUintArray = OptionArray<unsigned int>;
    using OptionFloatArray = OptionArray<double>;

    using ExitHandler = void (*)(int status);

    // usingStandardOptions declares the flags h/?, help, v/version and credits. parse() acts on all of them
    // but credits, which the program handles.
    QMCmdLine(const char* appName, const char* appDescShort, const char* appDescLong,
              bool usingStandardOptions);
    ~QMCmdLine();
    QMCmdLine(const QMCmdLine&) = delete;
    QMCmdLine& operator=(const QMCmdLine&) = delete;

    // The default, also for null, is std::exit.
    void setExitHandler(ExitHandler handler);
    void setVersionString(const char* text);
    void setVersionNumbers(int majorVersion, int minorVersion, int age);

    // Declare an option. longName may be null. Names must be unique.
    void addFlag(const char* name, const char* longName, const char* description);
    void addBool(const char* name, const char* longName, const char* description, bool required = false);
    void addString(const char* name, const char* longName, const char* description, bool required = false);
    void addSint(const char* name, const char* longName, const char* description, bool required = false);
    void addUint(const char* name, const char* longName, const char* description, bool required = false);
    void addFloat(const char* name, const char* longName, const char* description, bool required = false);

    // numArgs > 0 is the number of arguments, 0 means all remaining arguments of the command line, -1 means
    // one argument per occurrence, which are collected.
    void addStringArray(const char* name, const char* longName, const char* description, bool required,
                        int numArgs);
    void addSintArray(const char* name, const char* longName, const char* description, bool required,
                      int numArgs);
    void addUintArray(const char* name, const char* longName, const char* description, bool required,
                      int numArgs);
    void addFloatArray(const char* name, const char* longName, const char* description, bool required,
                       int numArgs);

    // Positional arguments become values of this option; one option at most, and not a flag.
    void setExtra(const char* name);
    // Hides the named option from the usage texts.
    void setUndocumented(const char* name);
    bool getUndocumented(const char* name) const;

    // Makes parse() report arguments that are not numbers of the option's type as usage errors: text before
    // or after the number, values out of range, NaN. Infinities are "inf", "+inf" and "-inf".
    void setStrictNumbers() { m_strictNumbers = true; }
    // Makes parse() accept the syntax that users of other programs expect. "--" ends the options, and "-" is
    // a positional argument. "--crop", "--gpsWeek", "--gps-week" and "--gpsWeek=2000" are options, in which
    // case and hyphens do not matter. An unknown option suggests the nearest name.
    void setExtendedSyntax() { m_extendedSyntax = true; }

    // The usage texts begin with these instead of a list of all options. `synopsis` is the command line
    // without the name of the program; an example is a command and what it does.
    struct Example
    {
        const char* command;
        const char* effect;
    };
    void setExamples(const char* synopsis, std::vector<Example> examples);
    // What the values of an option are, as in "FILE": a word of the usage texts in place of the type.
    void setArgumentName(const char* name, const char* argumentName);
    // The values of an option. parse() ignores their case and replaces a value by the one of this list. Other
    // values are usage errors if the numbers are strict and the list is closed; the getters return them.
    void setChoices(const char* name, std::vector<const char*> choices, bool isClosed = true);
    // Allows a required option to be absent if the other one is present.
    void setAlternative(const char* name, const char* other);

    // What a program accepts, for completion scripts.
    struct OptionDescription
    {
        const char* shortName;
        const char* longName; // may be null
        std::string summary;
        bool isFlag;
        bool isText;              // the values are not numbers
        int numArgs;              // as in addStringArray()
        const char* argumentName; // null if setArgumentName() was not called
        std::vector<const char*> choices;
    };
    // In the order of their declaration, with those that the usage texts hide.
    std::vector<OptionDescription> describeOptions() const;
    bool hasExtraArguments() const { return m_extra != nullptr; }
    bool hasExtendedSyntax() const { return m_extendedSyntax; }

    // The exit status of usage errors, 1 by default.
    void setErrorStatus(int status) { m_errorStatus = status; }

    // argv[0] is the program name. Values of an earlier parse() are kept until they are replaced.
    void parse(int argc, const char* const* argv);

    bool hasOption(const char* name) const { return findOption(name) != nullptr; }
    bool isPresent(const char* name) const;
    bool getFlag(const char* name) const;
    bool getBool(const char* name) const;

    // The only value of an option; null or 0 if it has none. Several values are an error.
    const char* getString(const char* name) const;
    int getSint(const char* name) const;
    unsigned int getUint(const char* name) const;
    double getFloat(const char* name) const;

    // All values of an option, owned by the parser and valid until the next parse(); null if count is 0.
    const char* const* getStringArray(const char* name, std::size_t& count) const;
    const int* getSintArray(const char* name, std::size_t& count) const;
    const unsigned int* getUintArray(const char* name, std::size_t& count) const;
    const double* getFloatArray(const char* name) const;
    const double* getFloatArray(const char* name, std::size_t& count) const;

    // Prints a usage error to standard error and calls the exit handler with the error status. Programs call
    // it for invalid arguments.
    void usageError(const char* format, ...) const __attribute__((format(printf, 2, 3)));

    // These print to standard output.
    void showShortUsageMessage() const;
    void showLongUsageMessage() const;
    void showLongUsageMessage(const char* name) const;
    void dump() const;

    const char* getAppName() const { return m_appName; }

    // Convert one argument. Errors are not detected: "12abc" is 12, "abc" is 0; setStrictNumbers() has no
    // effect on them.
    bool toBool(const char* text) const;
    static int toSint(const char* text);
    static unsigned int toUint(const char* text);
    static double toFloat(const char* text);

private:
    template <class OptionKind>
    void addOption(const Declaration& declaration);
    void checkUniqueName(const char* name) const;

    Option* findOption(const char* name) const;    // null if there is none
    Option* requireOption(const char* name) const; // null after a configuration error
    template <class OptionKind>
    const OptionKind* findOfKind(const char* name) const;
    template <class OptionKind>
    auto getSingle(const char* name) const;
    template <class OptionKind>
    auto getArray(const char* name, std::size_t& count) const;

    const char* readArguments(); // returns the name of the first unknown switch, or null
    // Reads the switch argv[index] with its arguments and advances index. Returns false for an unknown name.
    bool readSwitch(int& index);
    Option* findExtended(const std::string& name) const;
    void reportUnknown(const char* unknownSwitch) const;
    std::string suggest(const char* unknownSwitch) const; // empty if no name is near
    void showExamples() const;
    void runStandardOptions() const;
    void checkRequired() const;

    void configError(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void printError(const char* kind, const char* format, std::va_list args) const
        __attribute__((format(printf, 3, 0)));

    std::vector<std::unique_ptr<Option>> m_options; // in declaration order
    const char* m_appName;
    const char* m_appDescLong;
    const char* m_appDescShort;
    std::string m_versionText; // with the build, if there are version numbers
    const char* const* m_argv = nullptr;
    int m_argc = -1; // -1: not parsed yet
    bool m_usingStandardOptions;
    bool m_strictNumbers = false;
    bool m_extendedSyntax = false;
    const char* m_synopsis = nullptr;
    std::vector<Example> m_examples;
    int m_errorStatus = 1;
    Option* m_extra = nullptr; // one of m_options, or null
    ExitHandler m_exitHandler;
};

} // namespace Quillmoran
