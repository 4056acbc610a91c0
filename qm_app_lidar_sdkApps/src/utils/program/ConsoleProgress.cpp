#include "utils/program/ConsoleProgress.h"

#include "text/Printable.h"
#include "utils/program/Program.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace Quillmoran::Utils {

namespace {

std::mutex statusMutex; // of the two variables
std::chrono::steady_clock::time_point nextStatus;
bool isStatusShown = false;

std::atomic<bool> isFrameShown = false; // of ConsoleProgress

// A longer line would wrap, and could not be erased.
std::size_t getTerminalWidth()
{
    constexpr std::size_t usual = 80;
    struct winsize size = {};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usual;
}

// "0:07", "1:02:03"
std::string formatDuration(double seconds)
{
    constexpr double longest = 359999; // 99 hours
    const long whole = std::lround(std::clamp(seconds, 0.0, longest));
    char text[32];
    if (whole < 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
    return text;
}

// "950", "12.3 k", "4.56 M"
std::string formatCount(double count)
{
    static constexpr const char* prefixes[] = {"", " k", " M", " G", " T"};
    const char* const* prefix = prefixes;
    for (; count >= 999.5 && prefix + 1 != std::end(prefixes); ++prefix)
        count /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, "%.3g%s", count, *prefix);
    return text;
}

} // namespace

ConsoleProgress::ConsoleProgress() : m_isTerminal(::isatty(STDOUT_FILENO) == 1)
{}

void ConsoleProgress::reportProgress(double fraction, const char* message)
{
    constexpr double almostDone = 0.9999; // rounding must not show 100 %
    m_message = message;
    if (!m_isTerminal || isQuiet() || fraction > almostDone)
        return;
    isFrameShown = true;
    PercentProgressDelegate::reportProgress(fraction, message);
}

void ConsoleProgress::finish()
{
    if (isQuiet())
        return;
    if (m_message)
        PercentProgressDelegate::reportProgress(1, m_message);
    std::putchar('\n');
    isFrameShown = false;
}

void ConsoleProgress::displayWarning(const char* text)
{
    if (!isQuiet())
        PercentProgressDelegate::displayWarning(printable(text).c_str());
}

ProgressLine::~ProgressLine()
{
    StatusLine::erase();
}

void ProgressLine::reportProgress(double fraction, const char* message)
{
    // A reader and the operation that asks it report in turn. The line names the operation.
    constexpr std::string_view ofReader = "reading ";
    if (!m_activity || std::string_view(message).substr(0, ofReader.size()) != ofReader)
        m_activity = message;
    const Clock::time_point now = Clock::now();
    if (getCompleted() < m_completed)
        m_begin = now; // of another operation
    m_completed = getCompleted();
    if (!StatusLine::isDue())
        return;
    const double seconds = std::chrono::duration<double>(now - m_begin).count();
    StatusLine::draw(StatusLine::formatPercentage(fraction) + std::exchange(m_activity, nullptr) +
                     StatusLine::formatTimeLeft(fraction, seconds, m_completed, m_unit));
}

void ProgressLine::displayWarning(const char* text)
{
    warn(text);
}

bool StatusLine::isDue()
{
    static const bool isTerminal = ::isatty(STDERR_FILENO) == 1;
    constexpr std::chrono::milliseconds interval(100);
    if (!isTerminal || isQuiet())
        return false;
    const std::lock_guard<std::mutex> lock(statusMutex);
    const auto now = std::chrono::steady_clock::now();
    if (now < nextStatus)
        return false;
    nextStatus = now + interval;
    return true;
}

void StatusLine::draw(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(statusMutex);
    std::fprintf(stderr, "\r%s\033[K", text.substr(0, getTerminalWidth() - 1).c_str());
    std::fflush(stderr);
    isStatusShown = true;
}

void StatusLine::erase()
{
    const std::lock_guard<std::mutex> lock(statusMutex);
    if (std::exchange(isStatusShown, false))
        std::fputs("\r\033[K", stderr);
}

std::string StatusLine::formatPercentage(double fraction)
{
    fraction = std::isfinite(fraction) ? std::clamp(fraction, 0.0, 0.999) : 0;
    char text[16];
    std::snprintf(text, sizeof text, "%5.1f%%  ", fraction * 100);
    return text;
}

std::string StatusLine::formatTimeLeft(double fraction, double seconds, double completed, const char* unit)
{
    constexpr double settled = 0.5; // seconds
    if (!(seconds > settled) || !std::isfinite(fraction) || !(fraction > 0))
        return {};
    const std::string rate = unit ? "  " + formatCount(completed / seconds) + ' ' + unit + "/s" : "";
    return rate + "  " + formatDuration(seconds * (1 - std::min(fraction, 1.0)) / fraction) + " left";
}

void endProgressLine()
{
    StatusLine::erase();
    if (isFrameShown.exchange(false))
        std::putchar('\n');
    std::fflush(stdout);
}

} // namespace Quillmoran::Utils
