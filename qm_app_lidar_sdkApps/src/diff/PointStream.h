// The points of one of two clouds that are read at the same time: full blocks, counted and measured.
#pragma once

#include <vxunpack/PointSource.h>
#include <vxunpack/ProgressDelegate.h>

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace Quillmoran {

// Passes the progress of one of several operations, each on a thread of its own, to the delegate that they
// share.
class SharedProgress final : public ProgressDelegate
{
public:
    // Both must outlive this object. `activity` is a literal.
    SharedProgress(ProgressDelegate& shared, std::mutex& mutex, const char* activity);

    void reportProgress(double work, const char* message) override;
    bool getCancelled() override { return m_shared.getCancelled(); }
    // Prints a warning on standard error.
    void displayWarning(const char* text) override;

    void checkCancelled();

private:
    ProgressDelegate& m_shared;
    std::mutex& m_mutex;
    const char* const m_activity;
    double m_reported = 0; // points
};

// Used by one thread at a time.
class PointStream
{
public:
    // Reads all points with the channels of the layout. The source and the delegate must outlive the stream.
    PointStream(const PointSource& source, const PointInfo& layout, ProgressDelegate& progress);

    // Fills the block, which has the layout, and returns the number of points; fewer only at the end.
    std::size_t read(PointData& block);

    // Of the points that were read.
    std::uint64_t getNumPoints() const noexcept { return m_numPoints; }
    const Bounds& getBounds() const noexcept { return m_bounds; }

private:
    Scoped<PointIterator> m_points;
    std::uint64_t m_numPoints = 0;
    Bounds m_bounds;
    bool m_isAtEnd = false;
};

} // namespace Quillmoran
