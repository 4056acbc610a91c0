// The progress line of the programs.
#pragma once

#include "framework/PercentProgressDelegate.h"

namespace Quillmoran::Utils {

// The work to do is partly estimated: how many lines a text file has, how many points are in a box. The line
// does not show more than 99.99 % before finish(), so 100 % means that the run succeeded.
class ConsoleProgress final : public PercentProgressDelegate
{
public:
    void reportProgress(double fraction, const char* message) override;
    // Escapes control characters of names from files.
    void displayWarning(const char* text) override;
    // Shows 100 % of the last activity. Call it when the output is complete.
    void finish();

private:
    const char* m_message = nullptr;
};

} // namespace Quillmoran::Utils
