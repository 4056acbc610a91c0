// Reads BPF files, version 3, through PDAL. init() reads the header; each iterator has its own PDAL reader,
// which reads an uncompressed temporary copy if the file is compressed. Part of the module, see
// PDALFormats.h.
#pragma once

#include "pdal/BPFHeader.h"
#include <vxunpack/PointSource.h>

#include <string>

namespace Quillmoran {

class PDALPointReader final : public PointReader
{
public:
    static PDALPointReader* create();

    // See createPDALPointReader() for the errors. After an error the reader can only be released.
    void init(const char* path);

    const char* getFileFormatString() const override { return "BPF 3"; }
    // BPF has no records that a writer could use.
    void loadMetadata(Metadata&, bool) const override {}
    // The number of points in the file: BPF has no index, so every query reads all of them. 0 for a fraction
    // of 0.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // Throws NoSuchChannel for a channel that the file lacks and ChannelType for a channel of another type.
    // The iterator throws BPFRead when it reaches malformed points.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    PDALPointReader() = default;

    void open();
    void setDescription();

    std::string m_path;
    BPFHeader m_header;
};

} // namespace Quillmoran
