// The description of a compressed file: the counts, the channel records with the byte ranges of their bands,
// the bounds and the spatial index. It is read once and shared by all iterators. Const methods may be called
// from any thread.
#pragma once

#include "common/coders/SubblockFormat.h"
#include "common/container/WaveletChannelInfo.h"
#include "decode/container/BandLayout.h"
#include "decode/container/StoredDigests.h"
#include "index/RTree.h"
#include "model/NameIndex.h"
#include <vxunpack/Bounds.h>
#include <vxunpack/IO.h>
#include <vxunpack/PointInfo.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace Quillmoran {

class ChunkReader;

// A channel record with the byte ranges of its bands, the coarsest band first.
class WaveletDecoderChannelInfo final : public WaveletChannelInfo
{
public:
    struct Band
    {
        IO::Location first;  // subblock headers; empty if the second range also contains the headers
        IO::Location second; // payloads
    };

    std::vector<Band>& getBands() noexcept { return m_bands; }
    const std::vector<Band>& getBands() const noexcept { return m_bands; }

private:
    std::vector<Band> m_bands;
};

class WaveletDecoderInfo final : public Object
{
public:
    struct PointRange
    {
        std::int64_t start = 0; // point index at the level of the query
        std::int64_t length = 0;
    };
    // The parts of a split floating-point channel, as indices of channel records.
    struct SplitChannel
    {
        std::size_t fraction;
        std::size_t exponent;
        std::size_t sign;
    };

    // The byte ranges of chunks with their headers.
    struct Chunks
    {
        IO::Location header;
        IO::Location index;
        IO::Location metadata;
        IO::Location wkt;
        IO::Location classNames; // without an IO if the version of the file has none
    };

    static WaveletDecoderInfo* create(std::uint32_t fileVersion);

    // Reads the wavelet header, the index and the subband directory. Subtracts the bytes read from
    // `remaining`.
    void load(ChunkReader& reader, std::int64_t& remaining);
    // Called when the names of all channels are complete.
    void finish();

    IO* getFile() const noexcept { return m_file.get(); }
    std::uint32_t getFileVersion() const noexcept { return m_fileVersion; }
    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    std::uint32_t getNumLevels() const noexcept { return m_numLevels; }
    const Bounds& getBounds() const noexcept { return m_bounds; }
    const RTree& getIndex() const noexcept { return *m_index; }
    std::uint32_t getPointsPerEntry() const noexcept { return m_pointsPerEntry; }
    std::int64_t getIndexLength() const noexcept { return m_indexLength; } // bytes
    Chunks& getChunks() noexcept { return m_chunks; }
    const Chunks& getChunks() const noexcept { return m_chunks; }
    StoredDigests& getDigests() noexcept { return m_digests; }
    const StoredDigests& getDigests() const noexcept { return m_digests; }

    // False if the file has a table of the sizes of its bands, and they are not those of its bands.
    bool hasGoodBandTable() const;

    // The layout of the points. The parts of a split channel are one channel.
    PointInfo getPointInfo() const;

    std::vector<WaveletDecoderChannelInfo>& getChannels() noexcept { return m_channels; }
    const std::vector<WaveletDecoderChannelInfo>& getChannels() const noexcept { return m_channels; }
    const WaveletDecoderChannelInfo& getChannel(std::size_t index) const;
    // The index of the whole channel with that name. Available after finish().
    std::optional<std::size_t> getChannel(const char* name) const;
    std::optional<SplitChannel> getSplitChannel(const char* name) const;

    // The index of the channel in the layout of the points to which a record belongs. Available after
    // finish().
    std::size_t getPointChannel(std::size_t record) const { return m_pointChannels[record]; }
    std::size_t getNumPointChannels() const noexcept { return m_numPointChannels; }

    // Samples of a level of the decomposition: 0 is the full resolution, each further level has half the
    // samples.
    std::int64_t getNumSamples(std::uint32_t level) const noexcept;
    // The level at which a query with this fraction is decoded.
    std::uint32_t getLevel(double fraction) const noexcept;
    // Whether the ranges of the points in a box come from the index.
    bool needsIndex(const Bounds& bounds) const noexcept;
    // The ranges of points, at that level, that can be in a box: sorted, disjoint and not empty. Nearby
    // ranges are joined, since whole subblocks are decoded.
    std::vector<PointRange> getPointRanges(std::uint32_t level, const Bounds& bounds) const;

    // The byte ranges of one band of a channel, as this file uses them.
    BandRanges getBandRanges(const WaveletDecoderChannelInfo& channel, std::size_t band) const;
    // Whether the file's version has one length per bit plane in the subblocks of lifted MQ-coded channels;
    // newer versions have a single length.
    bool isBeforeSingleLengths() const noexcept;
    // How the subblocks of a channel are coded.
    SubblockFormat getSubblockFormat(const WaveletDecoderChannelInfo& channel) const;

private:
    explicit WaveletDecoderInfo(std::uint32_t fileVersion) : m_fileVersion(fileVersion) {}

    void indexNames();
    void readBands(ChunkReader& reader, std::int64_t& remaining);
    // Places the bands by their sizes, from the reader's position on. Returns false if the file has no table of
    // the sizes, or one that is not of these channels.
    bool placeBands(ChunkReader& reader, std::int64_t& remaining);
    Bounds getIndexBounds() const;
    Bounds::Range getAxisBounds(const char* name, Bounds::Range Bounds::*axis) const;
    // Sorts the ranges and joins those with a gap of at most a subblock.
    void merge(std::vector<PointRange>& ranges) const;

    Scoped<IO> m_file;
    std::uint32_t m_fileVersion;
    std::int64_t m_numPoints = 0;
    std::uint32_t m_numLevels = 1;
    std::uint32_t m_largestSubblock = 0; // samples; ranges with a gap of up to this are joined
    Bounds m_bounds;
    Scoped<RTree> m_index;
    std::vector<WaveletDecoderChannelInfo> m_channels;
    // Whole channels, and the parts of split channels under the names of their point channels.
    NameIndex m_wholes, m_fractions, m_exponents, m_signs;
    std::vector<std::size_t> m_pointChannels; // by record
    std::size_t m_numPointChannels = 0;
    std::uint32_t m_pointsPerEntry = 0;
    std::int64_t m_indexLength = 0;
    BandLayout m_bandLayout;
    bool m_hasPlacedBands = false;
    Chunks m_chunks;
    StoredDigests m_digests;
};

} // namespace Quillmoran
