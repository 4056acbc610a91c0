// A fuzz target handles one kind of untrusted input as a program would. libFuzzer calls one of them
// (FuzzEntry.cpp); the tests call all of them, with stored inputs (replay.cpp) and with damaged files
// (DamageTest.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace Quillmoran::Fuzz {

using Input = std::span<const std::uint8_t>;

// Runs a target, and returns false if it refuses the input with an Error. Any other exception, a memory fault,
// and more memory or time than docs/robustness.md promises are faults of the code.
bool handlesInput(const std::string& target, Input input);

// An input has shown a fault.
struct Finding : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// Throws a Finding unless the condition holds: for properties that every input must have.
inline void require(bool condition, const char* text)
{
    if (!condition)
        throw Finding(text);
}

// Each returns the number of samples decoded, for which the limits allow additional time.
std::uint64_t runCommandLine(Input input);
std::uint64_t runContainer(Input input);
std::uint64_t runLAS(Input input);
std::uint64_t runList(Input input);
std::uint64_t runMetadata(Input input);
std::uint64_t runPack(Input input);
std::uint64_t runRTree(Input input);
std::uint64_t runSubblocks(Input input);
std::uint64_t runText(Input input);
std::uint64_t runTileSet(Input input);

} // namespace Quillmoran::Fuzz
