#include "framework/PercentProgressDelegate.h"

#include "platform/Interrupt.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace Quillmoran {

namespace {

// Always handled.
constexpr int requests[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};
// Handled if they would terminate the process, as are the real-time signals.
constexpr int otherEnds[] = {SIGUSR1, SIGUSR2,   SIGALRM, SIGVTALRM, SIGPROF,
                             SIGXCPU, SIGSTKFLT, SIGIO,   SIGPWR};

std::mutex instanceMutex;
int instanceCount = 0;
struct sigaction previousActions[NSIG]; // by signal
bool isReplaced[NSIG] = {};

extern "C" void handleSignal(int, siginfo_t*, void*)
{
    static constexpr char notice[] = "\nInterrupt detected.  Shutting down application...\n";
    const int interruptedErrno = errno; // the interrupted code may be about to read it
    setInterrupted();
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, notice, sizeof notice - 1);
    errno = interruptedErrno;
}

void handle(int number, bool always)
{
    struct sigaction action = {}, previous = {};
    action.sa_sigaction = handleSignal;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    if (sigaction(number, nullptr, &previous) != 0)
        return;
    const bool ends = (previous.sa_flags & SA_SIGINFO) == 0 && previous.sa_handler == SIG_DFL;
    if (!always && !ends)
        return;
    previousActions[number] = previous;
    isReplaced[number] = sigaction(number, &action, nullptr) == 0;
}

// An operation without work reports 0 / 0. Neither NaN nor an infinity can be converted to an integer.
std::int32_t hundredthsOfPercent(double fraction)
{
    if (std::isnan(fraction))
        return 0;
    return static_cast<std::int32_t>(std::clamp(std::ceil(fraction * 10000), -1e9, 1e9));
}

} // namespace

PercentProgressDelegate::PercentProgressDelegate()
{
    const std::lock_guard<std::mutex> lock(instanceMutex);
    if (instanceCount++ != 0)
        return;
    for (const int number : requests)
        handle(number, true);
    for (const int number : otherEnds)
        handle(number, false);
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number)
        handle(number, false);
}

PercentProgressDelegate::~PercentProgressDelegate()
{
    const std::lock_guard<std::mutex> lock(instanceMutex);
    if (--instanceCount != 0)
        return;
    for (int number = 1; number < NSIG; ++number)
        if (std::exchange(isReplaced[number], false))
            sigaction(number, &previousActions[number], nullptr);
}

void PercentProgressDelegate::reportProgress(double fraction, const char* message)
{
    const std::int32_t hundredths = hundredthsOfPercent(fraction);
    if (hundredths == m_lastPrinted && message == m_lastMessage)
        return;
    m_lastPrinted = hundredths;
    m_lastMessage = message;
    std::printf("\r%6.2f%% (%s)", hundredths * 0.01, message);
    std::fflush(stdout);
}

bool PercentProgressDelegate::getCancelled()
{
    return m_cancelled || isInterrupted();
}

void PercentProgressDelegate::displayWarning(const char* text)
{
    std::printf("%s\n", text);
}

} // namespace Quillmoran
