// The digests that a file holds of its samples, its index and its description (all other chunks). Opening a
// file only notes where they are, so that damaged digests do not keep it from being read without them. Const
// methods may be called from any thread.
#pragma once

#include "platform/Mutex.h"
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class StoredDigests
{
public:
    // Of the samples of all channels.
    struct Samples
    {
        unsigned blockBits = 0; // block b begins at point b * 2^blockBits
        std::int64_t numPoints = 0;
        std::size_t numBlocks = 0;          // of each channel
        std::vector<std::uint64_t> digests; // by channel and block

        // `channel` is an index in the layout of the file's points.
        std::uint64_t get(std::size_t channel, std::int64_t block) const
        {
            return digests[channel * numBlocks + static_cast<std::size_t>(block)];
        }
        // Reports a difference: "channel Z, points 1048576 to 2097151: digest differs".
        std::string describe(const char* channel, std::int64_t block) const;
    };

    // While the file is being opened. These chunks include their headers.
    void setWaveletHeader(const IO::Location& chunk) { m_header = chunk; }
    void setIndex(const IO::Location& chunk) { m_index = chunk; }
    // The payload of the chunk of digests. The chunks from `afterBands` to it are a part of the description.
    void setDigests(std::int64_t afterBands, const IO::Location& payload);

    bool exist() const noexcept { return m_payload.io() != nullptr; }
    const IO::Location& getPayload() const noexcept { return m_payload; }

    // The following functions read the digests when they are first called. Without digests, or with those of
    // a newer version, the first returns null, and the others do nothing. All throw DigestDiffers: "the
    // digests are damaged"; the others also "the index: digest differs", "headers and metadata: digest
    // differs".
    //
    // The digests of `numPoints` points of `numChannels` channels. Valid as long as this object.
    const Samples* getSamples(std::int64_t numPoints, std::size_t numChannels) const;
    void verifyIndex() const;
    void verifyDescription() const;

private:
    struct Head // before the digests of the samples
    {
        std::uint8_t version;
        std::uint8_t blockBits;
        std::int64_t numPoints;
        std::uint16_t numChannels;
    };

    // Returns whether there are digests of a known version.
    bool load() const;
    void readSamples(std::size_t numBlocks) const;

    IO::Location m_header, m_index;
    IO::Location m_rest;    // from the metadata to the last chunk before the digests
    IO::Location m_payload; // without an IO if there are no digests

    mutable Mutex m_mutex; // guards the following
    mutable std::optional<Head> m_head;
    mutable std::uint64_t m_storedIndex = 0;
    mutable std::uint64_t m_storedDescription = 0;
    mutable std::optional<Samples> m_samples;
    mutable bool m_isIndexGood = false; // compared, without a difference
    mutable bool m_isDescriptionGood = false;
};

} // namespace Quillmoran
