// The lifting steps that undo one level of a one-dimensional wavelet decomposition (the second generation of
// wavelets; the first-order integer pair is the reversible 5/3 transform of JPEG 2000). A level of S samples
// consists of ceil(S / 2) low and floor(S / 2) high samples:
//
//   low:   l0    l1    l2            update:  l -= f(neighbouring h)     samples 0, 2, 4 ... are l
//   high:     h0    h1               predict: h += g(neighbouring l)     samples 1, 3, 5 ... are h
//
// The steps do not handle boundaries. They read cells outside the counted ranges; the caller fills these
// first:
//
//   update_ORDER1   high -1 .. lowCount - 1      predict_ORDER1   low  0 .. highCount
//   update_ORDER3   high -2 .. lowCount          predict_ORDER3   low -1 .. highCount + 1
#pragma once

#include "common/lifting/Lifting.h"

namespace Quillmoran::TransformUtils {

// The steps for a kernel type and a transform. InvalidArgument: "unkown wavelet type", "unkown datatype".
inline void getInverseWavelet(DataType type, TransformType transform, LiftingStep& predict,
                              LiftingStep& update)
{
    Lifting::choose<Lifting::Direction::Inverse>(type, transform, predict, update);
}

} // namespace Quillmoran::TransformUtils
