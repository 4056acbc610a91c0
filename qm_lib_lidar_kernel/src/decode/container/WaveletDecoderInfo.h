// What a compressed file tells about its points before any of them is decoded: the counts, the channel
// records with the places of their bands, the bounds and the spatial index. Read once, then shared by all
// iterators; const methods may be called from any thread.
#pragma once

#include "common/container/WaveletChannelInfo.h"
#include "decode/container/BandLayout.h"
#include "index/RTree.h"
#include "model/NameIndex.h"
#include <vxunpack/Bounds.h>
#include <vxunpack/IO.h>
#include <vxunpack/PointInfo.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace Quillmoran {

class ChunkReader;

// A channel record with the pair of stretches of each of its bands, the coarsest first.
class WaveletDecoderChannelInfo final : public WaveletChannelInfo
{
public:
    struct Band
    {
        IO::Location first;  // subblock headers; empty when the second stretch holds them, too
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

    static WaveletDecoderInfo* create(std::uint32_t fileVersion);

    // Reads the wavelet header, the index and the subband directory; what is left of the group is counted
    // down.
    void load(ChunkReader& reader, std::int64_t& remaining);
    // Called once all names are complete.
    void finish();

    IO* getFile() const noexcept { return m_file.get(); }
    std::uint32_t getFileVersion() const noexcept { return m_fileVersion; }
    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    std::uint32_t getNumLevels() const noexcept { return m_numLevels; }
    const Bounds& getBounds() const noexcept { return m_bounds; }
    const RTree& getIndex() const noexcept { return *m_index; }
    std::uint32_t getPointsPerEntry() const noexcept { return m_pointsPerEntry; }
    std::int64_t getIndexLength() const noexcept { return m_indexLength; } // bytes

    // The layout of the points that the channels make.
    PointInfo getPointInfo() const;

    std::vector<WaveletDecoderChannelInfo>& getChannels() noexcept { return m_channels; }
    const std::vector<WaveletDecoderChannelInfo>& getChannels() const noexcept { return m_channels; }
    const WaveletDecoderChannelInfo& getChannel(std::size_t index) const;
    // By name, once finish() was called. The index of the whole channel of that name.
    std::optional<std::size_t> getChannel(const char* name) const;
    std::optional<SplitChannel> getSplitChannel(const char* name) const;

    // Samples of a level of the decomposition: 0 is the full resolution, each further one half of it.
    std::int64_t getNumSamples(std::uint32_t level) const noexcept;
    // The level at which a query at that fraction is decoded.
    std::uint32_t getLevel(double fraction) const noexcept;
    // The ranges of points, at that level, that can lie in a box; sorted, apart and not empty. Nearby ranges
    // are joined, since decoding works in whole subblocks.
    std::vector<PointRange> getPointRanges(std::uint32_t level, const Bounds& bounds) const;

    // The streams of one band of a channel, with the roles that its stretches play in this file.
    BandStretches getBandStretches(const WaveletDecoderChannelInfo& channel, std::size_t band) const;
    // Files of old versions announce a length per bit plane of a lifted MQ-coded channel, newer ones a single
    // length.
    bool isBeforeSingleLengths() const noexcept;
    // Whether the channel's subblocks announce a length per bit plane.
    bool hasPlaneLengths(const WaveletDecoderChannelInfo& channel) const;

private:
    explicit WaveletDecoderInfo(std::uint32_t fileVersion) : m_fileVersion(fileVersion) {}

    void indexNames();
    void readBands(ChunkReader& reader, std::int64_t& remaining);
    Bounds getIndexBounds() const;
    Bounds::Range getAxisBounds(const char* name, Bounds::Range Bounds::*axis) const;
    // Sorts the ranges and joins those that are no further apart than a subblock.
    void merge(std::vector<PointRange>& ranges) const;

    Scoped<IO> m_file;
    std::uint32_t m_fileVersion;
    std::int64_t m_numPoints = 0;
    std::uint32_t m_numLevels = 1;
    std::uint32_t m_largestSubblock = 0; // ranges no further apart than this are joined
    Bounds m_bounds;
    Scoped<RTree> m_index;
    std::vector<WaveletDecoderChannelInfo> m_channels;
    // By name: those that are whole, and the parts of split ones under the name of the channel that they
    // make.
    NameIndex m_wholes, m_fractions, m_exponents, m_signs;
    std::uint32_t m_pointsPerEntry = 0;
    std::int64_t m_indexLength = 0;
    BandLayout m_bandLayout;
};

} // namespace Quillmoran
