// The header fields and variable length records of a LAS file as metadata records, in both directions, so
// that they survive the way through another format:
//
//   SystemID, GeneratingSoftware, ProjectID, FileSourceID, FileCreationDate    texts
//   PointRecordsByReturnCount (5 or 15 numbers), LAS_BoundingBox (6)           arrays
//   "user ID::number"                                                          a variable length record, a
//   blob
#pragma once

#include "las/LASHeader.h"
#include "las/LASVariableRecords.h"
#include <vxunpack/Metadata.h>

#include <optional>
#include <string>
#include <vector>

namespace Quillmoran::LASMetadata {

// Appends the records of a file. The store is open; values of more than a mebibyte and
// what describes the file's own compression are left out.
void read(Metadata& into, const IO& io, const LASHeader& header,
          const std::vector<LASVariableRecord>& records);

// Takes what a writer keeps of a file's identity into its header: system and project ID, file source, counts
// by return.
void apply(const Metadata& metadata, LASHeader& header);

// A metadata record that stands for a variable length record.
struct RecordKey
{
    std::string userID; // at most 16 bytes
    std::uint16_t recordID;
};
// Nothing for a key of another kind.
std::optional<RecordKey> parseRecordKey(const char* key);

} // namespace Quillmoran::LASMetadata
