// A source whose points a function makes, block by block. The function is called once per block and iterator, in
// the order of the points; iterators on several threads call it at the same time.
#pragma once

#include <vxunpack/Cloud.h>
#include <vxunpack/PointSource.h>

#include <functional>

namespace Quillmoran {

class GeneratedSource final : public PointReader
{
public:
    using Fill = std::function<void(std::uint64_t first, const vx::MutableBlock& block)>;

    // Errors: InvalidArgument for a layout without X, Y and Z and for more points than a source can have.
    static GeneratedSource* create(const PointInfo& layout, std::uint64_t numPoints, const Bounds& bounds,
                                   Fill fill);

    const char* getFileFormatString() const override { return "Memory"; }
    void loadMetadata(Metadata&, bool) const override {}
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    class Iterator;

    explicit GeneratedSource(Fill fill) : m_fill(std::move(fill)) {}

    const Fill m_fill;
};

} // namespace Quillmoran
