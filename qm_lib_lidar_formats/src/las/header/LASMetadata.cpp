#include "las/header/LASMetadata.h"

#include "framework/MetadataKeys.h"
#include "las/header/LASRestore.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

namespace Quillmoran::LASMetadata {

namespace {

constexpr char systemID[] = "SystemID";
constexpr char generatingSoftware[] = "GeneratingSoftware";
constexpr char projectID[] = "ProjectID";
constexpr char fileSourceID[] = "FileSourceID";
constexpr char fileCreationDate[] = "FileCreationDate";
constexpr char formatKey[] = "LAS_Format";
using MetadataKeys::boundingBox;
using MetadataKeys::countsByReturn;
constexpr char formatText[] = "version %u.%u, point format %u, global encoding %u"; // to print and scan
constexpr char separator[] = "::";

constexpr std::uint64_t maxValueBytes = 1 << 20; // far more than any description of a cloud

void addText(Metadata& into, const char* key, const std::string& text)
{
    if (!text.empty())
        into.add(key, nullptr, METADATA_STRING, text.c_str(), 0);
}

void addProjectID(Metadata& into, const LASHeader::ProjectID& id)
{
    char text[64];
    const auto& d = id.data4;
    std::snprintf(text, sizeof text, "{%08" PRIX32 "-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.data1,
                  id.data2, id.data3, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
    addText(into, projectID, text);
}

void addCountsByReturn(Metadata& into, const LASHeader& header)
{
    std::vector<double> counts(header.legacyPointsByReturn.begin(), header.legacyPointsByReturn.end());
    if (header.versionMinor >= 4)
        counts.assign(header.pointsByReturn.begin(), header.pointsByReturn.end());
    into.add(countsByReturn, nullptr, METADATA_FLOAT64_ARRAY, counts.data(), counts.size());
}

void addBoundingBox(Metadata& into, const LASHeader& header)
{
    double box[6];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        box[2 * axis] = header.min[axis];
        box[2 * axis + 1] = header.max[axis];
    }
    into.add(boundingBox, nullptr, METADATA_FLOAT64_ARRAY, box, 6);
}

const char* findText(const Metadata& metadata, const char* key)
{
    const int found = metadata.getKeyIndex(key);
    const auto index = static_cast<std::size_t>(found);
    const bool isText = found >= 0 && metadata.getDataType(index) == METADATA_STRING;
    return isText ? static_cast<const char*>(metadata.getValue(index)) : nullptr;
}

void applyProjectID(const char* text, LASHeader::ProjectID& id)
{
    LASHeader::ProjectID parsed;
    unsigned data2 = 0;
    unsigned data3 = 0;
    unsigned d[8];
    const int fields = std::sscanf(text, "{%8" SCNx32 "-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}", &parsed.data1,
                                   &data2, &data3, &d[0], &d[1], &d[2], &d[3], &d[4], &d[5], &d[6], &d[7]);
    if (fields != 11)
        return;
    parsed.data2 = static_cast<std::uint16_t>(data2);
    parsed.data3 = static_cast<std::uint16_t>(data3);
    std::transform(d, d + 8, parsed.data4.begin(),
                   [](unsigned byte) { return static_cast<std::uint8_t>(byte); });
    id = parsed;
}

} // namespace

bool keepsValue(const LASVariableRecord& record)
{
    return record.length <= maxValueBytes && !record.isCompression();
}

void read(Metadata& into, const IO& io, const LASHeader& header,
          const std::vector<LASVariableRecord>& records, bool sanitize)
{
    addText(into, systemID, header.systemIdentifier);
    addText(into, generatingSoftware, header.generatingSoftware);
    addProjectID(into, header.projectID);
    addText(into, fileSourceID, std::to_string(header.fileSourceID));
    char date[16];
    std::snprintf(date, sizeof date, "%04d-%03d", header.creationYear, header.creationDay);
    addText(into, fileCreationDate, date);
    char format[80];
    std::snprintf(format, sizeof format, formatText, unsigned{header.versionMajor},
                  unsigned{header.versionMinor}, unsigned{header.pointFormat.number},
                  unsigned{header.globalEncoding});
    addText(into, formatKey, format);
    addCountsByReturn(into, header);
    addBoundingBox(into, header);
    for (const LASVariableRecord& record : records) {
        const bool isProjection = record.userID == LASVariableRecord::projectionUserID;
        if (!keepsValue(record) || (sanitize && isProjection))
            continue;
        const auto value = readLASRecordValue(io, record);
        const std::string key = makeRecordKey(record.userID, record.recordID);
        // Metadata::add() requires an address, also for no bytes.
        into.add(key.c_str(), record.description.c_str(), METADATA_BLOB,
                 value.empty() ? "" : static_cast<const void*>(value.data()), value.size());
    }
    if (const auto restore = LASRestore::read(io, header, records)) {
        const auto packed = restore->pack();
        into.add(LASRestore::key, nullptr, METADATA_BLOB, packed.data(), packed.size());
    }
}

std::optional<Format> findFormat(const Metadata& metadata)
{
    const char* const text = findText(metadata, formatKey);
    unsigned major = 0;
    unsigned minor = 0;
    unsigned format = 0;
    unsigned encoding = 0;
    if (!text || std::sscanf(text, formatText, &major, &minor, &format, &encoding) != 4 || major > 1 ||
        minor > 4 || format > LASPointFormat::last)
        return std::nullopt;
    return Format{static_cast<int>(10 * major + minor),
                  {static_cast<std::uint8_t>(format)},
                  static_cast<std::uint16_t>(encoding)};
}

bool hasCounts(const Metadata& metadata)
{
    return metadata.has(countsByReturn) && metadata.has(boundingBox);
}

void removeCoordinateSystem(Metadata& metadata)
{
    for (std::size_t i = metadata.getNumRecords(); i-- > 0;)
        if (const auto key = parseRecordKey(metadata.getKey(i));
            key && key->userID == LASVariableRecord::projectionUserID)
            metadata.remove(i);
    auto restore = LASRestore::find(metadata);
    if (!restore)
        return;
    const bool hadEVLRs = !restore->extendedRecords.empty();
    for (auto* records : {&restore->records, &restore->extendedRecords})
        std::erase_if(*records, [](const LASRestore::Record& record) {
            return record.userID() == LASVariableRecord::projectionUserID;
        });
    if (hadEVLRs && restore->extendedRecords.empty()) { // otherwise the header would announce them
        LASHeader header;
        header.parse(restore->header);
        header.numEVLRs = 0;
        header.firstEVLR = 0;
        restore->header = header.writeOver(std::move(restore->header));
    }
    const auto packed = restore->pack();
    metadata.remove(LASRestore::key);
    metadata.add(LASRestore::key, nullptr, METADATA_BLOB, packed.data(), packed.size());
}

void apply(const Metadata& metadata, LASHeader& header)
{
    if (const char* text = findText(metadata, systemID))
        header.systemIdentifier = text;
    if (const char* text = findText(metadata, projectID))
        applyProjectID(text, header.projectID);
    if (const char* text = findText(metadata, fileSourceID)) {
        int id = 0;
        if (std::sscanf(text, "%d", &id) == 1)
            header.fileSourceID = static_cast<std::uint16_t>(id);
    }
}

std::span<const unsigned char> valueAt(const Metadata& metadata, std::size_t index)
{
    const bool isArray = metadata.getDataType(index) == METADATA_FLOAT64_ARRAY;
    const std::size_t length = metadata.getValueLength(index) * (isArray ? sizeof(double) : 1);
    return {static_cast<const unsigned char*>(metadata.getValue(index)), length};
}

std::string makeRecordKey(const std::string& userID, std::uint16_t recordID)
{
    return userID + separator + std::to_string(recordID);
}

std::optional<RecordKey> parseRecordKey(const char* key)
{
    const std::string_view text = key;
    const std::size_t end = text.rfind(separator); // a user ID can have it, too
    if (end == std::string_view::npos)
        return std::nullopt;
    const long number = std::strtol(key + end + std::strlen(separator), nullptr, 10);
    if (number < 0 || number > UINT16_MAX)
        return std::nullopt;
    const std::string userID(text.substr(0, std::min(end, LASVariableRecord::userIDBytes)));
    const auto recordID = static_cast<std::uint16_t>(number);
    return RecordKey{userID, recordID, makeRecordKey(userID, recordID) == key};
}

} // namespace Quillmoran::LASMetadata
