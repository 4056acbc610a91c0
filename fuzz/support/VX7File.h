// A compressed file as a list of chunks, for the mutator: split without trusting it, and joined with lengths
// that agree.
#pragma once

#include "common/container/ChunkHeader.h"
#include "platform/ByteOrder.h"
#include "support/FuzzTarget.h"

#include <algorithm>
#include <vector>

namespace Quillmoran::Fuzz {

using Bytes = std::vector<std::uint8_t>;

struct VX7File
{
    struct Chunk
    {
        std::uint32_t id = 0;
        Bytes payload;
    };

    static constexpr std::size_t preambleBytes = 16; // magic, version, length of the rest

    Bytes preamble;
    std::vector<Chunk> chunks;

    // Splits the bytes as far as they look like chunks.
    static VX7File parse(Input bytes)
    {
        VX7File file;
        Input rest = bytes;
        const auto cut = [&rest](std::uint64_t count) {
            const Input front =
                rest.first(static_cast<std::size_t>(std::min<std::uint64_t>(count, rest.size())));
            rest = rest.subspan(front.size());
            return Bytes(front.begin(), front.end());
        };
        file.preamble = cut(preambleBytes);
        file.preamble.resize(preambleBytes);
        cut(ChunkHeader::size); // of the group
        while (rest.size() >= ChunkHeader::size) {
            const Bytes header = cut(ChunkHeader::size);
            file.chunks.push_back({loadBigEndian<std::uint32_t>(header.data()),
                                   cut(loadBigEndian<std::uint64_t>(header.data() + 4))});
        }
        return file;
    }

    Bytes toBytes() const
    {
        Bytes body;
        for (const Chunk& chunk : chunks) {
            appendHeader(body, chunk.id, chunk.payload.size());
            body.insert(body.end(), chunk.payload.begin(), chunk.payload.end());
        }
        Bytes bytes = preamble;
        storeBigEndian<std::uint64_t>(bytes.data() + 8, body.size() + ChunkHeader::size);
        appendHeader(bytes, CHUNK_GROUP, body.size());
        bytes.insert(bytes.end(), body.begin(), body.end());
        return bytes;
    }

    // The first chunk of an id, or null.
    Chunk* find(std::uint32_t id)
    {
        const auto found =
            std::find_if(chunks.begin(), chunks.end(), [id](const Chunk& c) { return c.id == id; });
        return found == chunks.end() ? nullptr : &*found;
    }

private:
    static void appendHeader(Bytes& bytes, std::uint32_t id, std::uint64_t length)
    {
        std::uint8_t header[ChunkHeader::size];
        storeBigEndian(header, id);
        storeBigEndian(header + 4, length);
        bytes.insert(bytes.end(), header, header + sizeof header);
    }
};

} // namespace Quillmoran::Fuzz
