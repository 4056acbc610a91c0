// Rounds the coordinates of its source to a grid: the nearest multiples of a step on each axis, counted from
// the source's own offset, or from 0. Whoever wants a smaller file and can do with coarser coordinates puts
// it in front of a writer.
#pragma once

#include <vxunpack/PointSource.h>

#include <optional>

namespace Quillmoran {

class QM_API QuantizeFilter final : public PointFilter
{
public:
    static QuantizeFilter* create();

    // Three steps; InvalidArgument "a step must be above 0: %g" when one is not, or is not finite.
    void init(PointSource* source, const double* steps);

    const PointInfo& getPointInfo() const override { return m_info; }
    const Bounds& getBounds() const override;
    const double* getScale() const override { return m_scale; }
    const double* getOffset() const override { return m_offset; }
    // The box meets rounded coordinates: a point that rounds into it is kept when the layout's steps are this
    // filter's, as those of getPointInfo() are.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    class Iterator;

    QuantizeFilter() = default;

    PointInfo m_info;
    mutable std::optional<Bounds> m_bounds; // once they are asked for, which can cost a source a pass
    double m_scale[3] = {0, 0, 0};
    double m_offset[3] = {0, 0, 0};
};

} // namespace Quillmoran
