// LAS files as plain values, parsed and built field by field by the published format, without using the code
// under test.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

using LASBytes = std::vector<std::uint8_t>;

struct LASFileRecord
{
    std::string userID;
    std::uint16_t recordID = 0;
    std::string description;
    LASBytes value;
    std::uint16_t reserved = 0xAABB;
};

// The fields of all point formats; those that a format lacks are 0.
struct LASFilePoint
{
    std::int32_t x = 0, y = 0, z = 0;
    std::uint16_t intensity = 0;
    std::uint8_t returnNum = 0, numReturns = 0, scanDir = 0, edge = 0, classId = 0;
    std::uint8_t classFlags = 0, scannerChannel = 0; // of formats 6 and above
    std::int16_t scanAngle = 0;
    std::uint8_t userData = 0;
    std::uint16_t sourceId = 0;
    double gpsTime = 0;
    std::uint16_t red = 0, green = 0, blue = 0, nearInfrared = 0;

    bool operator==(const LASFilePoint& other) const; // of times their bits
};

struct LASFile
{
    std::uint16_t fileSourceID = 0, globalEncoding = 0;
    std::uint32_t guid1 = 0;
    std::uint16_t guid2 = 0, guid3 = 0;
    std::array<std::uint8_t, 8> guid4{};
    std::uint8_t versionMajor = 1, versionMinor = 2;
    std::string systemID, software;
    std::uint16_t day = 0, year = 0;
    std::uint16_t headerSize = 0;      // 0: the version's own
    std::uint32_t pointDataOffset = 0; // 0: after the VLRs
    int format = 0;
    bool compressed = false;
    std::uint16_t recordLength = 0; // 0: the format's own
    std::uint32_t legacyCount = 0;
    std::array<std::uint32_t, 5> legacyByReturn{};
    std::array<double, 3> scale{0.01, 0.01, 0.01}, offset{}, min{}, max{};
    std::uint64_t count = 0; // of version 1.4, as the following
    std::array<std::uint64_t, 15> byReturn{};
    std::vector<LASFileRecord> records, extendedRecords;
    std::vector<LASFilePoint> points; // empty for a compressed file

    static std::size_t recordBytes(int format);
    static bool hasTime(int format);

    // Throws std::runtime_error if the file is incomplete.
    static LASFile parse(const LASBytes& bytes);
    static LASFile load(const std::string& path);
    // Sizes, offsets and numbers of records are computed; counts and bounds are those of the members.
    LASBytes build() const;
    // Sets counts, counts by return and bounds from the points.
    void describePoints();
};

} // namespace Quillmoran::Testing
