// A source over and over: each copy stands beside the one before, or above one of the row below, and is
// younger. For whole queries; the wrapped source's points must keep to its grid and be within its bounds.
#pragma once

#include <vxunpack/PointSource.h>

namespace Quillmoran::Benchmarks {

struct Tiling
{
    std::int64_t numCopies = 1;
    bool isSquare = false; // rows of copies that cover about a square; else a single row
    // Intensities get a random whole number of up to this added or taken off, so that copies differ.
    int intensityNoise = 0;
};

class TiledSource final : public PointFilter
{
public:
    static Scoped<TiledSource> make(PointSource* source, const Tiling& tiling);

    std::int64_t getNumPoints() const override { return getSrc()->getNumPoints() * m_tiling.numCopies; }
    const Bounds& getBounds() const override { return m_bounds; }
    double getTotalWork(const Bounds&, double) const override { return static_cast<double>(getNumPoints()); }
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    friend class TiledIterator;

    explicit TiledSource(const Tiling& tiling) : m_tiling(tiling) {}

    Tiling m_tiling;
    std::int64_t m_numColumns = 1;
    // From one copy to the next.
    double m_width = 0;
    double m_height = 0;
    double m_duration = 0;
    Bounds m_bounds;
};

} // namespace Quillmoran::Benchmarks
