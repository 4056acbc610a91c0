// Rounds the coordinates of its source to a grid: on each axis to the nearest multiple of a step, counted
// from the source's offset, or from 0. Coarser coordinates make smaller files.
#pragma once

#include <vxunpack/PointSource.h>

#include <optional>

namespace Quillmoran {

class QM_API QuantizeFilter final : public PointFilter
{
public:
    static QuantizeFilter* create() { return new QuantizeFilter; }

    // Retains the source. `steps` has the steps of X, Y and Z in the source's units. Throws InvalidArgument
    // "a step must be above 0: %g" unless all of them are finite and above 0.
    void init(PointSource* source, const double* steps);

    const PointInfo& getPointInfo() const override { return m_info; }
    // Queries the source at the first call, which makes some sources read all points. Must not be called by
    // several threads at a time.
    const Bounds& getBounds() const override;
    // Without the bounds of the points before rounding, and the counts that belong to them.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    const double* getScale() const override { return m_scale; }
    const double* getOffset() const override { return m_offset; }
    // The box applies to rounded coordinates if the layout has this filter's steps as quantization, as
    // getPointInfo() does. Throws InvalidArgument before init().
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override;

private:
    class QM_HIDDEN Iterator;

    QuantizeFilter() = default;

    PointInfo m_info;
    mutable std::optional<Bounds> m_bounds; // set at the first request
    double m_scale[3] = {0, 0, 0};
    double m_offset[3] = {0, 0, 0};
};

} // namespace Quillmoran
