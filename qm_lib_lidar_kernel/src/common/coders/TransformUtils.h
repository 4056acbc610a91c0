// Transform codes. A code names the coder of a channel's bands and the lifting steps of its decomposition.
// The last digit is the lifting order (0 none, 1 or 3); codes 10 to 13, 70 to 73 and 90 to 93 have no update
// step.
//
//   MQ-coded integers          1  3  10  11  13
//   arithmetic-coded integers 81 83  90  91  93
//   deflated floating point   61 63  70  71  73
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Quillmoran {

struct Coder;
struct LiftingScheme;

using TransformType = std::uint8_t;

namespace TransformUtils {

bool isKnown(TransformType type) noexcept;
// The other functions refuse an unknown code: General "bad transform type".
const Coder& getCoder(TransformType type);
const LiftingScheme& getLifting(TransformType type);
// Human-readable: "MQ, order 1 prediction".
std::string toString(TransformType type);
// Bits that the transform may add to a sample.
int getHeadroom(TransformType type);
bool isInteger(TransformType type);
bool isFloatingPoint(TransformType type);
// Whether bands are lifted: the lifting order is not 0.
bool isWavelet(TransformType type);
// Whether low bands are smoothed. Without an update step they hold samples of the channel itself.
bool hasUpdate(TransformType type);
// Neighbours that a lifting step reads on each side: 1, or 2 for the third order.
std::size_t getPadding(TransformType type);

} // namespace TransformUtils

} // namespace Quillmoran
