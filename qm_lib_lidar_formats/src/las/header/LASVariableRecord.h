// The VLRs of a LAS file, its variable length records: blocks of any content, identified by a user ID and a
// number. They are between header and points; LAS 1.4 also has extended ones, EVLRs, after the points.
#pragma once

#include "las/header/LASHeader.h"
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

struct LASVariableRecord
{
    static constexpr std::size_t headerBytes = 54;
    static constexpr std::size_t extendedHeaderBytes = 60;
    static constexpr std::size_t userIDBytes = 16;
    static constexpr std::size_t descriptionBytes = 32;

    static constexpr char compressionUserID[] = "laszip encoded";
    static constexpr std::uint16_t compressionRecordID = 22204;
    static constexpr char specUserID[] = "LASF_Spec";
    static constexpr std::uint16_t extraBytesRecordID = 4;
    static constexpr std::uint16_t waveformPackets = 65535;
    static constexpr char indexUserID[] = "LAStools";
    static constexpr std::uint16_t indexRecordID = 30;
    static constexpr char projectionUserID[] = "LASF_Projection";
    enum Projection : std::uint16_t
    {
        WKT_MATH_TRANSFORM = 2111,
        WKT_COORDINATE_SYSTEM = 2112,
        GEO_KEY_DIRECTORY = 34735,
        GEO_DOUBLE_PARAMS = 34736,
        GEO_ASCII_PARAMS = 34737
    };

    std::string userID;
    std::uint16_t recordID = 0;
    std::string description;
    std::int64_t position = 0; // of the value in the file
    std::uint64_t length = 0;  // of the value, bytes

    bool is(const char* user, std::uint16_t record) const noexcept
    {
        return recordID == record && userID == user;
    }
    // Whether it is LASzip's VLR, which describes the coding of a compressed file.
    bool isCompression() const noexcept { return is(compressionUserID, compressionRecordID); }
    // Whether it is the EVLR that holds the waveform packets of a file.
    bool isWaveformPackets() const noexcept { return is(specUserID, waveformPackets); }
};

// All VLRs of a file, then its EVLRs. Throws LASRead if a record does not end before the points or the end of
// the file. `io` is open.
std::vector<LASVariableRecord> readLASVariableRecords(const IO& io, const LASHeader& header);
// EVLRs from a position on; throws the same error.
std::vector<LASVariableRecord> readLASExtendedRecords(const IO& io, std::int64_t position,
                                                      std::uint32_t count);
// A record's value. Throws LASRead if the file has become shorter.
std::vector<unsigned char> readLASRecordValue(const IO& io, const LASVariableRecord& record);

// Appends a VLR: its header, with the mark 0xAABB, and the value of less than 65536 bytes.
void appendLASVariableRecord(std::vector<unsigned char>& to, const char* userID, std::uint16_t recordID,
                             const char* description, const void* value, std::size_t length);

} // namespace Quillmoran
