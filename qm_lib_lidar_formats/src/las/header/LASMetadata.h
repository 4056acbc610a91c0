// Converts the header fields and VLRs of a LAS file to metadata records and back, so that they survive
// conversion through another format:
//
//   key                                                                      value
//   -----------------------------------------------------------------------  ------------------------------
//   SystemID, GeneratingSoftware, ProjectID, FileSourceID, FileCreationDate  text
//   PointRecordsByReturnCount                                                array of 5 or 15 numbers
//   LAS_BoundingBox                                                          array of 6 numbers
//   "user ID::number"                                                        blob: the value of a VLR or EVLR
#pragma once

#include "las/header/LASHeader.h"
#include "las/header/LASVariableRecord.h"
#include <vxunpack/Metadata.h>

#include <optional>
#include <string>
#include <vector>

namespace Quillmoran::LASMetadata {

// Appends the records of a file, which is open. Leaves out values of more than 1 MiB and LASzip's VLR.
void read(Metadata& into, const IO& io, const LASHeader& header,
          const std::vector<LASVariableRecord>& records);

// Copies system ID, project ID and file source ID to the header of a file to be written.
void apply(const Metadata& metadata, LASHeader& header);

// The key of a metadata record that holds a VLR.
struct RecordKey
{
    std::string userID; // at most 16 bytes
    std::uint16_t recordID;
};
// Empty for any other key.
std::optional<RecordKey> parseRecordKey(const char* key);

} // namespace Quillmoran::LASMetadata
