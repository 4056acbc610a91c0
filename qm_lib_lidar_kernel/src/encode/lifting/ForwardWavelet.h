// The lifting steps of one level of the forward transform: predict replaces the odd samples by what their
// even neighbours do not tell, update then smooths the even samples. The cells that the steps read outside
// their counted ranges are those of decode/lifting/InverseWavelet.h, with which they are exact inverses of each
// other.
#pragma once

#include "common/lifting/Lifting.h"

namespace Quillmoran {

namespace TransformUtils {

// The steps for a kernel type and a transform. Errors InvalidArgument: "unkown wavelet type", "unkown datatype".
void getForwardWavelet(DataType type, TransformType transform, LiftingStep& predict, LiftingStep& update);

} // namespace TransformUtils

} // namespace Quillmoran
