// A source over and over: each copy stands beside the one before, and is younger. For whole queries; the
// wrapped source's points must keep to its grid and be within its bounds.
#pragma once

#include "framework/PointSource.h"

namespace Quillmoran::Benchmarks {

class TiledSource final : public PointFilter
{
public:
    static Scoped<TiledSource> make(PointSource* source, std::int64_t numCopies);

    std::int64_t getNumPoints() const override { return getSrc()->getNumPoints() * m_numCopies; }
    const Bounds& getBounds() const override { return m_bounds; }
    double getTotalWork(const Bounds&, double) const override { return static_cast<double>(getNumPoints()); }
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    explicit TiledSource(std::int64_t numCopies) : m_numCopies(numCopies) {}

    std::int64_t m_numCopies;
    double m_width = 0;    // from one copy to the next
    double m_duration = 0; // likewise
    Bounds m_bounds;
};

} // namespace Quillmoran::Benchmarks
