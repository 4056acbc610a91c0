// Shows progress on the console as a percentage that overwrites itself. While an instance exists, SIGTERM,
// SIGINT, SIGHUP and SIGQUIT cancel the running operation instead of terminating the process. So do the other
// signals that would terminate it and do not report a fault: SIGUSR1, SIGALRM, SIGXCPU and so on. The program
// must ignore SIGPIPE and SIGXFSZ, so that writes report an error.
#pragma once

#include <vxunpack/ProgressDelegate.h>

#include <cstdint>

namespace Quillmoran {

class PercentProgressDelegate : public ProgressDelegate
{
public:
    PercentProgressDelegate();
    ~PercentProgressDelegate() override;

    // Redraws when the activity or the percentage, rounded up to hundredths, changes.
    void reportProgress(double fraction, const char* message) override;
    // True after setCancelled(true), and for all delegates after one of the signals.
    bool getCancelled() override;
    void displayWarning(const char* text) override;

    void setCancelled(bool cancelled) { m_cancelled = cancelled; }

private:
    std::int32_t m_lastPrinted = -1; // hundredths of a percent
    const char* m_lastMessage = nullptr;
    bool m_cancelled = false;
};

} // namespace Quillmoran
