#include "las/header/LASRestore.h"

#include "las/header/LASMetadata.h"
#include "las/points/LASFields.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstring>
#include <zlib.h>

namespace Quillmoran {

namespace {

using Bytes = LASRestore::Bytes;

// The packed form, with numbers in the byte order of LAS:
//
//   | version 1 | size of the content 4 | content, deflated |
//   content   | header | VLRs | padding | gap | EVLRs | rest |
//   VLRs      | number 4 | header | has value 1 | value, if so | ...
//   all other | size 4 | bytes |
constexpr unsigned char packedVersion = 1;
constexpr std::size_t packedHead = 5;
constexpr std::size_t lengthAt = 20; // in the header of a VLR
constexpr std::uint64_t maxContent = 2 * LASRestore::maxBytes;
constexpr std::uint64_t maxExpansion = 1040; // of deflate, roughly

[[noreturn]] void throwDamaged()
{
    QM_THROW(ErrorCode::LASRead, "the restore record is damaged");
}

class Packer
{
public:
    explicit Packer(const LASRestore& from)
    {
        put(from.header);
        put(from.records);
        put(from.padding);
        put(from.gap);
        put(from.extendedRecords);
        put(from.rest);
    }

    const Bytes& content() const noexcept { return m_content; }

private:
    void putNumber(std::size_t number)
    {
        m_content.resize(m_content.size() + 4);
        storeLittleEndian(m_content.data() + m_content.size() - 4, static_cast<std::uint32_t>(number));
    }

    void put(const Bytes& bytes)
    {
        putNumber(bytes.size());
        m_content.insert(m_content.end(), bytes.begin(), bytes.end());
    }

    void put(const std::vector<LASRestore::Record>& records)
    {
        putNumber(records.size());
        for (const LASRestore::Record& record : records) {
            put(record.header);
            m_content.push_back(record.value ? 1 : 0);
            if (record.value)
                put(*record.value);
        }
    }

    Bytes m_content;
};

class Unpacker
{
public:
    explicit Unpacker(std::span<const unsigned char> content) : m_left(content) {}

    Bytes takeBytes()
    {
        const auto bytes = take(takeNumber());
        return {bytes.begin(), bytes.end()};
    }

    std::vector<LASRestore::Record> takeRecords(std::size_t headerBytes)
    {
        std::vector<LASRestore::Record> records;
        for (std::uint32_t left = takeNumber(); left != 0; --left) {
            LASRestore::Record& record = records.emplace_back();
            record.header = takeBytes();
            if (record.header.size() != headerBytes)
                throwDamaged();
            if (take(1)[0] != 0)
                record.value = takeBytes();
        }
        return records;
    }

    bool isAtEnd() const noexcept { return m_left.empty(); }

private:
    std::span<const unsigned char> take(std::size_t count)
    {
        if (count > m_left.size())
            throwDamaged();
        const auto taken = m_left.first(count);
        m_left = m_left.subspan(count);
        return taken;
    }
    std::uint32_t takeNumber() { return loadLittleEndian<std::uint32_t>(take(4).data()); }

    std::span<const unsigned char> m_left;
};

// Copies ranges of a file, up to LASRestore::maxBytes in all.
class Copier
{
public:
    explicit Copier(const IO& io) : m_io(io) {}

    Bytes copy(std::uint64_t begin, std::uint64_t end)
    {
        const std::uint64_t size = end > begin ? end - begin : 0;
        m_isExceeded = m_isExceeded || size > m_left;
        if (m_isExceeded)
            return {};
        m_left -= size;
        Bytes bytes(size);
        if (readFully(m_io, static_cast<std::int64_t>(begin), bytes.data(), bytes.size()) != bytes.size())
            QM_THROW(ErrorCode::LASRead, "the file has become shorter");
        return bytes;
    }

    LASRestore::Record copyRecord(const LASVariableRecord& record, const LASHeader& header, bool isExtended)
    {
        const std::size_t headerBytes =
            isExtended ? LASVariableRecord::extendedHeaderBytes : LASVariableRecord::headerBytes;
        const auto position = static_cast<std::uint64_t>(record.position);
        LASRestore::Record copied{copy(position - headerBytes, position), std::nullopt};
        // Waveform packets are not kept.
        if (!LASMetadata::keepsValue(record) &&
            !(header.pointFormat.hasWaveform() && record.isWaveformPackets()))
            copied.value = copy(position, position + record.length);
        return copied;
    }

    bool isExceeded() const noexcept { return m_isExceeded; }

private:
    const IO& m_io;
    std::uint64_t m_left = LASRestore::maxBytes;
    bool m_isExceeded = false;
};

} // namespace

std::string LASRestore::Record::userID() const
{
    const auto* const text = reinterpret_cast<const char*>(header.data() + 2);
    return {text, strnlen(text, LASVariableRecord::userIDBytes)};
}

std::uint16_t LASRestore::Record::recordID() const noexcept
{
    return loadLittleEndian<std::uint16_t>(header.data() + 18);
}

bool LASRestore::Record::is(const char* user, std::uint16_t record) const
{
    return recordID() == record && userID() == user;
}

Bytes LASRestore::Record::headerFor(std::uint64_t length) const
{
    Bytes changed = header;
    if (isExtended())
        storeLittleEndian(changed.data() + lengthAt, length);
    else
        storeLittleEndian(changed.data() + lengthAt, static_cast<std::uint16_t>(length));
    return changed;
}

std::optional<LASRestore> LASRestore::read(const IO& io, const LASHeader& header,
                                           const std::vector<LASVariableRecord>& all)
{
    const auto size = static_cast<std::uint64_t>(io.size());
    const std::uint64_t points = header.getPointCount() * (header.compressed ? 0 : header.recordLength);
    const std::uint64_t pointsEnd = header.pointDataOffset + points;
    // EVLRs in the place of the points are damage. The points of a LAZ file end before them.
    const bool hasEVLRs = header.numEVLRs != 0 && header.firstEVLR >= pointsEnd;
    for (std::size_t axis = 0; axis < 3; ++axis)
        if (!LASFields::isExact({header.scale[axis], header.offset[axis]}))
            return std::nullopt;
    Copier file(io);
    LASRestore result;
    result.header = file.copy(0, header.headerSize);
    std::uint64_t end = header.headerSize;
    const auto numVLRs = static_cast<std::ptrdiff_t>(header.numVLRs);
    for (auto record = all.begin(); record != all.begin() + numVLRs; ++record) {
        result.records.push_back(file.copyRecord(*record, header, false));
        end = static_cast<std::uint64_t>(record->position) + record->length;
    }
    result.padding = file.copy(end, header.pointDataOffset);
    end = header.compressed ? size : pointsEnd;
    if (hasEVLRs) {
        if (!header.compressed)
            result.gap = file.copy(pointsEnd, header.firstEVLR);
        for (auto record = all.begin() + numVLRs; record != all.end(); ++record) {
            result.extendedRecords.push_back(file.copyRecord(*record, header, true));
            end = static_cast<std::uint64_t>(record->position) + record->length;
        }
    }
    // The points of old files with waveforms are followed by the packets.
    if (!header.pointFormat.hasWaveform())
        (hasEVLRs ? result.rest : result.gap) = file.copy(end, size);
    if (file.isExceeded())
        return std::nullopt;
    return result;
}

Bytes LASRestore::pack() const
{
    const Packer packer(*this);
    const Bytes& content = packer.content();
    uLongf size = compressBound(static_cast<uLong>(content.size()));
    Bytes packed(packedHead + size);
    packed[0] = packedVersion;
    storeLittleEndian(packed.data() + 1, static_cast<std::uint32_t>(content.size()));
    if (compress2(packed.data() + packedHead, &size, content.data(), static_cast<uLong>(content.size()),
                  Z_BEST_COMPRESSION) != Z_OK)
        QM_THROW(ErrorCode::LASRead, "zlib cannot compress the restore record");
    packed.resize(packedHead + size);
    return packed;
}

LASRestore LASRestore::unpack(std::span<const unsigned char> value)
{
    if (value.size() < packedHead || value[0] != packedVersion)
        throwDamaged();
    const std::uint64_t wanted = loadLittleEndian<std::uint32_t>(value.data() + 1);
    if (wanted > std::min<std::uint64_t>(maxContent, value.size() * maxExpansion))
        throwDamaged();
    Bytes content(wanted);
    auto size = static_cast<uLongf>(content.size());
    if (uncompress(content.data(), &size, value.data() + packedHead,
                   static_cast<uLong>(value.size() - packedHead)) != Z_OK ||
        size != content.size())
        throwDamaged();
    Unpacker from(content);
    LASRestore result;
    result.header = from.takeBytes();
    result.records = from.takeRecords(LASVariableRecord::headerBytes);
    result.padding = from.takeBytes();
    result.gap = from.takeBytes();
    result.extendedRecords = from.takeRecords(LASVariableRecord::extendedHeaderBytes);
    result.rest = from.takeBytes();
    if (!from.isAtEnd())
        throwDamaged();
    return result;
}

std::optional<LASRestore> LASRestore::find(const Metadata& metadata)
{
    const char* description = nullptr;
    MetadataDataType type{};
    const void* value = nullptr;
    std::size_t length = 0;
    if (!metadata.get(key, description, type, value, length))
        return std::nullopt;
    if (type != METADATA_BLOB || !value)
        throwDamaged();
    return unpack({static_cast<const unsigned char*>(value), length});
}

} // namespace Quillmoran
