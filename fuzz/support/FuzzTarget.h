// A fuzz target reads one kind of untrusted input. Each file of targets/ defines run(); FuzzEntry.cpp calls it
// within the limits of Limits.h, for libFuzzer or for the replay of stored inputs (ReplayMain.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Quillmoran::Fuzz {

using Input = std::span<const std::uint8_t>;

// Handles the input as a program would. An Error is a correct outcome; another exception, a memory fault, a
// failed require(), or more memory or time than the limits allow is a finding. Returns the number of samples
// decoded, for which the limits allow additional time.
std::uint64_t run(Input input);

// Ends the process with the text unless the condition holds: for properties that every input must have.
void require(bool condition, const char* text);

} // namespace Quillmoran::Fuzz
