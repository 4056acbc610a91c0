// Limits on memory and time for an input. docs/robustness.md promises them; the fuzzers check every input.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Quillmoran::Fuzz {

// Measures the memory and the CPU time of the process since its construction.
class Limits
{
public:
    explicit Limits(std::size_t inputBytes);

    // Ends the process with a message if the run used more memory than its input allows, or more time than its
    // input and the samples decoded allow.
    void check(std::uint64_t samples) const;

private:
    std::size_t m_inputBytes;
    double m_begin; // seconds of CPU time
};

} // namespace Quillmoran::Fuzz
