#include "utils/ConsoleProgress.h"

#include "text/Printable.h"

namespace Quillmoran::Utils {

void ConsoleProgress::reportProgress(double fraction, const char* message)
{
    constexpr double almostDone = 0.9999; // the line is rounded up
    m_message = message;
    if (!(fraction > almostDone))
        PercentProgressDelegate::reportProgress(fraction, message);
}

void ConsoleProgress::finish()
{
    if (m_message)
        PercentProgressDelegate::reportProgress(1, m_message);
}

void ConsoleProgress::displayWarning(const char* text)
{
    PercentProgressDelegate::displayWarning(printable(text).c_str());
}

} // namespace Quillmoran::Utils
