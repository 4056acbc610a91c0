#include "utils/ConsoleProgress.h"

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

} // namespace Quillmoran::Utils
