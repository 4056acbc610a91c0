// The progress that programs show on a terminal. Logs and pipes get none of it.
#pragma once

#include "framework/PercentProgressDelegate.h"

#include <chrono>
#include <string>

namespace Quillmoran::Utils {

// Frames of vxunpack on standard output: a percentage that overwrites itself. Without a terminal there is only
// the last frame.
//
// Parts of the total work are estimates, such as the lines of a text file or the points in a box. The frames
// show at most 99.99 % before finish(), so 100 % means that the run succeeded.
class ConsoleProgress final : public PercentProgressDelegate
{
public:
    ConsoleProgress();

    void reportProgress(double fraction, const char* message) override;
    // Escapes control characters of names from files.
    void displayWarning(const char* text) override;
    // Shows 100 % of the last activity and ends the line. Call it when the output is complete.
    void finish();

private:
    const bool m_isTerminal;
    const char* m_message = nullptr;
};

// The line of the other programs, on standard error: activity, percentage, rate and time left.
class ProgressLine final : public PercentProgressDelegate
{
public:
    // `unit`, a literal, is what the operation counts.
    explicit ProgressLine(const char* unit = "points") : m_unit(unit) {}
    ~ProgressLine() override;

    void reportProgress(double fraction, const char* message) override;
    void displayWarning(const char* text) override;

private:
    using Clock = std::chrono::steady_clock;

    const char* const m_unit;
    Clock::time_point m_begin = Clock::now();
    double m_completed = 0;
    const char* m_activity = nullptr; // since the last frame
};

// The last line of a terminal, drawn on standard error and erased before anything else is printed. Several
// threads may use it at the same time.
namespace StatusLine {

// Whether a line should be drawn now: on a terminal, unless the run is quiet, ten times a second.
bool isDue();
void draw(const std::string& text);
void erase();

// The beginning of a line, " 12.3%  ". Less than 100 %, and 0 for what is not a number.
std::string formatPercentage(double fraction);
// The end of a line: "  RATE UNIT/s  0:07 left" after `seconds`, without the rate if there is no unit. Empty while
// the rate says nothing yet.
std::string formatTimeLeft(double fraction, double seconds, double completed = 0, const char* unit = nullptr);

} // namespace StatusLine

// Erases the line of progress, or ends the line of a frame, so that a message can be printed.
void endProgressLine();

} // namespace Quillmoran::Utils
