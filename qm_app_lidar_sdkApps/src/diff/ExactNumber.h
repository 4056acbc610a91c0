// Numbers of any sample type in one form, so that samples of different types compare by value: UINT8 5 equals
// FLOAT64 5.0, and SINT64 2^53 + 1 equals no FLOAT64. Equal numbers have equal bytes.
#pragma once

#include <vxunpack/DataType.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

namespace Quillmoran {

// A sample for reports, exact.
using Sample = std::variant<std::int64_t, std::uint64_t, double>;

// Decimal; of a floating-point number the fewest digits that read back as the same number.
std::string toText(const Sample& sample);

struct ExactNumber
{
    enum Kind : std::uint64_t
    {
        Signed,   // an integer of at most 63 bits and a sign
        Unsigned, // a larger integer
        Real      // every other number, infinities and NaNs
    };

    std::uint64_t kind;
    std::uint64_t bits;

    bool operator==(const ExactNumber& other) const noexcept
    {
        return kind == other.kind && bits == other.bits;
    }
    Sample toSample() const noexcept;
};

// -0.0 becomes 0. Does nothing for an unknown type.
void toExactNumbers(ExactNumber* numbers, const void* samples, DataType type, std::size_t count);

} // namespace Quillmoran
