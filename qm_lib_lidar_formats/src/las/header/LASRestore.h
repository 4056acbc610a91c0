// The bytes of a LAS file that are neither points nor values of VLRs which the metadata holds: the header, the
// headers of VLRs and EVLRs, and the bytes between and after them. A metadata record keeps them, so that a
// writer can give back the file byte for byte.
#pragma once

#include "las/header/LASHeader.h"
#include "las/header/LASVariableRecord.h"
#include <vxunpack/IO.h>
#include <vxunpack/Metadata.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Quillmoran {

struct LASRestore
{
    using Bytes = std::vector<unsigned char>;

    // The key of the metadata record.
    static constexpr char key[] = "LAS_Restore";
    // Bytes outside the points of a file that can be restored.
    static constexpr std::uint64_t maxBytes = 64 << 20;

    // A VLR, or an EVLR with its longer header.
    struct Record
    {
        Bytes header; // as it is in the file
        // Empty if the metadata has it, under the key of the record.
        std::optional<Bytes> value;

        bool isExtended() const noexcept { return header.size() != LASVariableRecord::headerBytes; }
        std::string userID() const;
        std::uint16_t recordID() const noexcept;
        bool is(const char* user, std::uint16_t record) const;
        // The header for a value of this length, which must fit into its length field.
        Bytes headerFor(std::uint64_t length) const;
        std::uint64_t maxLength() const noexcept { return isExtended() ? maxBytes : UINT16_MAX; }
    };

    Bytes header;
    std::vector<Record> records;
    Bytes padding; // between the VLRs and the points
    Bytes gap;     // between the points and the EVLRs
    std::vector<Record> extendedRecords;
    Bytes rest; // after the EVLRs

    // Reads these bytes from a file, which is open. Nothing if they are more than maxBytes, or if coordinates
    // are too many steps from zero to be restored.
    static std::optional<LASRestore> read(const IO& io, const LASHeader& header,
                                          const std::vector<LASVariableRecord>& records);

    // The value of the metadata record, and back.
    Bytes pack() const;
    // Throws LASRead "the restore record is damaged".
    static LASRestore unpack(std::span<const unsigned char> value);
    // The first record under the key; nothing if there is none.
    static std::optional<LASRestore> find(const Metadata& metadata);
};

} // namespace Quillmoran
