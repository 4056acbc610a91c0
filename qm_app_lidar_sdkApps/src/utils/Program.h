// The frame of every program's main().
#pragma once

#include <functional>
#include <string>

namespace Quillmoran::Utils {

// Runs a program and returns its exit status: 0 when `run` returned true. What it throws is printed as
// "Error: ..." on standard error; here and nowhere else are exceptions caught for good.
int runProgram(const std::function<bool()>& run);

// Prints "Warning: ..." on standard error, control characters escaped. The text names the file concerned.
void warn(const std::string& text);

// For programs that write files: what they print can be read by a program that ends before.
void ignoreBrokenPipes();

// Ends a report on standard output: -1 "cannot write the report" when some of it was lost.
void finishReport();

} // namespace Quillmoran::Utils
