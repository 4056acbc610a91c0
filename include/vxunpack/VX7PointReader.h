// The reader of compressed point clouds (".vxl"). Opening reads only the structure of the file; iterators
// decode points when they are requested.
#pragma once

#include <vxunpack/IO.h>
#include <vxunpack/PointSource.h>

#include <cstdint>
#include <vector>

namespace Quillmoran {

class ChunkReader;
class WaveletDecoderInfo;

// After init() the const methods may be called from any thread, and iterators may be used on different
// threads, each by one thread at a time. Iterators keep the file open; the reader may be released before
// them. Before init(), or after a failed one, every method that needs the file throws InvalidArgument "the
// reader is not open".
class QM_API VX7PointReader final : public PointReader
{
public:
    // Returns a new reader with a count of 1.
    static VX7PointReader* create();

    // Opens a file by its path, or an IO, which is retained. Must be called only once.
    //
    // Unsupported: not a .vxl file, or an unsupported version. ContainerRead, ChunkHeaderRead,
    // WaveletHeaderRead, IndexChunkRead, IndexRead, SubbandRead, MetadataChunkRead, WKTChunkRead,
    // ClassNamesChunkRead, ExtendedRecordRead, ExtendedHeaderRead: malformed chunks. General "bad transform
    // type": an unknown transform code. OSError: the file cannot be opened or read.
    void init(const char* path);
    void init(IO* io);

    // Whether iterators compare what they read with the digests of the file, if it has any; the default.
    // Otherwise damage that still decodes gives wrong points. Set it before creating iterators.
    void setVerifiesDigests(bool verifies) noexcept { m_verifiesDigests = verifies; }

    const char* getFileFormatString() const override
    {
        return m_fileFormat;
    } // "VX7 4.0.0.4"; empty before init()
    // Reads the metadata records. Throws MetadataRead if they are malformed; init() does not check them.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // The number of points that a query decodes.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // Returns an iterator with a count of 1. Throws General "could not find channel '%s'" or "unsupported
    // datatype" for a layout that the file cannot provide; InvalidArgument for one without X, Y and Z;
    // WaveletHeaderRead if decoding needs an unreasonable amount of memory; DigestDiffers for a damaged
    // header, metadata or, for a box, index. getNextPoints() of the iterator throws SubbandRead, Inflate or
    // DigestDiffers for damaged data, and Cancelled if the delegate asks to stop.
    //
    // Digests belong to blocks of 2^20 points at full resolution. A block that the iterator decodes
    // completely is compared before its last points are delivered: all blocks of a query of all points, none
    // at coarser levels.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override;

    // The number of points with each value of a channel of type UINT8, 256 numbers. Decodes only this channel.
    // Throws NoSuchChannel or ChannelType for another channel, and the errors of the iterators.
    std::vector<std::uint64_t> countValues(const char* channel, ProgressDelegate* delegate) const;

    // The internal description of the file, for this project's own programs. Valid as long as the reader
    // exists.
    const WaveletDecoderInfo& getDecoderInfo() const;

private:
    VX7PointReader();
    ~VX7PointReader() override;

    Scoped<WaveletDecoderInfo> readChunks(ChunkReader& chunks);
    void setDescription();

    Scoped<WaveletDecoderInfo> m_info; // null until init() succeeds
    IO::Location m_metadata;
    bool m_verifiesDigests = true;
    char m_fileFormat[32] = "";
};

} // namespace Quillmoran
