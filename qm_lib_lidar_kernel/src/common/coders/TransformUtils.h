// Transform codes. A code names the coder of a channel's bands and the lifting steps that undo its
// decomposition: the last digit is the lifting order (0 none, 1 or 3), codes 10 to 13, 70 to 73 and 90 to 93
// have no update step.
//
//   MQ-coded integers          1  3  10  11  13
//   arithmetic-coded integers 81 83  90  91  93
//   deflated floating point   61 63  70  71  73
#pragma once

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

using TransformType = std::uint8_t;

namespace TransformUtils {

enum class Coder
{
    MQ,
    Arithmetic,
    Deflate
};

// Every function refuses a code that is not in the table: -1 "bad transform type".
Coder getCoder(TransformType type);
// The coder and the lifting, for people: "MQ, order 1 prediction".
const char* toString(TransformType type);
// Bits that the transform may add to a sample.
int getHeadroom(TransformType type);
bool isInteger(TransformType type);
bool isFloatingPoint(TransformType type);
// Whether bands are lifted at all: the lifting order is not 0.
bool isWavelet(TransformType type);
// Whether the low bands are smoothed. Without an update step they hold samples of the channel itself.
bool hasUpdate(TransformType type);
// How many neighbours on each side a lifting step reads: 1, or 2 for the third order.
std::size_t getPadding(TransformType type);

} // namespace TransformUtils

} // namespace Quillmoran
