// The reader of compressed point clouds (".vxl"). Opening reads the chunk sequence once; points are decoded
// when an iterator asks for them. Iterators keep what they need of the reader, and may be used on threads of
// their own.
#pragma once

#include "decode/container/WaveletDecoderInfo.h"
#include <vxunpack/PointSource.h>

namespace Quillmoran {

class QM_API VX7PointReader final : public PointReader
{
public:
    static VX7PointReader* create();

    // Opens a file, or reads from a store. Errors are those of the chunks; after one the reader is to be
    // released.
    void init(const char* path);
    void init(IO* io);

    const char* getFileFormatString() const override { return m_fileFormat; }
    // The records' own errors (MetadataRead) show here, not when the file is opened.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // Points that a query decodes.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

    const WaveletDecoderInfo& getDecoderInfo() const { return *m_info; }

private:
    VX7PointReader() = default;

    void readChunks(ChunkReader& chunks);
    void setDescription();

    Scoped<WaveletDecoderInfo> m_info;
    IO::Location m_metadata;
    char m_fileFormat[32] = "";
};

} // namespace Quillmoran
