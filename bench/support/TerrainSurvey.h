// An airborne survey made up on the fly: flight lines of zigzag scan lines over hills, woods with up to three
// returns a pulse, the 16 channels of the LAS records that carry time and colour. A number of points always
// gives the same ones, and no more than one pulse is held.
#pragma once

#include <vxunpack/PointSource.h>

namespace Quillmoran::Benchmarks {

class TerrainSurvey final : public PointReader
{
public:
    static Scoped<TerrainSurvey> make(std::int64_t numPoints);

    const char* getFileFormatString() const override { return "generated survey"; }
    void loadMetadata(Metadata&, bool) const override {}
    double getTotalWork(const Bounds&, double) const override { return static_cast<double>(getNumPoints()); }
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    TerrainSurvey() = default;
};

} // namespace Quillmoran::Benchmarks
