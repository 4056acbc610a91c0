// Converts the header fields and VLRs of a LAS file to metadata records and back, so that they survive
// conversion through another format:
//
//   key                                                                      value
//   -----------------------------------------------------------------------  ------------------------------
//   SystemID, GeneratingSoftware, ProjectID, FileSourceID, FileCreationDate  text
//   LAS_Format                                                               text: version, point format and
//                                                                            global encoding
//   PointRecordsByReturnCount                                                array of 5 or 15 numbers
//   LAS_BoundingBox                                                          array of 6 numbers
//   "user ID::number"                                                        blob: the value of a VLR or EVLR
//   LAS_Restore                                                              blob: see LASRestore
#pragma once

#include "las/header/LASHeader.h"
#include "las/header/LASVariableRecord.h"
#include <vxunpack/Metadata.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Quillmoran::LASMetadata {

// Whether read() appends the value of the record: not if it has more than 1 MiB, or is LASzip's VLR.
bool keepsValue(const LASVariableRecord& record);
// Appends the records of a file, which is open. With `sanitize` without those of the coordinate system.
void read(Metadata& into, const IO& io, const LASHeader& header,
          const std::vector<LASVariableRecord>& records, bool sanitize);

// The version, point format and global encoding of the file that points came from.
struct Format
{
    int version; // 10 * major + minor
    LASPointFormat pointFormat;
    std::uint16_t globalEncoding;
};
// Nothing if the record is missing or not understood.
std::optional<Format> findFormat(const Metadata& metadata);
// Whether the metadata has counts and bounds of exactly these points: writers of a part of the points and
// filters remove them.
bool hasCounts(const Metadata& metadata);

// Removes the VLRs and EVLRs of the coordinate system, also from LAS_Restore, when the points get another one.
// Throws LASRead for a damaged LAS_Restore.
void removeCoordinateSystem(Metadata& metadata);

// Copies system ID, project ID and file source ID to the header of a file to be written.
void apply(const Metadata& metadata, LASHeader& header);

// The key of a metadata record that holds a VLR.
struct RecordKey
{
    std::string userID; // at most 16 bytes
    std::uint16_t recordID;
    bool isCanonical; // the key is that of makeRecordKey(); others end with text that is not a number
};
// The bytes of a record's value.
std::span<const unsigned char> valueAt(const Metadata& metadata, std::size_t index);
std::string makeRecordKey(const std::string& userID, std::uint16_t recordID);
// Empty for any other key.
std::optional<RecordKey> parseRecordKey(const char* key);

} // namespace Quillmoran::LASMetadata
