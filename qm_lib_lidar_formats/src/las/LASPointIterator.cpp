#include "las/LASPointIterator.h"

#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <utility>

namespace Quillmoran {

namespace {

constexpr const char* reading = "reading LAS file";
constexpr std::size_t maxSlicePoints = 16384;
constexpr std::size_t maxSampleSlicePoints = 4096; // a sample has a few thousand points
constexpr std::size_t maxSliceBytes = 1 << 20;     // for long records

} // namespace

LASPointIterator::LASPointIterator(File&& file, const PointInfo& layout)
    : m_io(file.io),
      m_header(file.header),
      m_chunks(file.chunks),
      m_wantedChunks(std::move(file.wantedChunks)),
      m_layout(layout),
      m_unpacker(file.header, file.channels, file.extraFields, layout)
{}

LASPointIterator::LASPointIterator(File file, const Bounds& bounds, double fraction, const PointInfo& layout,
                                   ProgressDelegate* delegate)
    : LASPointIterator(std::move(file), layout)
{
    init(bounds, fraction, layout, delegate);
    if (getFraction() == 0)
        return;
    chooseSlice(maxSlicePoints);
    if (LASReadAhead::suits(m_header, m_chunks, m_layout))
        m_ahead = std::make_unique<LASReadAhead>(&*m_io, m_header, m_chunks, m_wantedChunks, m_layout,
                                                 m_unpacker, getBounds());
    else
        openReader();
}

LASPointIterator::LASPointIterator(File file, std::uint64_t first, const PointInfo& layout)
    : LASPointIterator(std::move(file), layout)
{
    init(Bounds::Huge(), 1.0, layout, nullptr);
    chooseSlice(maxSampleSlicePoints);
    m_next = first;
    if (m_next == m_numPoints)
        return;
    openReader();
    m_reader->seek(m_next);
}

void LASPointIterator::chooseSlice(std::size_t maxPoints)
{
    m_numPoints = m_header.getPointCount();
    m_sliceSize = std::clamp<std::size_t>(maxSliceBytes / m_header.recordLength, 1, maxPoints);
    m_sliceSize = static_cast<std::size_t>(std::min<std::uint64_t>(m_numPoints, m_sliceSize));
}

void LASPointIterator::openReader()
{
    m_reader = LASRecordReader::create(&*m_io, m_header, m_chunks, m_layout);
    m_records.resize(m_sliceSize * m_reader->stride());
    for (std::size_t axis = 0; axis < 3; ++axis) {
        m_ownCoordinates[axis].resize(m_sliceSize);
        m_coordinates[axis] = m_ownCoordinates[axis].data();
    }
}

std::uint64_t LASPointIterator::skipUnwanted()
{
    if (m_wantedChunks.empty())
        return m_numPoints;
    const std::vector<std::uint64_t>& points = m_chunks.table->points;
    const auto current = m_wantedChunks.begin() + static_cast<std::ptrdiff_t>(m_chunks.table->find(m_next));
    const auto wanted = std::find(current, m_wantedChunks.end(), true);
    const auto end = std::find(wanted, m_wantedChunks.end(), false);
    if (wanted != current) {
        const std::uint64_t first = points[static_cast<std::size_t>(wanted - m_wantedChunks.begin())];
        if (getDelegate())
            getDelegate()->updateCompleted(static_cast<double>(first - m_next), reading);
        m_next = first;
        if (m_reader && m_next != m_numPoints)
            m_reader->seek(m_next);
    }
    return points[static_cast<std::size_t>(end - m_wantedChunks.begin())];
}

bool LASPointIterator::refill()
{
    m_cursor = m_fill = 0;
    if (m_next == m_numPoints)
        return false;
    if (m_sliceLeft == 0 && !nextSlice())
        return false;
    if (m_ahead)
        takeAhead();
    m_next += m_fill - m_cursor;
    return true;
}

bool LASPointIterator::nextSlice()
{
    const std::uint64_t end = skipUnwanted();
    if (m_next == m_numPoints)
        return false;
    if (getDelegate() && getDelegate()->getCancelled())
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(end - m_next, m_sliceSize));
    if (m_ahead && !m_ahead->decode(m_next + count)) {
        m_ahead.reset();
        openReader();
        m_reader->seek(m_next);
    }
    if (m_ahead)
        m_sliceLeft = count;
    else
        readSlice(count);
    if (getDelegate())
        getDelegate()->updateCompleted(static_cast<double>(count), reading);
    return true;
}

void LASPointIterator::readSlice(std::size_t count)
{
    m_reader->read(m_records.data(), count);
    for (std::size_t axis = 0; axis < 3; ++axis)
        m_unpacker.unpackCoordinate(m_ownCoordinates[axis].data(), axis, m_records.data(), m_reader->stride(),
                                    count);
    m_fill = count;
}

void LASPointIterator::takeAhead()
{
    m_run = m_ahead->take(m_sliceLeft);
    m_sliceLeft -= m_run.count;
    m_coordinates[0] = m_run.points->getX();
    m_coordinates[1] = m_run.points->getY();
    m_coordinates[2] = m_run.points->getZ();
    m_cursor = m_run.first;
    m_fill = m_run.first + m_run.count;
}

void LASPointIterator::copyRun(PointData& buffer, std::size_t filled, std::size_t first,
                               std::size_t count) const
{
    if (m_ahead) {
        PointData::copy(buffer, filled, *m_run.points, first, count);
        return;
    }
    const std::size_t stride = m_reader->stride();
    const double* const coordinates[] = {m_coordinates[0] + first, m_coordinates[1] + first,
                                         m_coordinates[2] + first};
    m_unpacker.unpack(buffer, filled, m_records.data() + first * stride, stride, count, coordinates);
}

std::size_t LASPointIterator::getNextPoints(PointData& buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.getNumSamples()) {
        if (m_cursor == m_fill && !refill())
            break;
        filled = takeKept(m_coordinates[0], m_coordinates[1], m_coordinates[2], m_cursor, m_fill, filled,
                          buffer.getNumSamples(), [&](std::size_t to, std::size_t first, std::size_t count) {
                              copyRun(buffer, to, first, count);
                          });
    }
    return filled;
}

} // namespace Quillmoran
