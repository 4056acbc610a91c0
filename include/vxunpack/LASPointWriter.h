// Writes LAS files, versions 1.0 to 1.4, and LAZ, which is LAS compressed by LASzip. The channels determine
// the point format and the version: formats 0 to 3 if they can hold the channels, otherwise 6 to 8. A second
// thread writes the records while the next block of points is read.
#pragma once

#include <vxunpack/IO.h>
#include <vxunpack/PointWriter.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran {

class QM_API LASPointWriter final : public SimplePointWriter
{
public:
    using FileVersion = int; // 10 * major + minor; -1: determined by the channels

    // Both GPS time channels were requested, but LAS records hold only one time.
    struct TimeConflict
    {
        const char* written = nullptr; // name of the channel that was written
        const char* other = nullptr;
        std::uint64_t numLost = 0;      // points whose other time, neither 0 nor equal, is lost
        std::uint64_t numFromOther = 0; // points whose other time is written
    };

    // What a header states about the points.
    struct Totals
    {
        std::uint64_t numPoints = 0;
        Bounds bounds;
        // Points by the value of ReturnNum; empty if that channel is not written.
        std::vector<std::uint64_t> countsByReturn;
    };

    static LASPointWriter* create() { return new LASPointWriter; }

    // Retains the source. write() creates the file under a temporary name and renames it when it is complete.
    // Any version other than -1 is written as given: 0 sets both version fields to 0.
    void init(PointSource* source, const char* path, FileVersion version);
    // The same for an IO, which is retained; `name` is for messages.
    void init(PointSource* source, IO* io, const char* name, FileVersion version);
    // A pipe gets the file after its last point, from a temporary file. With these totals of the points of the
    // next query, header and points go to the pipe at once. The function is only called for a pipe; it may be
    // empty or return nothing. LAZ files that are restored are not written in this way, and other LAZ files
    // have the position of the chunk table at their end.
    void setTotals(std::function<std::optional<Totals>()> totals) { m_getTotals = std::move(totals); }
    // Writes LAZ instead of LAS.
    void setWriteLAZ(bool laz) { m_writeLAZ = laz; }
    // Takes the coordinate system from the source's WKT, not from the projection VLRs in its metadata.
    void setOverrideProjectionVLRs(bool override) { m_overrideProjection = override; }
    // Gives back the LAS file that the points came from, as far as its metadata is in the source and the points
    // of the query are its own: version, point format, header fields, VLRs, EVLRs, scale and offset, extra
    // bytes. If they are all points of the file, in their order, an uncompressed file is the same, byte for
    // byte. Otherwise counts and bounds are computed. Channels without a field in LAS become extra bytes. A
    // version of 0 or less is then that of the file.
    void setRestores(bool restores) { m_restores = restores; }
    // If a layout has both GPSTime and GPSTime_Adjusted, the channel that comes later is written. With
    // `nonzero`, a time of 0 is replaced by the other time.
    void setPrefersNonzeroTime(bool nonzero) { m_prefersNonzeroTime = nonzero; }

    // The number of the point format, 0 to 8, and the version for a layout.
    static int getRecordFormat(const PointInfo& layout);
    static FileVersion getFileVersion(const PointInfo& layout);
    // Copies the channels that LAS has to `supported`, in the order of `wanted`. Returns whether any channel
    // was left out.
    static bool lasSupportedChannels(const PointInfo& wanted, PointInfo& supported);

    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override;

    // The functions below describe the file that was written last.

    // Whether the coordinate system of the source was left out: GeoTIFF keys cannot express it, or it is too
    // long for a VLR.
    bool losesCoordinateSystem() const noexcept { return m_losesCoordinateSystem; }
    // The keys ("user ID::number") of metadata records that are VLRs and were left out.
    const std::vector<std::string>& getLeftOutRecords() const noexcept { return m_leftOut; }
    // Whether a restored LAZ file has the index of a cloud-optimised file (COPC), which describes other chunks.
    bool hasForeignChunkIndex() const noexcept { return m_hasForeignChunkIndex; }
    // Whether the points of a restored file were sorted, so that their order may not be that of the original.
    bool isReordered() const noexcept { return m_isReordered; }
    // Empty if the layout had at most one time channel.
    const std::optional<TimeConflict>& getTimeConflict() const noexcept { return m_timeConflict; }
    // Whether scan angles were written unchanged although the point format has another unit: degrees to
    // formats 6 and above, which have steps of 0.006 degrees, or the reverse.
    bool hasForeignScanAngles() const noexcept { return m_hasForeignScanAngles; }
    // Whether the header, written before the points, has bounds that are larger than those of the points.
    bool hasLargerBounds() const noexcept { return m_hasLargerBounds; }

protected:
    // Throws InvalidArgument for an unusable scale or offset, NotRepresentable "invalid LAS field: %s" for a
    // channel that LAS does not have, and OutputCreate "Unable to create output %s. " followed by the reason
    // if the file cannot be created.
    void writeBegin(const PointInfo& layout) override;
    // Checks the delegate once per block, and throws Cancelled "LAS Write operation cancelled." if it asks to
    // stop. Throws NotRepresentable if the version cannot count the points or a coordinate does not fit into
    // 32 bits, and PointWrite "Unable to write point: " followed by the reason if a record cannot be written.
    void writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate) override;
    // Completes the header and renames the file; throws PointWrite if that fails, or if a header that was
    // written before the points does not apply to them.
    void writeEnd(std::int64_t count, const Bounds& bounds) override;
    void writeAborted() noexcept override;

private:
    struct QM_HIDDEN Impl;

    LASPointWriter();
    ~LASPointWriter() override;

    std::string m_path; // or the name of the IO
    Scoped<IO> m_io;    // null for a path
    FileVersion m_version = -1;
    std::function<std::optional<Totals>()> m_getTotals;
    bool m_writeLAZ = false;
    bool m_overrideProjection = false;
    bool m_prefersNonzeroTime = false;
    bool m_restores = false;

    // About the file that was written last.
    bool m_losesCoordinateSystem = false;
    bool m_hasForeignScanAngles = false;
    bool m_hasLargerBounds = false;
    std::vector<std::string> m_leftOut;
    bool m_hasForeignChunkIndex = false;
    bool m_isReordered = false;
    std::optional<TimeConflict> m_timeConflict;

    std::unique_ptr<Impl> m_impl; // null unless a file is being written
};

} // namespace Quillmoran
