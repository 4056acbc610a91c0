#include "cli/QMCmdLine.h"
#include "cli/QMCmdLineOptions.h"

#include <cstdio>

namespace Quillmoran {

void QMCmdLine::showShortUsageMessage() const
{
    std::printf("Usage: %s ", m_appName);
    for (const auto& option : m_options) {
        if (option->isUndocumented())
            continue;
        if (!option->isRequired())
            std::printf("[");
        if (!option->isExtra())
            std::printf("-%s", option->getShortName());
        option->showArgMessage();
        std::printf(option->isRequired() ? " " : "] ");
    }
    std::printf("\n%s\n", m_appDescShort);
}

void QMCmdLine::showLongUsageMessage() const
{
    if (m_haveVersionNumbers) {
        std::printf("%s: Version %s\n%s\n", m_appName, m_versionString.c_str(), m_buildString.c_str());
    } else {
        std::printf("%s: %s\n", m_appName, m_versionString.c_str());
        if (!m_buildString.empty())
            std::printf("%s\n", m_buildString.c_str());
    }
    std::printf("%s\n", m_appDescLong);

    for (const auto& option : m_options)
        if (!option->isUndocumented())
            option->showLongUsage();
    std::printf("\n");
}

void QMCmdLine::showLongUsageMessage(const char* name) const
{
    const Option* option = findOption(name);
    if (option != nullptr && !option->isUndocumented())
        option->showLongUsage();
}

void QMCmdLine::showVersion() const
{
    if (m_haveVersionNumbers)
        std::printf("Version %s\n%s\n", m_versionString.c_str(), m_buildString.c_str());
    else
        std::printf("%s\n", m_versionString.c_str());
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

} // namespace Quillmoran
