// What an input may cost. docs/robustness.md promises these bounds; the fuzzers hold every input to them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Quillmoran::Fuzz {

// Watches the memory and the processor time of the process from its construction on.
class Limits
{
public:
    explicit Limits(std::size_t inputBytes);

    // Ends the process with a message when the run took more memory than its input allows, or more time than
    // its input and the samples decoded do.
    void check(std::uint64_t samples) const;

private:
    std::size_t m_inputBytes;
    double m_begin; // seconds of processor time
};

} // namespace Quillmoran::Fuzz
