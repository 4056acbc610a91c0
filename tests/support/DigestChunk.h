// The digests of a compressed file, each computed with a single call of libxxhash, for comparing with those of
// the writer, and for files with other digests than the writer stores.
#pragma once

#include "support/ReadPoints.h"
#include "support/VX7Chunks.h"

#include <tuple>
#include <utility>
#include <xxhash.h>

namespace Quillmoran::Testing {

struct DigestChunk
{
    static constexpr std::uint32_t id = 0x44494753;

    std::uint8_t version = 1;
    std::uint8_t blockBits = 20;
    std::uint64_t numPoints = 0;
    std::uint16_t numChannels = 0;
    std::vector<std::uint64_t> samples; // by channel and block
    std::uint64_t index = 0;
    std::uint64_t description = 0;

    static std::uint64_t digestOf(const Bytes& bytes) { return XXH3_64bits(bytes.data(), bytes.size()); }

    // Of a file without digests, or with them.
    static DigestChunk of(const Bytes& file, unsigned blockBits = 20)
    {
        DigestChunk chunk;
        chunk.blockBits = static_cast<std::uint8_t>(blockBits);
        const auto reader = openFile(file);
        reader->setVerifiesDigests(false);
        const Points points = readAll(*reader);
        chunk.numPoints = points.count;
        chunk.numChannels = static_cast<std::uint16_t>(points.channels.size());
        for (std::size_t i = 0; i < points.channels.size(); ++i) {
            const Bytes& channel = points.channels[i];
            const std::size_t blockBytes =
                std::size_t{DataTypeUtils::getSize(reader->getChannel(i).getDataType())} << blockBits;
            for (std::size_t at = 0; at < channel.size(); at += blockBytes)
                chunk.samples.push_back(
                    XXH3_64bits(channel.data() + at, std::min(blockBytes, channel.size() - at)));
        }
        std::tie(chunk.index, chunk.description) = ofChunks(file);
        return chunk;
    }

    // The digests of the index and of the description.
    static std::pair<std::uint64_t, std::uint64_t> ofChunks(const Bytes& file)
    {
        Bytes index, described(file.begin(), file.begin() + 8);
        for (const VX7Chunks::Chunk& each : VX7Chunks::parse(file).chunks) {
            if (each.id == CHUNK_SUBBAND || each.id == id)
                continue;
            const auto begin = file.begin() + static_cast<std::ptrdiff_t>(each.position);
            Bytes& part = each.id == CHUNK_INDEX ? index : described;
            part.insert(part.end(), begin - ChunkHeader::size, begin + std::ssize(each.payload));
        }
        return {digestOf(index), digestOf(described)};
    }

    // Makes the payload consistent with the other chunks of a file.
    static void renew(Bytes& payload, const Bytes& file)
    {
        if (payload.size() < 24)
            return;
        std::uint8_t* const end = payload.data() + payload.size();
        const auto [index, description] = ofChunks(file);
        storeBigEndian(end - 24, index);
        storeBigEndian(end - 16, description);
        storeBigEndian<std::uint64_t>(end - 8, XXH3_64bits(payload.data(), payload.size() - 8));
    }

    Bytes payload() const
    {
        Bytes bytes;
        putBigEndian(bytes, version);
        putBigEndian(bytes, blockBits);
        putBigEndian(bytes, numPoints);
        putBigEndian(bytes, numChannels);
        for (const std::uint64_t digest : samples)
            putBigEndian(bytes, digest);
        putBigEndian(bytes, index);
        putBigEndian(bytes, description);
        putBigEndian(bytes, digestOf(bytes));
        return bytes;
    }

    // The file with this chunk.
    Bytes addTo(const Bytes& file) const
    {
        VX7Chunks chunks = VX7Chunks::parse(file);
        chunks.chunks.push_back({id, payload()});
        return chunks.toBytes();
    }
};

} // namespace Quillmoran::Testing
