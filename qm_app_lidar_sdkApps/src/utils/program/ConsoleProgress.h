// The progress line of all programs.
#pragma once

#include "framework/PercentProgressDelegate.h"

namespace Quillmoran::Utils {

// Parts of the total work are estimates, such as the lines of a text file or the points in a box. The line
// shows at most 99.99 % before finish(), so 100 % means that the run succeeded.
class ConsoleProgress final : public PercentProgressDelegate
{
public:
    void reportProgress(double fraction, const char* message) override;
    // Escapes control characters of names from files.
    void displayWarning(const char* text) override;
    // Shows 100 % of the last activity and ends the line. Call it when the output is complete.
    void finish();

private:
    const char* m_message = nullptr;
};

} // namespace Quillmoran::Utils
