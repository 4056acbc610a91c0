// A fuzz target reads one kind of input from strangers. Each file of targets/ defines run(); FuzzEntry.cpp
// calls it under the bounds of Limits.h, for libFuzzer or for the replay of stored inputs (ReplayMain.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Quillmoran::Fuzz {

using Input = std::span<const std::uint8_t>;

// Handles the input as a program would. An Error is one of the right outcomes; another exception, a memory
// fault, a failed require(), or more memory or time than the bounds allow is a finding. Returns how many
// samples were decoded: the time that they take is not the input's fault.
std::uint64_t run(Input input);

// Ends the process with the text unless the condition holds: for properties that every input has.
void require(bool condition, const char* text);

} // namespace Quillmoran::Fuzz
