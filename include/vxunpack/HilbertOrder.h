// Delivers a source's points in the order of a Hilbert curve over X and Y, so that points close to each other
// on the ground are close to each other in the sequence. Points in the same cell of the curve keep the
// source's order. PointOrder describes memory, errors and threads.
#pragma once

#include <vxunpack/PointOrder.h>

namespace Quillmoran {

class QM_API HilbertOrder final : public PointOrder
{
public:
    static HilbertOrder* create() { return new HilbertOrder; }

private:
    HilbertOrder() = default;
    ~HilbertOrder() override;

    Keys makeKeys(const Bounds& bounds, PointInfo& layout) const override;
    const char* getOrderName() const override { return "hilbert"; }
};

} // namespace Quillmoran
