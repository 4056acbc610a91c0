// The reader of LAS files, versions 1.0 to 1.4 with point formats 0 to 10, and of their compressed form, LAZ.
// Opening reads the header and the variable length records; points are read block by block when an iterator
// asks for them. Iterators keep what they need of the reader and may be used on threads of their own.
#pragma once

#include "las/LASHeader.h"
#include "las/LASVariableRecords.h"
#include "las/LASzipChunks.h"
#include "srs/SpatialReference.h"
#include <vxunpack/PointSource.h>

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class QM_API LASPointReader final : public PointReader
{
public:
    static LASPointReader* create();

    // A file with waveforms is Waveforms unless they are to be passed over: "Input LAS/LAZ file contains waveform
    // data.  This is not currently supported.". Everything else that is wrong with the file, one that is
    // shorter than its header says included, is LASOpen "Failed to create LASReader for path = '%s'" with the
    // reason. After an error the reader is to be released.
    void init(const char* path, bool openFullWaveform);

    // "LAS 1.2" or "LAZ 1.2".
    const char* getFileFormatString() const override { return m_fileFormat; }
    // From the file's WKT, else from its GeoTIFF keys, which are translated at the first call.
    const char* getWKT() const override;
    // Whether the file has GeoTIFF keys that are not understood. getWKT() is then null.
    bool hasUnknownCoordinateSystem() const;
    // Header fields under the names that the LAS writer knows, and the variable length records; `sanitize`
    // leaves out those that describe the coordinate system.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // Points that a query reads: all of them, as there is no index.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // A channel that the file lacks is NoSuchChannel, one of another type ChannelType. Damage in the points is LASRead when
    // they are reached.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

    const LASHeader& getHeader() const noexcept { return m_header; }

private:
    LASPointReader() = default;

    void open(bool openFullWaveform);
    void checkSize() const;
    void openCompressed();
    void readCoordinateSystem();
    const LASVariableRecord* findProjection(std::uint16_t recordID) const noexcept;
    void setDescription();

    Scoped<IO> m_io;
    LASHeader m_header;
    LASzipChunks m_chunks;
    std::vector<LASVariableRecord> m_records;
    char m_fileFormat[16] = "";

    GeoTIFFKeys m_keys; // when they, and not a text, give the coordinate system
    mutable std::once_flag m_translateOnce;
    mutable std::optional<std::string> m_translated;
};

} // namespace Quillmoran
