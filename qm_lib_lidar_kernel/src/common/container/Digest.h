// Digests of a compressed file, by which readers detect damage: 64-bit XXH3 of the samples of a channel, one
// per block of points, and of parts of the file.
#pragma once

#include <vxunpack/PointData.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct XXH3_state_s; // of libxxhash

namespace Quillmoran {

// The digest of a sequence of bytes that are added in parts.
class Digest
{
public:
    Digest();

    void add(const void* bytes, std::size_t size) noexcept;
    // Samples [first, first + count) of a channel, each as little-endian bytes.
    void add(const ChannelData& samples, std::size_t first, std::size_t count) noexcept;
    // Of all bytes added since the construction or the last reset().
    std::uint64_t get() const noexcept;
    void reset() noexcept;

private:
    struct Free
    {
        void operator()(XXH3_state_s* state) const noexcept;
    };

    std::unique_ptr<XXH3_state_s, Free> m_state;
};

// Computes the digests of the blocks of one channel, block b of the points from b * 2^blockBits on. Ranges of
// points can be skipped; only blocks whose samples are all added have a digest.
class BlockDigest
{
public:
    static constexpr unsigned usualBlockBits = 20;

    explicit BlockDigest(unsigned blockBits = usualBlockBits) : m_blockPoints(std::int64_t{1} << blockBits) {}

    // The next samples are those from this point on.
    void seek(std::int64_t point) noexcept
    {
        m_point = point;
        m_isWhole = false;
        m_digest.reset();
    }

    // Adds the next samples. Calls onBlock(block, digest) at the end of each block.
    template <class OnBlock>
    void add(const ChannelData& samples, std::size_t count, OnBlock onBlock)
    {
        for (std::size_t first = 0; first < count;) {
            const std::int64_t inBlock = m_point & (m_blockPoints - 1);
            if (inBlock == 0)
                m_isWhole = true;
            const auto part = static_cast<std::size_t>(
                std::min(static_cast<std::int64_t>(count - first), m_blockPoints - inBlock));
            if (m_isWhole)
                m_digest.add(samples, first, part);
            first += part;
            m_point += static_cast<std::int64_t>(part);
            if (inBlock + static_cast<std::int64_t>(part) == m_blockPoints)
                endBlock(onBlock);
        }
    }

    // After the last point of the channel: ends the last block unless it is complete.
    template <class OnBlock>
    void finish(OnBlock onBlock)
    {
        if ((m_point & (m_blockPoints - 1)) != 0)
            endBlock(onBlock);
    }

private:
    template <class OnBlock>
    void endBlock(OnBlock onBlock)
    {
        if (m_isWhole)
            onBlock((m_point - 1) / m_blockPoints, m_digest.get());
        m_digest.reset();
    }

    std::int64_t m_blockPoints;
    std::int64_t m_point = 0; // the next one
    bool m_isWhole = false;   // the samples of the current block are added from its first point on
    Digest m_digest;
};

// The digests of all blocks of one channel.
class ChannelDigests
{
public:
    explicit ChannelDigests(unsigned blockBits = BlockDigest::usualBlockBits) : m_current(blockBits) {}

    // The next samples of the channel.
    void add(const ChannelData& samples, std::size_t count)
    {
        m_current.add(samples, count,
                      [this](std::int64_t, std::uint64_t digest) { m_blocks.push_back(digest); });
    }
    void finish()
    {
        m_current.finish([this](std::int64_t, std::uint64_t digest) { m_blocks.push_back(digest); });
    }

    // Complete after finish().
    const std::vector<std::uint64_t>& getBlocks() const noexcept { return m_blocks; }

private:
    BlockDigest m_current;
    std::vector<std::uint64_t> m_blocks;
};

} // namespace Quillmoran
