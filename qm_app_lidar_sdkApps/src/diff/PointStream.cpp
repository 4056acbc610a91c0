#include "diff/PointStream.h"

#include "utils/program/Program.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

namespace {

void grow(Bounds::Range& range, const double* samples, std::size_t count)
{
    Bounds::Range grown = range;
    for (std::size_t i = 0; i < count; ++i)
        grown.grow(samples[i]);
    range = grown;
}

} // namespace

SharedProgress::SharedProgress(ProgressDelegate& shared, std::mutex& mutex, const char* activity)
    : m_shared(shared), m_mutex(mutex), m_activity(activity)
{
    setTotal(1); // reportProgress() then gets the completed work
}

void SharedProgress::reportProgress(double work, const char*)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_shared.updateCompleted(work - m_reported, m_activity);
    m_reported = work;
}

void SharedProgress::displayWarning(const char* text)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Utils::warn(text);
}

void SharedProgress::checkCancelled()
{
    if (getCancelled())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
}

PointStream::PointStream(const PointSource& source, const PointInfo& layout, ProgressDelegate& progress)
    : m_points(source.createIterator(Bounds::Huge(), 1.0, layout, &progress))
{}

std::size_t PointStream::read(PointData& block)
{
    // Iterators end a block where it suits them, for example at the end of a tile.
    const std::size_t capacity = block.getNumSamples();
    std::size_t filled = 0;
    while (filled < capacity && !m_isAtEnd) {
        block.setOffset(filled);
        const std::size_t count = m_points->getNextPoints(block);
        m_isAtEnd = count == 0;
        filled += count;
    }
    block.setOffset(0);
    grow(m_bounds.x, block.getX(), filled);
    grow(m_bounds.y, block.getY(), filled);
    grow(m_bounds.z, block.getZ(), filled);
    m_numPoints += filled;
    return filled;
}

} // namespace Quillmoran
