// How LASzip coded the points of a file, from the VLR that LASzip adds. The VLR is checked before LASzip
// reads it, because LASzip trusts its values and leaks memory when it refuses a file.
#pragma once

#include "las/header/LASHeader.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Quillmoran {

struct LASzipCoding
{
    static constexpr std::uint32_t variableChunks = UINT32_MAX;

    bool chunked = false;        // the points are in chunks, each coded independently
    std::uint32_t chunkSize = 0; // points of a chunk, or variableChunks
    // EVLRs that the header of the file does not count. Not checked.
    std::int64_t numSpecialRecords = 0;
    std::int64_t specialRecords = 0; // position
    std::size_t numLayers = 0;       // of a chunk that codes each field separately; 0 for other chunks

    // Parses the value of the VLR. Throws LASRead unless it is complete, its codings are known and it
    // describes points of the header's format and record length.
    static LASzipCoding parse(const std::vector<unsigned char>& value, const LASHeader& header);
    // Whether two values stand for the same code: they differ at most in the version of the software.
    static bool isSame(std::span<const unsigned char> a, std::span<const unsigned char> b);
};

// What LASzip reads in place of the header and the VLRs: the header and one VLR with the value. With more
// VLRs LASzip frees values that it could not read. It also refuses version 0.0, which becomes 1.2 here.
std::vector<unsigned char> makeLASzipHead(LASHeader header, const std::vector<unsigned char>& value);

} // namespace Quillmoran
