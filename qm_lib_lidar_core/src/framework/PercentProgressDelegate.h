// Progress on the console: a percentage line that overwrites itself. While at least one of these lives,
// SIGTERM, SIGINT, SIGHUP and SIGQUIT ask the running operation to stop instead of ending the process, and so
// do all other signals that do not report a fault and would end it: SIGUSR1, SIGALRM, SIGXCPU and so on.
// SIGPIPE and SIGXFSZ are the program's to ignore, so that the write reports an error.
#pragma once

#include <vxunpack/ProgressDelegate.h>

#include <cstdint>

namespace Quillmoran {

class PercentProgressDelegate : public ProgressDelegate
{
public:
    PercentProgressDelegate();
    ~PercentProgressDelegate() override;

    // Redraws at most once per hundredth of a percent, and at once when the activity changes.
    void reportProgress(double fraction, const char* message) override;
    // True after setCancelled(true) and, for every delegate from then on, after one of the signals.
    bool getCancelled() override;
    void displayWarning(const char* text) override;

    void setCancelled(bool cancelled) { m_cancelled = cancelled; }

private:
    std::int32_t m_lastPrinted = -1; // hundredths of a percent
    const char* m_lastMessage = nullptr;
    bool m_cancelled = false;
};

} // namespace Quillmoran
