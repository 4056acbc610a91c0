// The public header block of a LAS file, versions 1.0 to 1.4, as a value: read from a file, checked, and
// written. Its numbers are little-endian.
#pragma once

#include "las/points/LASPointFormat.h"
#include <vxunpack/IO.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Quillmoran {

struct LASHeader
{
    static constexpr std::size_t textBytes = 32; // of the two names
    static constexpr std::size_t legacyReturns = 5;
    static constexpr std::size_t maxReturns = 15;

    enum GlobalEncoding : std::uint16_t
    {
        ADJUSTED_TIME = 1, // GPS time is adjusted standard time, not time of the week
        WKT = 1 << 4       // the coordinate system is given as WKT, not as GeoTIFF keys
    };

    struct ProjectID
    {
        std::uint32_t data1 = 0;
        std::uint16_t data2 = 0;
        std::uint16_t data3 = 0;
        std::array<std::uint8_t, 8> data4{};
    };

    std::uint16_t fileSourceID = 0;
    std::uint16_t globalEncoding = 0;
    ProjectID projectID;
    std::uint8_t versionMajor = 1;
    std::uint8_t versionMinor = 2;
    std::string systemIdentifier;   // at most 32 bytes are kept
    std::string generatingSoftware; // at most 32 bytes are kept
    std::uint16_t creationDay = 0;  // of the year, from 1
    std::uint16_t creationYear = 0;
    std::uint16_t headerSize = 227;
    std::uint32_t pointDataOffset = 227;
    std::uint32_t numVLRs = 0;
    LASPointFormat pointFormat{0};
    bool compressed = false;
    std::uint16_t recordLength = 20;
    std::uint32_t legacyPointCount = 0;
    std::array<std::uint32_t, legacyReturns> legacyPointsByReturn{};
    std::array<double, 3> scale{0.01, 0.01, 0.01};
    std::array<double, 3> offset{};
    std::array<double, 3> max{};
    std::array<double, 3> min{};
    // From version 1.3 on.
    std::uint64_t waveformDataStart = 0;
    // From version 1.4 on.
    std::uint64_t firstEVLR = 0;
    std::uint32_t numEVLRs = 0;
    std::uint64_t pointCount = 0;
    std::array<std::uint64_t, maxReturns> pointsByReturn{};

    // Reads and checks the block: signature, a version from 1.0 to 1.4 (or 0.0, which some writers leave),
    // header and record sizes that hold their fields, points that begin after the header. Throws LASRead "bad
    // LAS header: " and the reason otherwise.
    void read(const IO& io);
    // The same for the first bytes of a file.
    void parse(std::span<const unsigned char> bytes);
    // The block as it is in a file, headerSize bytes.
    std::vector<unsigned char> write() const;
    // The block of another file with the fields of this header but for the two names: keeps all other bytes.
    std::vector<unsigned char> writeOver(std::vector<unsigned char> block) const;

    // The number of points, from the field that is valid for the file's version.
    std::uint64_t getPointCount() const noexcept;

    // Bytes of the block; minor versions 3 and 4 add fields.
    static std::uint16_t sizeOfVersion(std::uint8_t minor) noexcept;
};

} // namespace Quillmoran
