// Writes a compressed file again without decoding it: with fewer channels, other metadata or another
// coordinate system. The coded bands, the index and the digests of the channels are copied, so that this is
// as fast as copying the file. The versions of the file and its chunks stay the same.
#pragma once

#include <vxunpack/Metadata.h>
#include <vxunpack/PointInfo.h>
#include <vxunpack/VX7PointReader.h>
#include <vxunpack/VX7PointWriter.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class OutputFile;

// What the copy has instead of the values of the source.
struct RewriteOptions
{
    std::optional<PointInfo> channels; // to keep, by name; they stay in the order of the source
    std::optional<Metadata> metadata;
    std::optional<std::string> wkt; // empty: no coordinate system
};

// Used by one thread at a time.
class VX7Rewriter
{
public:
    // The source must be open. Throws InvalidArgument "must have x, y, and z channels".
    VX7Rewriter(const VX7PointReader& source, RewriteOptions options);

    // Writes the file and returns its size in bytes. As with VX7PointWriter, it is complete or absent. The description, the index and the
    // digests of the source are checked; damaged bands are copied, and found by the readers of the copy.
    //
    // DigestDiffers, IndexRead, MetadataRead: the source is damaged. ContainerRead "unexpected end of file":
    // the source has become shorter. IndexWrite: see DiskRTree::copyTo(). Cancelled "VX7 Write operation
    // cancelled.". OutputCreate, Write, OSError: the output cannot be written.
    std::int64_t write(const char* path, ProgressDelegate* delegate);
    std::int64_t write(IO* io, ProgressDelegate* delegate);

    // The records that are kept; the sizes are those of their bands.
    std::vector<VX7PointWriter::ChannelSummary> getSummary() const;

private:
    class Copy;
    struct Digests // of the kept channels
    {
        unsigned blockBits;
        std::vector<std::uint64_t> samples; // by channel and block
    };

    std::int64_t write(OutputFile& output, ProgressDelegate* delegate);
    void chooseRecords();
    void chooseMetadata();
    // Nothing if the source has no digests, or those of a newer version.
    std::optional<Digests> keepDigests() const;

    Scoped<const VX7PointReader> m_source;
    RewriteOptions m_options;
    std::vector<std::size_t> m_records;       // that are kept, as indices of the source's records
    std::vector<std::size_t> m_pointChannels; // likewise, of the layout of the points
};

} // namespace Quillmoran
