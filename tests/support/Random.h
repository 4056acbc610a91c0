// A random number generator whose numbers for a seed are the same with every standard library.
#pragma once

#include <cstdint>
#include <span>

namespace Quillmoran::Testing {

// xorshift64*
class Random
{
public:
    explicit Random(std::uint64_t seed) : m_state(seed * 2685821657736338717u + 88172645463325252u) {}

    // Bytes that a fuzzer chooses give the first numbers, two bytes each; a byte changes no other number.
    explicit Random(std::span<const std::uint8_t> choices) : Random(0) { m_choices = choices; }

    std::uint64_t next()
    {
        if (m_choices.size() >= 2) {
            const std::uint64_t choice = m_choices[0] + 256u * m_choices[1];
            m_choices = m_choices.subspan(2);
            return Random(choice).next();
        }
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        return m_state * 2685821657736338717u;
    }
    // In [0, bound).
    std::uint64_t below(std::uint64_t bound) { return (next() >> 11) % bound; }
    // In [low, high], both included.
    std::int64_t between(std::int64_t low, std::int64_t high)
    {
        return low + static_cast<std::int64_t>(below(static_cast<std::uint64_t>(high - low) + 1));
    }
    // In [0, 1).
    double real() { return static_cast<double>(next() >> 11) * 0x1p-53; }
    bool chance(double probability) { return real() < probability; }

private:
    std::uint64_t m_state;
    std::span<const std::uint8_t> m_choices;
};

} // namespace Quillmoran::Testing
