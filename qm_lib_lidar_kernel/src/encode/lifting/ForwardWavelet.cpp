#include "encode/lifting/ForwardWavelet.h"

namespace Quillmoran {

void TransformUtils::getForwardWavelet(DataType type, TransformType transform, LiftingStep& predict,
                                       LiftingStep& update)
{
    Lifting::choose<Lifting::Forward>(type, transform, predict, update);
}

} // namespace Quillmoran
