#include "las/LASVariableRecords.h"

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
        QM_THROW(ErrorCode::LASRead, "the file ends within its variable length records");
}

std::string paddedText(const unsigned char* bytes, std::size_t size)
{
    const auto* text = reinterpret_cast<const char*>(bytes);
    return {text, strnlen(text, size)};
}

// One stretch of records: `count` of them, from `position` on, all before `end`.
struct Stretch
{
    const char* name;
    bool extended;
    std::int64_t position;
    std::int64_t end;
    std::uint32_t count;
};

void readStretch(const IO& io, Stretch stretch, std::vector<LASVariableRecord>& records)
{
    const std::size_t headerBytes =
        stretch.extended ? LASVariableRecord::extendedHeaderBytes : LASVariableRecord::headerBytes;
    std::array<unsigned char, LASVariableRecord::extendedHeaderBytes> header;
    for (std::uint32_t i = 0; i < stretch.count; ++i) {
        const auto left =
            static_cast<std::uint64_t>(std::max<std::int64_t>(stretch.end - stretch.position, 0));
        if (left < headerBytes)
            QM_THROW(ErrorCode::LASRead, "%s record %u of %u has no room", stretch.name, i + 1,
                     stretch.count);
        readWhole(io, stretch.position, header.data(), headerBytes);
        LASVariableRecord record;
        record.userID = paddedText(header.data() + 2, LASVariableRecord::userIDBytes);
        record.recordID = loadLittleEndian<std::uint16_t>(header.data() + 18);
        record.length = stretch.extended ? loadLittleEndian<std::uint64_t>(header.data() + 20)
                                         : loadLittleEndian<std::uint16_t>(header.data() + 20);
        record.description = paddedText(header.data() + headerBytes - LASVariableRecord::descriptionBytes,
                                        LASVariableRecord::descriptionBytes);
        record.position = stretch.position + static_cast<std::int64_t>(headerBytes);
        if (record.length > left - headerBytes)
            QM_THROW(ErrorCode::LASRead, "%s record %u of %u is too long", stretch.name, i + 1,
                     stretch.count);
        stretch.position = record.position + static_cast<std::int64_t>(record.length);
        records.push_back(std::move(record));
    }
}

} // namespace

std::vector<LASVariableRecord> readLASVariableRecords(const IO& io, const LASHeader& header)
{
    std::vector<LASVariableRecord> records;
    readStretch(io, {"variable length", false, header.headerSize, header.pointDataOffset, header.numVLRs},
                records);
    const std::int64_t size = io.size();
    if (header.numEVLRs != 0) {
        if (header.firstEVLR < header.pointDataOffset || header.firstEVLR > static_cast<std::uint64_t>(size))
            QM_THROW(ErrorCode::LASRead, "the extended variable length records lie outside the file");
        readStretch(io,
                    {"extended variable length", true, static_cast<std::int64_t>(header.firstEVLR), size,
                     header.numEVLRs},
                    records);
    }
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
