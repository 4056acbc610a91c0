#include <vxunpack/LASPointWriter.h>

#include "model/ChannelNames.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cmath>
#include <string_view>

namespace Quillmoran {

namespace {

constexpr const char* activity = "writing LAS file";
constexpr std::size_t sliceSize = 16384; // points
// Under way at a time: enough that the next block of points is decoded while those of one are written.
constexpr std::size_t mostSlices = 6;
constexpr std::uint64_t mostLegacyPoints = UINT32_MAX;

std::uint32_t legacyCount(std::uint64_t count)
{
    return count > mostLegacyPoints ? 0 : static_cast<std::uint32_t>(count);
}

bool isTime(const LASField& field)
{
    const std::string_view name = field.channel;
    return name == ChannelNames::gpsTime || name == ChannelNames::gpsTimeAdjusted;
}

} // namespace

LASPointWriter* LASPointWriter::create()
{
    return new LASPointWriter;
}

void LASPointWriter::init(PointSource* source, const char* path, FileVersion version)
{
    PointWriter::init(source);
    m_path = path;
    m_version = version;
}

LASPointFormat LASPointWriter::getRecordFormat(const PointInfo& layout)
{
    return LASFileHead::chooseFormat(layout);
}

LASPointWriter::FileVersion LASPointWriter::getFileVersion(const PointInfo& layout)
{
    return LASFileHead::chooseVersion(layout);
}

bool LASPointWriter::lasSupportedChannels(const PointInfo& wanted, PointInfo& supported)
{
    PointInfo kept;
    for (std::size_t i = 0; i < wanted.getNumChannels(); ++i)
        if (LASFields::isKnown(wanted.getChannel(i).getName()))
            kept.append(wanted.getChannel(i));
    supported = std::move(kept);
    return supported.getNumChannels() != wanted.getNumChannels();
}

void LASPointWriter::writeBegin(const PointInfo& layout)
{
    checkQuantization();
    LASFileHead::Request request;
    request.version = m_version;
    request.compressed = m_writeLAZ;
    request.overrideProjection = m_overrideProjection;
    request.scale = getScale();
    request.offset = getOffset();
    request.wkt = getSrc()->getWKT();
    const LASFileHead head = LASFileHead::make(layout, getMetadata(), request);
    m_header = head.header;
    m_losesCoordinateSystem = head.losesCoordinateSystem;
    m_summary = {};
    m_total = 0;
    chooseColumns(layout);

    openOutput(head.records);
    m_writer = LASRecordWriter::create(*m_output, m_header);
    m_queue.emplace([this](const Slice& slice) { m_writer->write(slice.records.data(), slice.count); },
                    mostSlices);
}

void LASPointWriter::chooseColumns(const PointInfo& layout)
{
    m_columns.clear();
    m_otherTime.reset();
    m_timeConflict.reset();
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        if (!LASFields::isKnown(channel.getName()))
            QM_THROW(ErrorCode::NotRepresentable, "invalid LAS field: %s", channel.getName());
        const auto field = LASFields::find(m_header.pointFormat, channel.getName());
        if (!field)
            continue;
        const auto earlier = std::find_if(m_columns.begin(), m_columns.end(), [&](const Column& column) {
            return isTime(column.field) && isTime(*field);
        });
        if (earlier != m_columns.end()) {
            if (std::string_view(field->channel) != earlier->field.channel) {
                m_otherTime = earlier->channel;
                m_timeConflict = TimeConflict{field->channel, earlier->field.channel};
            }
            m_columns.erase(earlier);
        }
        m_columns.push_back({i, channel.getDataType(), *field});
    }
}

bool LASPointWriter::hasForeignScanAngles() const noexcept
{
    for (const Column& column : m_columns) {
        const bool holdsSteps =
            !DataTypeUtils::isFloat(column.type) && DataTypeUtils::getSize(column.type) > 1;
        if (std::string_view(column.field.channel) == ChannelNames::scanAngle)
            return holdsSteps != m_header.pointFormat.isExtended();
    }
    return false;
}

void LASPointWriter::openOutput(const std::vector<unsigned char>& records)
{
    try {
        m_partial.emplace(m_path.c_str());
        m_partial->requireSeekable("LAS");
        m_partial->io()->open();
        m_output = Scoped<FileIO::Imp>::retained(m_partial->io());
        writeBytes(0, m_header.write());
        writeBytes(m_header.headerSize, records);
    } catch (const Error& error) {
        if (error.code() == ErrorCode::OutputCreate)
            throw;
        QM_THROW(ErrorCode::OutputCreate, "Unable to create output %s. %s", m_path.c_str(), error.what());
    }
}

void LASPointWriter::writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate)
{
    if (delegate) {
        delegate->updateCompleted(0, activity);
        if (delegate->getCancelled())
            QM_THROW(ErrorCode::Cancelled, "LAS Write operation cancelled.");
    }
    m_total += count;
    throwIfTooMany();
    bool fits = true;
    try {
        for (std::size_t first = 0; first < count; first += sliceSize) {
            Slice slice = m_queue->take();
            slice.count = std::min(sliceSize, count - first);
            fits &= packSlice(slice, block, first);
            countReturns(slice);
            m_queue->put(std::move(slice));
        }
    } catch (const Error& error) {
        QM_THROW(ErrorCode::PointWrite, "Unable to write point: %s", error.what());
    }
    if (!fits)
        throwOutOfRange(block, count);
    if (delegate)
        delegate->updateCompleted(static_cast<double>(count), activity);
}

void LASPointWriter::throwOutOfRange(const PointData& block, std::size_t count) const
{
    for (const Column& column : m_columns) {
        if (!column.field.isCoordinate())
            continue;
        const std::size_t axis = column.field.axis();
        const LASFields::Axis grid{m_header.scale[axis], m_header.offset[axis]};
        const auto* const samples = static_cast<const double*>(block.getChannel(column.channel).getData());
        const double* const end = samples + count;
        const double* const found =
            std::find_if_not(samples, end, [&](double value) { return LASFields::fits(value, grid); });
        if (found == end)
            continue;
        if (!std::isfinite(*found))
            QM_THROW(ErrorCode::NotRepresentable, "%s: LAS cannot hold the %s coordinate %g", m_path.c_str(),
                     column.field.channel, *found);
        QM_THROW(
            ErrorCode::NotRepresentable,
            "%s: the %s coordinate %.15g does not fit into 32 bits with the scale %g and the offset %.15g; "
            "use a coarser scale (-sc) or a nearer offset (-ofs)",
            m_path.c_str(), column.field.channel, *found, grid.scale, grid.offset);
    }
    QM_THROW(ErrorCode::NotRepresentable, "%s: a coordinate does not fit into 32 bits", m_path.c_str());
}

void LASPointWriter::throwIfTooMany() const
{
    if (m_total > mostLegacyPoints && m_header.versionMinor <= 3)
        QM_THROW(ErrorCode::NotRepresentable, "Attempt to write 2 ^ 32 or more points to a LAS file.");
}

bool LASPointWriter::packSlice(Slice& slice, const PointData& block, std::size_t first)
{
    const std::size_t stride = m_header.recordLength;
    slice.records.assign(slice.count * stride, 0);
    unsigned char* const records = slice.records.data();
    bool fits = true;
    for (const Column& column : m_columns) {
        const auto* const samples =
            static_cast<const unsigned char*>(block.getChannel(column.channel).getData()) +
            first * DataTypeUtils::getSize(column.type);
        if (column.field.isCoordinate()) {
            const std::size_t axis = column.field.axis();
            fits &= LASFields::packCoordinate(
                records, stride, column.field, {m_header.scale[axis], m_header.offset[axis]},
                reinterpret_cast<const double*>(samples), slice.count, m_summary.extents[axis]);
        } else {
            LASFields::pack(records, stride, column.field, samples, column.type, slice.count);
        }
    }
    if (m_otherTime)
        settleTimes(slice, block, first);
    return fits;
}

// Compares the times that packSlice() has written with the other clock's.
void LASPointWriter::settleTimes(Slice& slice, const PointData& block, std::size_t first)
{
    const std::size_t stride = m_header.recordLength;
    const ChannelData& channel = block.getChannel(*m_otherTime);
    m_otherTimes.assign(slice.count * sizeof(double), 0);
    const LASField dense{channel.getName(), FLOAT64, 64, 0};
    const auto* const samples = static_cast<const unsigned char*>(channel.getData());
    LASFields::pack(m_otherTimes.data(), sizeof(double), dense,
                    samples + first * DataTypeUtils::getSize(channel.getDataType()), channel.getDataType(),
                    slice.count);
    unsigned char* at = slice.records.data() + m_header.pointFormat.timeOffset();
    for (std::size_t i = 0; i < slice.count; ++i, at += stride) {
        const auto other = loadLittleEndian<double>(m_otherTimes.data() + i * sizeof(double));
        const auto written = loadLittleEndian<double>(at);
        if (other == 0 || other == written)
            continue;
        if (m_prefersNonzeroTime && written == 0) {
            storeLittleEndian(at, other);
            ++m_timeConflict->numFromOther;
        } else {
            ++m_timeConflict->numLost;
        }
    }
}

void LASPointWriter::countReturns(const Slice& slice)
{
    const std::size_t stride = m_header.recordLength;
    const unsigned mask = m_header.pointFormat.isExtended() ? 15 : 7;
    constexpr std::size_t returnsOffset = 14; // in the records of all formats
    for (std::size_t i = 0; i < slice.count; ++i)
        ++m_summary.byReturn[slice.records[i * stride + returnsOffset] & mask];
}

void LASPointWriter::writeEnd(std::int64_t count, const Bounds& bounds)
{
    if (count == 0 && bounds == Bounds::Huge()) {
        m_partial->finishWithoutFile();
        writeAborted();
        return;
    }
    try {
        m_queue->finish();
        m_writer->finish();
    } catch (const Error& error) {
        QM_THROW(ErrorCode::PointWrite, "Unable to write point: %s", error.what());
    }
    m_queue.reset();
    m_writer.reset();
    completeHeader();
    try {
        writeBytes(0, m_header.write());
        m_output->close();
        m_partial->finish();
    } catch (const Error& error) {
        QM_THROW(ErrorCode::PointWrite, "Unable to update header: %s", error.what());
    }
    m_output.reset();
    m_partial.reset();
}

void LASPointWriter::completeHeader()
{
    m_header.legacyPointCount = legacyCount(m_total);
    m_header.pointCount = m_total;
    for (std::size_t i = 0; i < LASHeader::maxReturns; ++i) {
        const std::uint64_t points = m_summary.byReturn[i + 1];
        m_header.pointsByReturn[i] = points;
        if (i < LASHeader::legacyReturns)
            m_header.legacyPointsByReturn[i] = legacyCount(points);
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
        // Without points both ends are step 0.
        const LASFields::Extent extent = m_total == 0 ? LASFields::Extent{0, 0} : m_summary.extents[axis];
        m_header.min[axis] = extent.min * m_header.scale[axis] + m_header.offset[axis];
        m_header.max[axis] = extent.max * m_header.scale[axis] + m_header.offset[axis];
    }
}

void LASPointWriter::writeBytes(std::int64_t position, const std::vector<unsigned char>& bytes) const
{
    writeFully(*m_output, position, bytes.data(), bytes.size());
}

void LASPointWriter::writeAborted() noexcept
{
    m_queue.reset();
    m_writer.reset();
    // What was never opened is untouched; a file that was there before is not ours to remove.
    if (m_output)
        m_output->unlink();
    m_output.reset();
    m_partial.reset();
}

} // namespace Quillmoran
