// Prints what the rows took, the ratios between them, and which goals they meet.
#pragma once

#include "apps/CompareRun.h"

#include <string>
#include <vector>

namespace Quillmoran::Benchmarks {

enum class Mode
{
    goals, // judges inputs that are large enough
    check, // judges all, by the floors
    smoke  // judges nothing
};

void printHeading(const Surroundings& surroundings, Mode mode, int numRounds);

// Returns what is below its floor, in words: nothing unless the mode is check.
std::vector<std::string> printTable(const RowTable& table, const Input& input,
                                    const std::vector<RowResult>& results, Mode mode);

} // namespace Quillmoran::Benchmarks
