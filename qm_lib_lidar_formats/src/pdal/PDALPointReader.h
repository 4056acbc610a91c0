// The reader of BPF files, version 3, through PDAL. Opening looks at the header only; each iterator reads
// through a PDAL reader of its own, from a plain temporary copy when the file is compressed. Stands in the
// module, see PDALFormats.h.
#pragma once

#include "pdal/BPFHeader.h"
#include <vxunpack/PointSource.h>

#include <string>

namespace Quillmoran {

class PDALPointReader final : public PointReader
{
public:
    static PDALPointReader* create();

    // See createPDALPointReader() for the errors. After one the reader is to be released.
    void init(const char* path);

    const char* getFileFormatString() const override { return "BPF 3"; }
    // The file has nothing that a writer would take over.
    void loadMetadata(Metadata&, bool) const override {}
    // Points that a query reads: all of them, as there is no index.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // A channel that the file lacks is NoSuchChannel, one of another type ChannelType. Damage in the points
    // is BPFRead when they are reached.
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
