// Writes LAS files, versions 1.0 to 1.4, and LAZ, their form compressed by LASzip. Point format and version
// follow from the channels: formats 0 to 3 where they can hold them, else 6 to 8. Records are written by a
// thread of their own while the next block of points is made. The programs use it for "las" and "laz"
// outputs.
#pragma once

#include "files/PartialFile.h"
#include "las/LASFields.h"
#include "las/LASFileHead.h"
#include "las/LASRecordWriter.h"
#include "platform/OutputQueue.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/PointWriter.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class QM_API LASPointWriter final : public SimplePointWriter
{
public:
    using FileVersion = int; // 10 * major + minor; -1 chooses by the channels

    static LASPointWriter* create();

    // Nothing is touched before write() begins, and the file takes its name when it is complete. Any other
    // version than -1 is written as it is: 0 gives the version fields 0 and 0.
    void init(PointSource* source, const char* path, FileVersion version);
    // LAZ in place of LAS.
    void setWriteLAZ(bool laz) { m_writeLAZ = laz; }
    // Takes the coordinate system from the source's WKT, not from the projection records among its metadata.
    void setOverrideProjectionVLRs(bool override) { m_overrideProjection = override; }

    // Whether the file written last has no place for the coordinate system of its source: GeoTIFF keys cannot
    // express it, or it is too long for a record.
    bool losesCoordinateSystem() const noexcept { return m_losesCoordinateSystem; }

    static LASPointFormat getRecordFormat(const PointInfo& layout);
    static FileVersion getFileVersion(const PointInfo& layout);
    // Puts the channels that LAS has into `supported`, in the order of `wanted`; true when one was left out.
    static bool lasSupportedChannels(const PointInfo& wanted, PointInfo& supported);

    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override
    {
        return lasSupportedChannels(wanted, supported);
    }

    // LAS records hold one time. Of a layout with both GPSTime and GPSTime_Adjusted the later channel is
    // written; with `nonzero`, where that is 0, the other one.
    void setPrefersNonzeroTime(bool nonzero) { m_prefersNonzeroTime = nonzero; }
    struct TimeConflict
    {
        const char* written = nullptr; // the channels
        const char* other = nullptr;
        std::uint64_t numLost = 0;      // points whose other time is not 0, differs and is not written
        std::uint64_t numFromOther = 0; // points whose other time is written
    };
    // Of the last write(); nothing when the layout had one time or none.
    const std::optional<TimeConflict>& getTimeConflict() const noexcept { return m_timeConflict; }

    // Whether scan angles were written as they are although the point format has another unit: degrees where
    // formats 6 and above have steps of 0.006 degrees, or the reverse.
    bool hasForeignScanAngles() const noexcept;

protected:
    // A channel without a place in LAS is NotRepresentable "invalid LAS field: %s", a file that cannot be created or
    // cannot seek OutputCreate "Unable to create output %s. " with the reason, an unusable scale or offset InvalidArgument.
    void writeBegin(const PointInfo& layout) override;
    // Asks the delegate once per block: Cancelled "LAS Write operation cancelled.". More points than the version
    // can count is NotRepresentable, and so is a coordinate that does not fit into 32 bits; a record that cannot be
    // written is PointWrite "Unable to write point: " with the reason.
    void writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate) override;
    // Completes the header, or leaves no file when there are no points and the bounds are unbounded.
    void writeEnd(std::int64_t count, const Bounds& bounds) override;
    void writeAborted() noexcept override;

private:
    // A channel of the layout with a place in the records.
    struct Column
    {
        std::size_t channel; // in the layout
        DataType type;       // of its samples
        LASField field;
    };
    struct Slice
    {
        std::vector<unsigned char> records;
        std::size_t count = 0; // of records
    };
    // What the header says of all points.
    struct Summary
    {
        LASFields::Extent extents[3]; // in steps
        std::array<std::uint64_t, LASHeader::maxReturns + 1> byReturn{};
    };

    LASPointWriter() = default;

    void chooseColumns(const PointInfo& layout);
    void openOutput(const std::vector<unsigned char>& records);
    bool packSlice(Slice& slice, const PointData& block, std::size_t first);
    void settleTimes(Slice& slice, const PointData& block, std::size_t first);
    void countReturns(const Slice& slice);
    void throwIfTooMany() const;
    // For a block with a coordinate that does not fit: names the first one.
    [[noreturn]] void throwOutOfRange(const PointData& block, std::size_t count) const;
    void completeHeader();
    void writeBytes(std::int64_t position, const std::vector<unsigned char>& bytes) const;

    std::string m_path;
    FileVersion m_version = -1;
    bool m_writeLAZ = false;
    bool m_overrideProjection = false;
    bool m_prefersNonzeroTime = false;

    // Of the file being written.
    LASHeader m_header;
    bool m_losesCoordinateSystem = false;
    std::vector<Column> m_columns;
    Summary m_summary;
    std::uint64_t m_total = 0;              // points
    std::optional<std::size_t> m_otherTime; // in the layout: the time that m_columns leaves out
    std::optional<TimeConflict> m_timeConflict;
    std::vector<unsigned char> m_otherTimes; // of a slice
    std::optional<PartialFile> m_partial;
    Scoped<FileIO::Imp> m_output;              // before m_partial goes
    std::unique_ptr<LASRecordWriter> m_writer; // before m_output goes
    std::optional<OutputQueue<Slice>> m_queue; // before m_writer goes, which its thread uses
};

} // namespace Quillmoran
