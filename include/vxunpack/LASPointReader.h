// Reads LAS files, versions 1.0 to 1.4 with point formats 0 to 10, and their compressed form, LAZ. init()
// reads the header and the VLRs; iterators read the points, block by block. Const functions may be called
// from any thread. Each iterator may be used on its own thread, even after the reader has been released.
#pragma once

#include <vxunpack/IO.h>
#include <vxunpack/PointSource.h>

#include <memory>

namespace Quillmoran {

class QM_API LASPointReader final : public PointReader
{
public:
    static LASPointReader* create() { return new LASPointReader; }

    // Throws Waveforms "Input LAS/LAZ file contains waveform data.  This is not currently supported." for a
    // file with waveforms. With `openFullWaveform`, the points are read without their waveforms instead.
    // Throws LASOpen "Failed to create LASReader for path = '%s': " followed by the reason for any other
    // fault, such as a file that is shorter than its header says. After an error the reader can only be
    // released.
    void init(const char* path, bool openFullWaveform);
    // The same for an IO, which is retained; `name` is the path in messages.
    void init(IO* io, const char* name, bool openFullWaveform);

    // All functions below throw InvalidArgument before init().

    // "LAS 1.2" or "LAZ 1.2".
    const char* getFileFormatString() const override;
    // The file's WKT, or else a translation of its GeoTIFF keys, made at the first call; null if the file has
    // neither.
    const char* getWKT() const override;
    // Whether the file has GeoTIFF keys that cannot be translated; getWKT() is then null.
    bool hasUnknownCoordinateSystem() const;
    // Whether the file's points have waveforms, which are not read.
    bool hasWaveforms() const;
    // Header fields, under the keys that LASPointWriter uses, and VLRs; `sanitize` leaves out the VLRs of the
    // coordinate system.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // The number of points in the file: LAS has no index, so every query reads all of them. 0 for a fraction
    // of 0.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // Throws NoSuchChannel for a channel that the file lacks and ChannelType for a channel of another type.
    // The iterator throws LASRead when it reaches malformed points.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;
    // At the beginning of a chunk of a LAZ file; null for a LAZ file without a usable chunk table.
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override;

private:
    struct QM_HIDDEN Impl;

    LASPointReader();
    ~LASPointReader() override;

    const Impl& opened() const;

    std::unique_ptr<Impl> m_impl; // null before init()
};

} // namespace Quillmoran
