#include "cli/QMCmdLine.h"
#include "cli/QMCmdLineOptions.h"

#include "platform/Version.h"
#include "text/Printable.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

namespace Quillmoran {

namespace {

// Fixed texts, so that all builds of one source print the same.
constexpr const char* buildTag = "main";
constexpr const char* buildText = "Built Dec 21 2017 14:39:27 (release, 64 bits)";

const char* orEmpty(const char* text)
{
    return text != nullptr ? text : "";
}

// Runs body and converts std::bad_alloc to the exception that programs expect.
template <class Body>
void guardAllocation(Body body)
{
    try {
        body();
    } catch (const std::bad_alloc&) {
        throw QMUtilException(QMUtilException::outOfMemory);
    }
}

} // namespace

QMCmdLine::QMCmdLine(const char* appName, const char* appDescShort, const char* appDescLong,
                     bool usingStandardOptions)
    : m_appName(orEmpty(appName)),
      m_appDescLong(orEmpty(appDescLong)),
      m_appDescShort(orEmpty(appDescShort)),
      m_usingStandardOptions(usingStandardOptions),
      m_exitHandler(&std::exit)
{
    if (appName == nullptr)
        configError("app name not set (QMCmdLine ctor)");
    if (appDescShort == nullptr)
        configError("app short desc not set (QMCmdLine ctor)");
    if (appDescLong == nullptr)
        configError("app long desc not set (QMCmdLine ctor)");

    setVersionString(nullptr);
    if (m_usingStandardOptions) {
        addFlag("h", "?", "show short usage message");
        addFlag("help", nullptr, "show detailed usage message");
        addFlag("v", "version", "show version information");
        addFlag("credits", nullptr, "show credits and copyrights");
    }
}

QMCmdLine::~QMCmdLine() = default;

void QMCmdLine::setExitHandler(ExitHandler handler)
{
    m_exitHandler = handler != nullptr ? handler : &std::exit;
}

void QMCmdLine::setVersionString(const char* text)
{
    guardAllocation([&] { m_versionText = text != nullptr ? text : "(no version info)"; });
}

void QMCmdLine::setVersionNumbers(int majorVersion, int minorVersion, int age)
{
    guardAllocation([&] {
        m_versionText = "Version ";
        for (const int number : {majorVersion, minorVersion, age, Version::getSDKBuildNumber()})
            m_versionText += std::to_string(number) + '.';
        m_versionText += std::string(buildTag) + '\n' + buildText;
    });
}

void QMCmdLine::addFlag(const char* name, const char* longName, const char* description)
{
    addOption<OptionFlag>({name, longName, description, false, 0});
}

void QMCmdLine::addBool(const char* name, const char* longName, const char* description, bool required)
{
    addOption<OptionBool>({name, longName, description, required, 1});
}

void QMCmdLine::addString(const char* name, const char* longName, const char* description, bool required)
{
    addStringArray(name, longName, description, required, 1);
}

void QMCmdLine::addSint(const char* name, const char* longName, const char* description, bool required)
{
    addSintArray(name, longName, description, required, 1);
}

void QMCmdLine::addUint(const char* name, const char* longName, const char* description, bool required)
{
    addUintArray(name, longName, description, required, 1);
}

void QMCmdLine::addFloat(const char* name, const char* longName, const char* description, bool required)
{
    addFloatArray(name, longName, description, required, 1);
}

void QMCmdLine::addStringArray(const char* name, const char* longName, const char* description, bool required,
                               int numArgs)
{
    addOption<OptionStringArray>({name, longName, description, required, numArgs});
}

void QMCmdLine::addSintArray(const char* name, const char* longName, const char* description, bool required,
                             int numArgs)
{
    addOption<OptionSintArray>({name, longName, description, required, numArgs});
}

void QMCmdLine::addUintArray(const char* name, const char* longName, const char* description, bool required,
                             int numArgs)
{
    addOption<OptionUintArray>({name, longName, description, required, numArgs});
}

void QMCmdLine::addFloatArray(const char* name, const char* longName, const char* description, bool required,
                              int numArgs)
{
    addOption<OptionFloatArray>({name, longName, description, required, numArgs});
}

template <class OptionKind>
void QMCmdLine::addOption(const Declaration& declaration)
{
    guardAllocation([&] {
        checkUniqueName(declaration.shortName);
        checkUniqueName(declaration.longName);
        auto option = std::make_unique<OptionKind>(*this, declaration);
        try {
            m_options.push_back(std::move(option));
        } catch (const std::bad_alloc&) {
            configError("could not grow the options array");
        }
    });
}

void QMCmdLine::checkUniqueName(const char* name) const
{
    if (findOption(name) != nullptr)
        configError("switch name -%s is not unique", name);
}

void QMCmdLine::setExtra(const char* name)
{
    if (m_extra != nullptr) {
        configError("setExtra already declared for option %s", m_extra->getMessageName());
        return;
    }
    Option* option = requireOption(name);
    if (option == nullptr)
        return;
    if (dynamic_cast<OptionFlag*>(option) != nullptr) {
        configError("option %s is of type Flag, can't be declared Extra", option->getMessageName());
        return;
    }
    m_extra = option;
}

void QMCmdLine::setUndocumented(const char* name)
{
    if (Option* option = requireOption(name))
        option->isUndocumented = true;
}

bool QMCmdLine::getUndocumented(const char* name) const
{
    const Option* option = requireOption(name);
    return option != nullptr && option->isUndocumented;
}

void QMCmdLine::parse(int argc, const char* const* argv)
{
    guardAllocation([&] {
        m_argc = argc;
        m_argv = argv;
        const char* unknownSwitch = readArguments();
        if (m_usingStandardOptions)
            runStandardOptions();
        if (unknownSwitch != nullptr)
            reportUnknown(unknownSwitch);
        checkRequired();
    });
}

// An unknown switch is reported later, since a request for help elsewhere on the line has precedence.
const char* QMCmdLine::readArguments()
{
    const char* unknownSwitch = nullptr;
    bool optionsEnd = false;
    int index = 1;
    while (index < m_argc) {
        const char* text = m_argv[index];
        if (m_extendedSyntax && !optionsEnd && std::strcmp(text, "--") == 0) {
            optionsEnd = true;
            ++index;
        } else if (text[0] == '-' && !optionsEnd && !(m_extendedSyntax && text[1] == '\0')) {
            if (!readSwitch(index) && unknownSwitch == nullptr)
                unknownSwitch = text + 1;
        } else if (m_extra != nullptr) {
            m_extra->setArg(index, m_argc, m_argv);
        } else {
            ++index;
            usageError("extra arguments found (%s ...)", text);
        }
    }
    return unknownSwitch;
}

void QMCmdLine::reportUnknown(const char* unknownSwitch) const
{
    const std::string suggestion = m_extendedSyntax ? suggest(unknownSwitch) : "";
    if (suggestion.empty())
        usageError("unrecognized switch -%s", unknownSwitch);
    else
        usageError("unrecognized switch -%s; did you mean -%s?", unknownSwitch, suggestion.c_str());
}

void QMCmdLine::runStandardOptions() const
{
    if (isPresent("?"))
        showShortUsageMessage();
    else if (isPresent("help"))
        showLongUsageMessage();
    else if (isPresent("version"))
        std::printf("%s\n", m_versionText.c_str());
    else
        return;
    m_exitHandler(0);
}

void QMCmdLine::checkRequired() const
{
    for (const auto& option : m_options) {
        if (!option->isRequired || option->isPresent ||
            (option->alternative != nullptr && option->alternative->isPresent))
            continue;
        usageError(option->isExtra() ? "required %s argument(s) not present"
                                     : "required switch -%s not present",
                   option->getMessageName());
    }
}

QMCmdLine::Option* QMCmdLine::findOption(const char* name) const
{
    if (name == nullptr)
        return nullptr;
    for (const auto& option : m_options)
        if (option->hasName(name))
            return option.get();
    return nullptr;
}

QMCmdLine::Option* QMCmdLine::requireOption(const char* name) const
{
    Option* option = findOption(name);
    if (option == nullptr)
        configError("option %s invalid", orEmpty(name));
    return option;
}

void QMCmdLine::showShortUsageMessage() const
{
    if (m_synopsis != nullptr) {
        showExamples();
        std::printf("\n%s.  Options:\n\n", m_appDescShort);
        for (const auto& option : m_options)
            if (!option->isUndocumented)
                option->showLine();
        return;
    }
    std::printf("Usage: %s ", m_appName);
    for (const auto& option : m_options) {
        if (option->isUndocumented)
            continue;
        if (!option->isRequired)
            std::printf("[");
        if (!option->isExtra())
            std::printf("-%s", option->shortName);
        std::printf("%s", option->getArgumentText().c_str());
        std::printf(option->isRequired ? " " : "] ");
    }
    std::printf("\n%s\n", m_appDescShort);
}

void QMCmdLine::showLongUsageMessage() const
{
    std::printf("%s: %s\n%s\n", m_appName, m_versionText.c_str(), m_appDescLong);
    if (m_synopsis != nullptr) {
        std::printf("\n");
        showExamples();
    }
    for (const auto& option : m_options)
        if (!option->isUndocumented)
            option->showLongUsage();
    std::printf("\n");
}

void QMCmdLine::showLongUsageMessage(const char* name) const
{
    const Option* option = findOption(name);
    if (option != nullptr && !option->isUndocumented)
        option->showLongUsage();
}

void QMCmdLine::dump() const
{
    std::printf("appName: %s\n", m_appName);
    std::printf("appDescShort: %s\n", m_appDescShort);
    std::printf("appDescLong: %s\n", m_appDescLong);
    std::printf("numOptions: %d\n", static_cast<int>(m_options.size()));
    std::printf("usingStandardOptions: %s\n", m_usingStandardOptions ? "true" : "false");
    std::printf("formal argc: %d\n", m_argc);
    std::printf("formal argv: ");
    for (int i = 0; i < m_argc; ++i)
        std::printf("  [%d] %s\n", i, m_argv[i]);
    for (const auto& option : m_options)
        option->dump();
}

void QMCmdLine::usageError(const char* format, ...) const
{
    std::va_list args;
    va_start(args, format);
    printError("usage error", format, args);
    va_end(args);
    std::fprintf(stderr, "Use -h or -help for list of options.\n\n");
    m_exitHandler(m_errorStatus);
}

void QMCmdLine::configError(const char* format, ...) const
{
    std::va_list args;
    va_start(args, format);
    printError("QMCmdLine configuration error", format, args);
    va_end(args);
    m_exitHandler(1);
}

namespace {

std::string formatted(const char* format, std::va_list args)
{
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

} // namespace

void QMCmdLine::printError(const char* kind, const char* format, std::va_list args) const
{
    std::fprintf(stderr, "%s %s: %s\n", m_appName, kind, printable(formatted(format, args)).c_str());
}

} // namespace Quillmoran
