// The frame of every program's main().
#pragma once

#include <functional>

namespace Quillmoran::Utils {

// Runs a program and returns its exit status: 0 when `run` returned true. What it throws is printed as
// "Error: ..." on standard error; here and nowhere else are exceptions caught for good.
int runProgram(const std::function<bool()>& run);

} // namespace Quillmoran::Utils
