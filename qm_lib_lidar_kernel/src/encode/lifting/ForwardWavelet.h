// The lifting steps of one level of the forward transform: predict replaces the odd samples by their
// differences from predictions, update then smooths the even samples. They read the same cells outside their
// counted ranges as the steps of decode/lifting/InverseWavelet.h, and are their exact inverses.
#pragma once

#include "common/lifting/Lifting.h"

namespace Quillmoran::TransformUtils {

// The steps for a kernel type and a transform. InvalidArgument: "unkown wavelet type", "unkown datatype".
inline void getForwardWavelet(DataType type, TransformType transform, LiftingStep& predict,
                              LiftingStep& update)
{
    Lifting::choose<Lifting::Direction::Forward>(type, transform, predict, update);
}

} // namespace Quillmoran::TransformUtils
