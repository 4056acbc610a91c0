#include "las/header/LASVariableRecord.h"

#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::uint16_t recordMark = 0xAABB;

void readWhole(const IO& io, std::int64_t position, void* bytes, std::size_t size)
{
    if (readFully(io, position, bytes, size) != size)
        QM_THROW(ErrorCode::LASRead, "the file ends within its VLRs");
}

std::string paddedText(const unsigned char* bytes, std::size_t size)
{
    const auto* text = reinterpret_cast<const char*>(bytes);
    return {text, strnlen(text, size)};
}

// The byte range of the VLRs or of the EVLRs: `count` records from `position` on, which end at `end` at the
// latest.
struct RecordRange
{
    bool extended;
    std::int64_t position;
    std::int64_t end;
    std::uint32_t count;
};

void readRange(const IO& io, RecordRange range, std::vector<LASVariableRecord>& records)
{
    const char* const name = range.extended ? "EVLR" : "VLR";
    const std::size_t headerBytes =
        range.extended ? LASVariableRecord::extendedHeaderBytes : LASVariableRecord::headerBytes;
    std::array<unsigned char, LASVariableRecord::extendedHeaderBytes> header;
    for (std::uint32_t i = 0; i < range.count; ++i) {
        const auto left = static_cast<std::uint64_t>(std::max<std::int64_t>(range.end - range.position, 0));
        if (left < headerBytes)
            QM_THROW(ErrorCode::LASRead, "%s %u of %u is cut off", name, i + 1, range.count);
        readWhole(io, range.position, header.data(), headerBytes);
        LASVariableRecord record;
        record.userID = paddedText(header.data() + 2, LASVariableRecord::userIDBytes);
        record.recordID = loadLittleEndian<std::uint16_t>(header.data() + 18);
        record.length = range.extended ? loadLittleEndian<std::uint64_t>(header.data() + 20)
                                       : loadLittleEndian<std::uint16_t>(header.data() + 20);
        record.description = paddedText(header.data() + headerBytes - LASVariableRecord::descriptionBytes,
                                        LASVariableRecord::descriptionBytes);
        record.position = range.position + static_cast<std::int64_t>(headerBytes);
        if (record.length > left - headerBytes)
            QM_THROW(ErrorCode::LASRead, "%s %u of %u is too long", name, i + 1, range.count);
        range.position = record.position + static_cast<std::int64_t>(record.length);
        records.push_back(std::move(record));
    }
}

} // namespace

std::vector<LASVariableRecord> readLASVariableRecords(const IO& io, const LASHeader& header)
{
    std::vector<LASVariableRecord> records;
    readRange(io, {false, header.headerSize, header.pointDataOffset, header.numVLRs}, records);
    const std::int64_t size = io.size();
    if (header.numEVLRs != 0) {
        if (header.firstEVLR < header.pointDataOffset || header.firstEVLR > static_cast<std::uint64_t>(size))
            QM_THROW(ErrorCode::LASRead, "the EVLRs are outside the file");
        readRange(io, {true, static_cast<std::int64_t>(header.firstEVLR), size, header.numEVLRs}, records);
    }
    return records;
}

std::vector<LASVariableRecord> readLASExtendedRecords(const IO& io, std::int64_t position,
                                                      std::uint32_t count)
{
    std::vector<LASVariableRecord> records;
    readRange(io, {true, position, io.size(), count}, records);
    return records;
}

std::vector<unsigned char> readLASRecordValue(const IO& io, const LASVariableRecord& record)
{
    std::vector<unsigned char> value(record.length);
    readWhole(io, record.position, value.data(), value.size());
    return value;
}

void appendLASVariableRecord(std::vector<unsigned char>& to, const char* userID, std::uint16_t recordID,
                             const char* description, const void* value, std::size_t length)
{
    std::array<unsigned char, LASVariableRecord::headerBytes> header{};
    storeLittleEndian(header.data(), recordMark);
    std::memcpy(header.data() + 2, userID, strnlen(userID, LASVariableRecord::userIDBytes));
    storeLittleEndian(header.data() + 18, recordID);
    storeLittleEndian(header.data() + 20, static_cast<std::uint16_t>(length));
    if (description)
        std::memcpy(header.data() + 22, description,
                    strnlen(description, LASVariableRecord::descriptionBytes));
    to.insert(to.end(), header.begin(), header.end());
    const auto* bytes = static_cast<const unsigned char*>(value);
    to.insert(to.end(), bytes, bytes + length);
}

} // namespace Quillmoran
