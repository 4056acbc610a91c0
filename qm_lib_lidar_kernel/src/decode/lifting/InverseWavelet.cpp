#include "decode/lifting/InverseWavelet.h"

namespace Quillmoran {

void TransformUtils::getInverseWavelet(DataType type, TransformType transform, LiftingStep& predict,
                                       LiftingStep& update)
{
    Lifting::choose<Lifting::Inverse>(type, transform, predict, update);
}

} // namespace Quillmoran
