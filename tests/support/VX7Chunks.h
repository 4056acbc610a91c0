// A compressed file as a list of chunks: finds fields, and joins changed chunks with lengths that agree.
#pragma once

#include "common/container/ChunkHeader.h"
#include "platform/ByteOrder.h"
#include "support/SubblockEncoder.h"

#include <algorithm>
#include <span>
#include <vector>

namespace Quillmoran::Testing {

struct VX7Chunks
{
    struct Chunk
    {
        std::uint32_t id = 0;
        Bytes payload;
        std::size_t position = 0; // of the payload in the parsed file
    };

    static constexpr std::size_t preambleBytes = 16; // magic, version, length of the rest

    Bytes preamble;
    std::vector<Chunk> chunks; // of the group

    // Splits the bytes as far as they look like chunks.
    static VX7Chunks parse(std::span<const std::uint8_t> bytes)
    {
        VX7Chunks file;
        std::size_t at = 0;
        const auto cut = [&](std::uint64_t count) {
            const auto part = bytes.subspan(
                at, static_cast<std::size_t>(std::min<std::uint64_t>(count, bytes.size() - at)));
            at += part.size();
            return Bytes(part.begin(), part.end());
        };
        file.preamble = cut(preambleBytes);
        file.preamble.resize(preambleBytes);
        cut(ChunkHeader::size); // of the group
        while (bytes.size() - at >= ChunkHeader::size) {
            const Bytes header = cut(ChunkHeader::size);
            Chunk& chunk = file.chunks.emplace_back();
            chunk.id = loadBigEndian<std::uint32_t>(header.data());
            chunk.position = at;
            chunk.payload = cut(loadBigEndian<std::uint64_t>(header.data() + 4));
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

    // The n-th chunk with an id, or null.
    Chunk* find(std::uint32_t id, std::size_t n = 0)
    {
        for (Chunk& chunk : chunks)
            if (chunk.id == id && n-- == 0)
                return &chunk;
        return nullptr;
    }

private:
    static void appendHeader(Bytes& bytes, std::uint32_t id, std::uint64_t length)
    {
        putBigEndian(bytes, id);
        putBigEndian(bytes, length);
    }
};

} // namespace Quillmoran::Testing
