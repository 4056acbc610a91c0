#include "framework/PercentProgressDelegate.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <unistd.h>

namespace Quillmoran {

namespace {

constexpr int handledSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

std::atomic<int> cancelRequested{0};
static_assert(std::atomic<int>::is_always_lock_free, "stored from a signal handler");

std::mutex instanceMutex;
int instanceCount = 0;
struct sigaction previousActions[std::size(handledSignals)];

extern "C" void handleSignal(int number, siginfo_t*, void*)
{
    if (std::find(std::begin(handledSignals), std::end(handledSignals), number) == std::end(handledSignals))
        return;
    static constexpr char notice[] = "\nInterrupt detected.  Shutting down application...\n";
    const int interruptedErrno = errno; // the code that was interrupted may be about to look at it
    cancelRequested = 1;
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, notice, sizeof notice - 1);
    errno = interruptedErrno;
}

// A finished operation without work reports 0 / 0; an integer conversion must not meet that, nor an infinity.
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
    struct sigaction action = {};
    action.sa_sigaction = handleSignal;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < std::size(handledSignals); ++i)
        sigaction(handledSignals[i], &action, &previousActions[i]);
}

PercentProgressDelegate::~PercentProgressDelegate()
{
    const std::lock_guard<std::mutex> lock(instanceMutex);
    if (--instanceCount != 0)
        return;
    for (std::size_t i = 0; i < std::size(handledSignals); ++i)
        sigaction(handledSignals[i], &previousActions[i], nullptr);
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
    return m_cancelled || cancelRequested != 0;
}

void PercentProgressDelegate::displayWarning(const char* text)
{
    std::printf("%s\n", text);
}

} // namespace Quillmoran
