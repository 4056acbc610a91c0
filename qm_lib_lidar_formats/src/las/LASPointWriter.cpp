#include <vxunpack/LASPointWriter.h>

#include "files/OutputFile.h"
#include "framework/MetadataKeys.h"
#include "las/header/LASFileHead.h"
#include "las/points/LASFields.h"
#include "las/points/LASRecordWriter.h"
#include "model/ChannelNames.h"
#include "model/NameIndex.h"
#include "platform/ByteOrder.h"
#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace Quillmoran {

namespace {

constexpr const char* activity = "writing LAS file";
constexpr std::size_t slicePoints = 16384;
constexpr std::size_t minSlices = 3; // that are packed at the same time
constexpr std::uint64_t maxLegacyCount = UINT32_MAX;

std::uint32_t legacyCount(std::uint64_t count)
{
    return count > maxLegacyCount ? 0 : static_cast<std::uint32_t>(count);
}

bool isTime(const LASField& field)
{
    const std::string_view name = field.channel;
    return name == ChannelNames::gpsTime || name == ChannelNames::gpsTimeAdjusted;
}

// Scan angles of larger integer types are steps of 0.006 degrees, all others degrees.
bool isScanAngleStep(DataType type)
{
    return !DataTypeUtils::isFloat(type) && DataTypeUtils::getSize(type) > 1;
}

} // namespace

// The file being written.
struct LASPointWriter::Impl
{
    Impl(LASFileHead made, const PointInfo& layout);

    using Slice = OutputFile::Slice; // of records

    // A channel of the layout that has a field in the records.
    struct Column
    {
        std::size_t channel; // in the layout
        DataType type;       // of its samples
        LASField field;
        const LASExtraField* extra = nullptr; // in the extra bytes; null: `field`
    };

    // The values of the header that depend on all points.
    struct Summary
    {
        std::uint64_t total = 0;        // points
        LASFields::Extent extents[3]{}; // in steps
        std::array<std::uint64_t, LASHeader::maxReturns + 1> byReturn{};

        void add(const Summary& other);
    };

    // Points of a block that one thread packs.
    struct Part
    {
        std::size_t count(const LASHeader& head) const { return records.size() / head.recordLength; }

        std::span<unsigned char> records;
        Slice slice;           // that holds them, unless the writer does
        std::size_t first = 0; // in the block
        Summary summary;
        TimeConflict times;
        bool fits = true;
        std::vector<unsigned char> otherTimes;
    };

    void chooseColumns(const PointInfo& layout);
    // Writes the header with these totals before the points if it can be complete by then.
    void stateTotals(const Totals& totals);
    bool hasStatedTotals() const { return stated.has_value(); }
    // Whether the stated bounds are larger than those of the points. Throws PointWrite if the points are not
    // those of the stated totals.
    bool checkStatedTotals() const;
    // Creates the output, then opens it and writes the head.
    void create();
    void begin();
    // Errors name the output.
    template <class Work>
    void creating(Work work) const
    {
        try {
            work();
        } catch (const Error& error) {
            QM_THROW(ErrorCode::OutputCreate, "Unable to create output %s. %s", output.path(), error.what());
        }
    }
    // Whether the header of a restored file is kept.
    bool keepsHeader(const Summary& points) const
    {
        return head.keepsCounts && points.total == head.header.getPointCount();
    }
    std::size_t countRecords(const Slice& slice) const { return slice.size / header.recordLength; }
    LASFields::Axis axisOf(const LASField& field) const
    {
        return {header.scale[field.axis()], header.offset[field.axis()]};
    }
    // Packs some of these points of a block on all threads, hands them on, and returns their number. Clears `fits`
    // if a coordinate does not fit.
    std::size_t writeParts(const PointData& block, std::size_t first, std::size_t count, bool& fits);
    void pack(Part& part, const PointData& block) const;
    void resolveTimes(Part& part, const PointData& block) const;
    unsigned returnOf(const unsigned char* record) const
    {
        constexpr std::size_t returnsOffset = 14; // in the records of all formats
        return record[returnsOffset] & (header.pointFormat.isExtended() ? 15u : 7u);
    }
    void countReturns(Part& part) const;
    // For a block with a coordinate that does not fit: reports the first one.
    [[noreturn]] void throwOutOfRange(const PointData& block, std::size_t count) const;
    void completeHeader(const Summary& points);
    void writeTail();
    void writeHeader() { writeBytes(0, head.writeHeader(header)); }
    void writeBytes(std::int64_t position, const std::vector<unsigned char>& bytes)
    {
        writeFully(output.io(), position, bytes.data(), bytes.size());
    }

    LASFileHead head;
    LASHeader header; // that of `head`, completed at the end
    std::vector<Column> columns;
    Summary actual;                // of the points up to now
    std::optional<Summary> stated; // in the header, before the points are written
    bool hasForeignScanAngles = false;
    bool prefersNonzeroTime = false;
    bool isRestored = false;
    std::optional<std::size_t> otherTime; // channel of the layout: the time that has no column
    std::optional<TimeConflict> timeConflict;
    std::vector<Part> parts{std::max(getNumThreads(), minSlices)};
    OutputFile output{"LAS", OutputFile::SEEKABLE};
    // Shared with the queue of the output, which destroys it before the file when the output is aborted.
    std::shared_ptr<LASRecordWriter> writer;
};

LASPointWriter::LASPointWriter() = default;

LASPointWriter::~LASPointWriter() = default;

void LASPointWriter::init(PointSource* source, const char* path, FileVersion version)
{
    if (!path)
        QM_THROW(ErrorCode::InvalidArgument, "path not given");
    PointWriter::init(source);
    m_path = path;
    m_io.reset();
    m_version = version;
}

void LASPointWriter::init(PointSource* source, IO* io, const char* name, FileVersion version)
{
    if (!io)
        QM_THROW(ErrorCode::InvalidArgument, "io is NULL");
    init(source, name, version);
    m_io = Scoped<IO>::retained(io);
}

int LASPointWriter::getRecordFormat(const PointInfo& layout)
{
    return LASFileHead::chooseFormat(layout).number;
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

bool LASPointWriter::supportedChannels(const PointInfo& wanted, PointInfo& supported) const
{
    if (!m_restores)
        return lasSupportedChannels(wanted, supported);
    PointInfo kept;
    for (std::size_t i = 0; i < wanted.getNumChannels(); ++i)
        if (DataTypeUtils::isKnown(wanted.getChannel(i).getDataType()))
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
    request.restores = m_restores;
    m_impl = std::make_unique<Impl>(LASFileHead::make(layout, getMetadata(), request), layout);
    m_impl->prefersNonzeroTime = m_prefersNonzeroTime;
    m_impl->isRestored = m_restores;
    if (m_io)
        m_impl->output.init(m_io.get(), m_path.c_str());
    else
        m_impl->output.init(m_path.c_str());
    m_impl->create();
    // A restored file is the same in a pipe, so it cannot have the position of its chunk table at the end.
    if (m_getTotals && m_impl->output.isPipe() && !(m_restores && m_writeLAZ))
        if (const std::optional<Totals> totals = m_getTotals())
            m_impl->stateTotals(*totals);
    m_impl->begin();
    const LASFileHead& head = m_impl->head;
    m_hasLargerBounds = false;
    m_losesCoordinateSystem = head.losesCoordinateSystem;
    m_leftOut = head.leftOut;
    m_hasForeignChunkIndex = head.hasForeignChunkIndex;
    m_isReordered = m_restores && getMetadata().has(MetadataKeys::pointOrder);
    m_hasForeignScanAngles = m_impl->hasForeignScanAngles;
    m_timeConflict.reset();
}

LASPointWriter::Impl::Impl(LASFileHead made, const PointInfo& layout)
    : head(std::move(made)), header(head.header)
{
    chooseColumns(layout);
}

void LASPointWriter::Impl::create()
{
    creating([this] { output.create(); });
}

void LASPointWriter::Impl::begin()
{
    creating([this] {
        output.open();
        writeHeader();
        writeBytes(header.headerSize, head.records);
    });
    writer = LASRecordWriter::create(output.io(), header, hasStatedTotals());
    if (writer->hasTasks())
        return;
    // While some slices are written, others are packed.
    output.startQueue([this, records = writer](
                          const Slice& slice) { records->write(slice.bytes.get(), countRecords(slice)); },
                      2 * parts.size());
}

void LASPointWriter::Impl::chooseColumns(const PointInfo& layout)
{
    NameIndex extraFields;
    for (std::size_t i = 0; i < head.extraFields.size(); ++i)
        extraFields.add(head.extraFields[i].channel.c_str(), i);
    extraFields.finish();
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        if (!LASFields::isKnown(channel.getName())) {
            const auto extra = extraFields.find(channel.getName());
            if (!extra)
                QM_THROW(ErrorCode::NotRepresentable, "invalid LAS field: %s", channel.getName());
            columns.push_back({i, channel.getDataType(), {}, &head.extraFields[*extra]});
            continue;
        }
        const auto field = LASFields::find(header.pointFormat, channel.getName());
        if (!field)
            continue;
        const auto earlier = std::find_if(columns.begin(), columns.end(), [&](const Column& column) {
            return !column.extra && isTime(column.field) && isTime(*field);
        });
        if (earlier != columns.end()) {
            if (std::string_view(field->channel) != earlier->field.channel) {
                otherTime = earlier->channel;
                timeConflict = TimeConflict{field->channel, earlier->field.channel};
            }
            columns.erase(earlier);
        }
        columns.push_back({i, channel.getDataType(), *field});
        if (channel.isNamed(ChannelNames::scanAngle))
            hasForeignScanAngles = isScanAngleStep(channel.getDataType()) != header.pointFormat.isExtended();
    }
}

void LASPointWriter::Impl::stateTotals(const Totals& totals)
{
    Summary summary;
    summary.total = totals.numPoints;
    // Packs the values as those of points are packed.
    std::vector<unsigned char> record(header.pointFormat.recordLength());
    const Bounds::Range ranges[] = {totals.bounds.x, totals.bounds.y, totals.bounds.z};
    constexpr const char* names[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (std::size_t axis = 0; axis < 3 && totals.numPoints != 0; ++axis)
        for (const double value : {ranges[axis].min, ranges[axis].max}) {
            const LASField field = *LASFields::find(header.pointFormat, names[axis]);
            if (!LASFields::packCoordinate(record.data(), record.size(), field, axisOf(field), &value, 1,
                                           summary.extents[axis]))
                return;
        }
    const LASField field = *LASFields::find(header.pointFormat, ChannelNames::returnNum);
    for (std::size_t i = 0; i < totals.countsByReturn.size(); ++i) {
        const auto value = static_cast<std::uint64_t>(i);
        record.assign(record.size(), 0);
        LASFields::pack(record.data(), record.size(), field, &value, UINT64, 1);
        summary.byReturn[returnOf(record.data())] += totals.countsByReturn[i];
    }
    if (totals.countsByReturn.empty())
        summary.byReturn[0] = totals.numPoints;
    stated = summary;
    output.setAccess(OutputFile::SEQUENTIAL);
    completeHeader(*stated);
    if (header.numEVLRs != 0 && !head.extended.empty())
        header.firstEVLR = header.pointDataOffset + stated->total * header.recordLength + head.gap.size();
}

bool LASPointWriter::Impl::checkStatedTotals() const
{
    if (!stated)
        return false;
    const bool isKept = keepsHeader(*stated); // with the bounds and counts of the restored file
    bool isSame = actual.total == stated->total && (isKept || actual.byReturn == stated->byReturn);
    bool isLarger = false;
    for (std::size_t axis = 0; axis < 3 && !isKept && actual.total != 0; ++axis) {
        const LASFields::Extent& points = actual.extents[axis];
        const LASFields::Extent& bounds = stated->extents[axis];
        isSame = isSame && points.min >= bounds.min && points.max <= bounds.max;
        isLarger = isLarger || points.min > bounds.min || points.max < bounds.max;
    }
    if (!isSame)
        QM_THROW(ErrorCode::PointWrite,
                 "%s: the points are not those that the header describes, which is already written; write "
                 "to a file instead",
                 output.path());
    return isLarger;
}

void LASPointWriter::writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate)
{
    Impl& impl = *m_impl;
    impl.output.checkCancelled(delegate, activity);
    if (impl.actual.total + count > maxLegacyCount && impl.header.versionMinor <= 3)
        QM_THROW(ErrorCode::NotRepresentable, "Attempt to write 2 ^ 32 or more points to a LAS file.");
    bool fits = true;
    try {
        for (std::size_t first = 0; first < count;)
            first += impl.writeParts(block, first, count - first, fits);
    } catch (const Error& error) {
        QM_THROW(ErrorCode::PointWrite, "Unable to write point: %s", error.what());
    }
    if (!fits)
        impl.throwOutOfRange(block, count);
    if (delegate)
        delegate->updateCompleted(static_cast<double>(count), activity);
}

void LASPointWriter::Impl::Summary::add(const Summary& other)
{
    total += other.total;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        extents[axis].min = std::min(extents[axis].min, other.extents[axis].min);
        extents[axis].max = std::max(extents[axis].max, other.extents[axis].max);
    }
    for (std::size_t i = 0; i < byReturn.size(); ++i)
        byReturn[i] += other.byReturn[i];
}

std::size_t LASPointWriter::Impl::writeParts(const PointData& block, std::size_t first, std::size_t count,
                                             bool& fits)
{
    const bool isQueued = !writer->hasTasks();
    std::size_t numParts = 0;
    std::size_t at = first;
    for (; numParts < parts.size() && at < first + count; ++numParts) {
        Part& part = parts[numParts];
        const std::size_t wanted = std::min(slicePoints, first + count - at);
        if (isQueued) {
            part.slice = output.queue().take();
            part.slice.size = wanted * header.recordLength;
            part.slice.reserve(part.slice.size);
            part.records = {part.slice.bytes.get(), part.slice.size};
        } else {
            part.records = writer->reserve(wanted);
        }
        if (part.records.empty())
            break;
        part.first = at;
        at += part.count(header);
    }
    parallelLoop(numParts, [&](std::size_t i) { pack(parts[i], block); });
    for (std::size_t i = 0; i < numParts; ++i) {
        Part& part = parts[i];
        actual.add(part.summary);
        fits &= part.fits;
        if (timeConflict) {
            timeConflict->numLost += part.times.numLost;
            timeConflict->numFromOther += part.times.numFromOther;
        }
        if (isQueued)
            output.queue().put(std::move(part.slice));
    }
    if (!isQueued)
        writer->commit();
    return at - first;
}

void LASPointWriter::Impl::throwOutOfRange(const PointData& block, std::size_t count) const
{
    for (const Column& column : columns) {
        if (column.extra || !column.field.isCoordinate())
            continue;
        const LASFields::Axis axis = axisOf(column.field);
        const auto* const samples = static_cast<const double*>(block.getChannel(column.channel).getData());
        const double* const end = samples + count;
        const double* const found =
            std::find_if_not(samples, end, [&](double value) { return LASFields::fits(value, axis); });
        if (found == end)
            continue;
        if (!std::isfinite(*found))
            QM_THROW(ErrorCode::NotRepresentable, "%s: LAS cannot hold the %s coordinate %g", output.path(),
                     column.field.channel, *found);
        QM_THROW(
            ErrorCode::NotRepresentable,
            "%s: the %s coordinate %.15g does not fit into 32 bits with the scale %g and the offset %.15g; "
            "use a coarser scale (-sc) or a nearer offset (-ofs)",
            output.path(), column.field.channel, *found, axis.scale, axis.offset);
    }
    QM_THROW(ErrorCode::NotRepresentable, "%s: a coordinate does not fit into 32 bits", output.path());
}

void LASPointWriter::Impl::pack(Part& part, const PointData& block) const
{
    const std::size_t stride = header.recordLength;
    const std::size_t count = part.count(header);
    unsigned char* const records = part.records.data();
    std::memset(records, 0, part.records.size());
    part.summary = {};
    part.summary.total = count;
    part.times = {};
    part.fits = true;
    for (const Column& column : columns) {
        const auto* const samples =
            static_cast<const unsigned char*>(block.getChannel(column.channel).getData()) +
            part.first * DataTypeUtils::getSize(column.type);
        if (column.extra) {
            if (!column.extra->pack(records, stride, samples, count))
                QM_THROW(ErrorCode::NotRepresentable,
                         "a value of channel '%s' is not a multiple of the scale of its extra bytes",
                         column.extra->channel.c_str());
        } else if (column.field.isCoordinate()) {
            part.fits &= LASFields::packCoordinate(records, stride, column.field, axisOf(column.field),
                                                   reinterpret_cast<const double*>(samples), count,
                                                   part.summary.extents[column.field.axis()]);
        } else {
            LASFields::pack(records, stride, column.field, samples, column.type, count);
        }
    }
    if (otherTime)
        resolveTimes(part, block);
    countReturns(part);
}

// Compares the packed times with those of the other clock.
void LASPointWriter::Impl::resolveTimes(Part& part, const PointData& block) const
{
    const std::size_t stride = header.recordLength;
    const ChannelData& channel = block.getChannel(*otherTime);
    const std::size_t count = part.count(header);
    std::vector<unsigned char>& otherTimes = part.otherTimes;
    otherTimes.assign(count * sizeof(double), 0);
    const LASField dense{channel.getName(), FLOAT64, 64, 0};
    const auto* const samples = static_cast<const unsigned char*>(channel.getData());
    LASFields::pack(otherTimes.data(), sizeof(double), dense,
                    samples + part.first * DataTypeUtils::getSize(channel.getDataType()),
                    channel.getDataType(), count);
    unsigned char* at = part.records.data() + header.pointFormat.timeOffset();
    for (std::size_t i = 0; i < count; ++i, at += stride) {
        const auto other = loadLittleEndian<double>(otherTimes.data() + i * sizeof(double));
        const auto written = loadLittleEndian<double>(at);
        if (other == 0 || other == written)
            continue;
        if (prefersNonzeroTime && written == 0) {
            storeLittleEndian(at, other);
            ++part.times.numFromOther;
        } else {
            ++part.times.numLost;
        }
    }
}

void LASPointWriter::Impl::countReturns(Part& part) const
{
    const std::size_t stride = header.recordLength;
    for (std::size_t at = 0; at < part.records.size(); at += stride)
        ++part.summary.byReturn[returnOf(part.records.data() + at)];
}

void LASPointWriter::writeEnd(std::int64_t, const Bounds&)
{
    Impl& impl = *m_impl;
    try {
        if (!impl.writer->hasTasks())
            impl.output.finishQueue();
        impl.writer->finish();
    } catch (const Error& error) {
        QM_THROW(ErrorCode::PointWrite, "Unable to write point: %s", error.what());
    }
    m_hasLargerBounds = impl.checkStatedTotals();
    if (!impl.hasStatedTotals())
        impl.completeHeader(impl.actual);
    try {
        impl.writeTail();
        impl.writer.reset();
        if (!impl.hasStatedTotals())
            impl.writeHeader();
        impl.output.commit();
    } catch (const Error& error) {
        QM_THROW(ErrorCode::PointWrite, "Unable to update header: %s", error.what());
    }
    m_timeConflict = impl.timeConflict;
    m_impl.reset();
}

// The bytes after the points of a restored file.
void LASPointWriter::Impl::writeTail()
{
    const std::int64_t begin = writer->end();
    const auto gap = static_cast<std::int64_t>(head.gap.size());
    writeBytes(begin, head.gap);
    writeBytes(begin + gap, head.extended);
    if (header.numEVLRs != 0 && !head.extended.empty())
        header.firstEVLR = static_cast<std::uint64_t>(begin + gap);
}

void LASPointWriter::Impl::completeHeader(const Summary& points)
{
    if (keepsHeader(points))
        return;
    header.legacyPointCount = legacyCount(points.total);
    header.pointCount = points.total;
    for (std::size_t i = 0; i < LASHeader::maxReturns; ++i) {
        const std::uint64_t count = points.byReturn[i + 1];
        header.pointsByReturn[i] = count;
        if (i < LASHeader::legacyReturns)
            header.legacyPointsByReturn[i] = legacyCount(count);
    }
    if (isRestored && header.pointFormat.isExtended()) {
        // LAS 1.4 requires this of the newer point formats.
        header.legacyPointCount = 0;
        header.legacyPointsByReturn = {};
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
        // Without points minimum and maximum are step 0.
        const LASFields::Extent extent = points.total == 0 ? LASFields::Extent{0, 0} : points.extents[axis];
        header.min[axis] = extent.min * header.scale[axis] + header.offset[axis];
        header.max[axis] = extent.max * header.scale[axis] + header.offset[axis];
    }
}

void LASPointWriter::writeAborted() noexcept
{
    m_impl.reset();
}

} // namespace Quillmoran
