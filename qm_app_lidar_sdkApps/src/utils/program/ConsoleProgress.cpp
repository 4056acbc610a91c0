#include "utils/program/ConsoleProgress.h"

#include "text/Printable.h"

#include <cstdio>

namespace Quillmoran::Utils {

void ConsoleProgress::reportProgress(double fraction, const char* message)
{
    constexpr double almostDone = 0.9999; // rounding must not show 100 %
    m_message = message;
    if (!(fraction > almostDone))
        PercentProgressDelegate::reportProgress(fraction, message);
}

void ConsoleProgress::finish()
{
    if (m_message)
        PercentProgressDelegate::reportProgress(1, m_message);
    std::putchar('\n');
}

void ConsoleProgress::displayWarning(const char* text)
{
    PercentProgressDelegate::displayWarning(printable(text).c_str());
}

} // namespace Quillmoran::Utils
