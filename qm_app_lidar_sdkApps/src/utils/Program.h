// The frame of every program's main().
#pragma once

#include <vxunpack/IO.h>

#include <functional>
#include <string>

namespace Quillmoran::Utils {

// Runs a program and returns its exit status: 0 when `run` returned true. What it throws is printed as
// "Error: ..." on standard error; here and nowhere else are exceptions caught for good.
int runProgram(const std::function<bool()>& run);

// Prints "Warning: ..." on standard error, control characters escaped. The text names the file concerned.
void warn(const std::string& text);

// For programs that write files: writing to a pipe whose reader has ended, or beyond the limit of a file's
// size, is an error instead of a signal that ends the process.
void ignoreWriteSignals();

// Whether the path names the file that is standard output, as /dev/stdout does.
bool isStandardOutput(const char* path);
// Lets what the program prints go to standard error, so that it does not mix with data. Returns an IO that
// writes, in order, to what was standard output.
Scoped<IO> divertStandardOutput(const char* name);

// Ends a report on standard output: -1 "cannot write the report" when some of it was lost.
void finishReport();

} // namespace Quillmoran::Utils
