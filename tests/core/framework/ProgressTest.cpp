#include "framework/PercentProgressDelegate.h"

#include "support/Test.h"

#include <csignal>
#include <unistd.h>

namespace Quillmoran::Testing { namespace {

constexpr int cancellingSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

TEST(PercentProgressDelegate, RedrawsOncePerHundredthOfAPercentAndForAnotherActivity)
{
    static const char first[] = "same text", second[] = "same text";
    testing::internal::CaptureStdout();
    PercentProgressDelegate delegate;
    for (const double fraction : {0.0, 0.12344, 0.12349, 0.1235, 0.12351, 1.0, 1.0})
        delegate.reportProgress(fraction, first);
    delegate.reportProgress(1.0, second);
    delegate.updateCompleted(0, "nothing to do"); // 0 / 0
    delegate.updateCompleted(1, "too much");      // 1 / 0
    delegate.setTotal(8);
    delegate.updateCompleted(1, "a");
    delegate.updateCompleted(3, "a");
    delegate.setTotal(4);
    delegate.updateCompleted(1, "a");
    delegate.warning("%s %d%%", std::string(5000, 'n').c_str(), 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\r  0.00% (same text)\r 12.35% (same text)\r 12.36% (same text)\r100.00% (same text)"
              "\r100.00% (same text)\r  0.00% (nothing to do)\r10000000.00% (too much)"
              "\r 12.50% (a)\r 50.00% (a)\r 25.00% (a)" +
                  std::string(5000, 'n') + " 7%\n");
}

// Signals are sent in child processes, since the cancellation of a process is final. A body returns success.
void expectInChild(const std::function<bool()>& body, const char* standardError)
{
    EXPECT_EXIT(_exit(body() ? 0 : 1), testing::ExitedWithCode(0), standardError);
}

#define NOTICE "\nInterrupt detected\\.  Shutting down application\\.\\.\\.\n"

// Signals that would terminate the process; only these four cancel even if they are ignored.
TEST(PercentProgressDelegateDeathTest, SignalsCancelAllDelegatesAndPrintOneNotice)
{
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGVTALRM, SIGPROF,
                             SIGXCPU, SIGIO, SIGPWR, SIGSTKFLT, SIGRTMIN, SIGRTMAX})
        for (const auto action : {SIG_DFL, SIG_IGN}) {
            const bool isLeft = action == SIG_IGN && std::count(std::begin(cancellingSignals),
                                                                std::end(cancellingSignals), number) == 0;
            const auto cancels = [&] {
                std::signal(number, action);
                auto first = std::make_unique<PercentProgressDelegate>();
                first->setCancelled(true); // which has no effect on the others
                const bool before = PercentProgressDelegate().getCancelled();
                raise(number);
                first.reset();
                return !before && PercentProgressDelegate().getCancelled() != isLeft;
            };
            expectInChild(cancels, isLeft ? "^$" : "^" NOTICE "$");
        }
}

TEST(PercentProgressDelegateDeathTest, RestoresTheActionsWithTheLastDelegate)
{
    const auto body = [] {
        for (const int number : cancellingSignals)
            std::signal(number, SIG_IGN);
        auto first = std::make_unique<PercentProgressDelegate>(),
             second = std::make_unique<PercentProgressDelegate>();
        first.reset();
        second.reset();
        bool isRestored = true;
        for (const int number : cancellingSignals)
            isRestored &= std::signal(number, SIG_IGN) == SIG_IGN;
        for (const int number : {SIGUSR1, SIGPWR, SIGRTMIN, SIGRTMAX})
            isRestored &= std::signal(number, SIG_DFL) == SIG_DFL;
        first = std::make_unique<PercentProgressDelegate>();
        second = std::make_unique<PercentProgressDelegate>();
        first.reset();
        for (const int number : cancellingSignals)
            raise(number);
        return isRestored && second->getCancelled();
    };
    expectInChild(body, "^" NOTICE NOTICE NOTICE NOTICE "$");
}

TEST(PercentProgressDelegateDeathTest, KeepsErrnoOfTheInterruptedCode)
{
    const auto body = [] {
        PercentProgressDelegate delegate;
        close(STDERR_FILENO); // so that the notice fails
        errno = ENOSPC;
        raise(SIGINT);
        return errno == ENOSPC;
    };
    expectInChild(body, "");
}

}} // namespace Quillmoran::Testing
