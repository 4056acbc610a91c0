#include "support/LASFile.h"

#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace Quillmoran::Testing {

namespace {

// The fields of a file, which the same functions read or write. Tests run on little-endian machines.
class Stream
{
public:
    Stream() = default;
    Stream(const LASBytes& from, std::size_t at) : m_from(&from), m_at(at) {}

    void raw(void* value, std::size_t size)
    {
        auto* const field = static_cast<std::uint8_t*>(value);
        if (!m_from) {
            bytes.insert(bytes.end(), field, field + size);
            return;
        }
        if (m_at > m_from->size() || size > m_from->size() - m_at)
            throw std::runtime_error("LAS file too short at " + std::to_string(m_at));
        std::copy_n(m_from->data() + m_at, size, field);
        m_at += size;
    }
    template <class... T>
    void operator()(T&... values)
    {
        (raw(&values, sizeof values), ...);
    }
    // Numbers of a few bits each, the lowest first, in one byte.
    void bits(std::initializer_list<std::pair<std::uint8_t*, int>> fields)
    {
        int byte = 0, at = 0;
        for (const auto& [field, width] : fields) {
            byte |= *field << at;
            at += width;
        }
        raw(&byte, 1);
        byte &= 0xFF;
        for (const auto& [field, width] : fields) {
            *field = static_cast<std::uint8_t>(byte % (1 << width));
            byte >>= width;
        }
    }

    LASBytes bytes; // written

private:
    const LASBytes* m_from = nullptr;
    std::size_t m_at = 0;
};

// Padded with NULs in the file.
void text(Stream& stream, std::string& value, std::size_t size)
{
    value.resize(size);
    stream.raw(value.data(), size);
    value.resize(std::strlen(value.c_str()));
}

void record(Stream& stream, LASFileRecord& value, bool isExtended)
{
    stream(value.reserved);
    text(stream, value.userID, 16);
    stream(value.recordID);
    std::uint64_t size = value.value.size();
    stream.raw(&size, isExtended ? 8 : 2);
    text(stream, value.description, 32);
    value.value.resize(size);
    stream.raw(value.value.data(), size);
}

void point(Stream& stream, LASFilePoint& p, int format)
{
    stream(p.x, p.y, p.z, p.intensity);
    if (format < 6) {
        stream.bits({{&p.returnNum, 3}, {&p.numReturns, 3}, {&p.scanDir, 1}, {&p.edge, 1}});
        auto degrees = static_cast<std::int8_t>(p.scanAngle);
        stream(p.classId, degrees, p.userData, p.sourceId);
        p.scanAngle = degrees;
    } else {
        stream.bits({{&p.returnNum, 4}, {&p.numReturns, 4}});
        stream.bits({{&p.classFlags, 4}, {&p.scannerChannel, 2}, {&p.scanDir, 1}, {&p.edge, 1}});
        stream(p.classId, p.userData, p.scanAngle, p.sourceId);
    }
    if (LASFile::hasTime(format))
        stream(p.gpsTime);
    if (format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10)
        stream(p.red, p.green, p.blue);
    if (format == 8 || format == 10)
        stream(p.nearInfrared);
}

void header(Stream& stream, LASFile& file, std::uint64_t& extendedAt)
{
    std::string signature = "LASF";
    text(stream, signature, 4);
    if (signature != "LASF")
        throw std::runtime_error("no LAS file");
    stream(file.fileSourceID, file.globalEncoding, file.guid1, file.guid2, file.guid3, file.guid4,
           file.versionMajor, file.versionMinor);
    text(stream, file.systemID, 32);
    text(stream, file.software, 32);
    auto numRecords = static_cast<std::uint32_t>(file.records.size());
    auto markedFormat = static_cast<std::uint8_t>(file.format + (file.compressed ? 128 : 0));
    stream(file.day, file.year, file.headerSize, file.pointDataOffset, numRecords, markedFormat,
           file.recordLength, file.legacyCount, file.legacyByReturn, file.scale, file.offset);
    file.records.resize(numRecords);
    file.format = markedFormat % 64;
    file.compressed = markedFormat >= 128;
    for (std::size_t axis = 0; axis < 3; ++axis)
        stream(file.max[axis], file.min[axis]);
    std::uint64_t waveforms = 0;
    if (file.versionMinor >= 3)
        stream(waveforms);
    auto numExtended = static_cast<std::uint32_t>(file.extendedRecords.size());
    if (file.versionMinor >= 4)
        stream(extendedAt, numExtended, file.count, file.byReturn);
    file.extendedRecords.resize(numExtended);
}

} // namespace

bool LASFilePoint::operator==(const LASFilePoint& other) const
{
    const auto integers = [](const LASFilePoint& p) {
        return std::tie(p.x, p.y, p.z, p.intensity, p.returnNum, p.numReturns, p.scanDir, p.edge, p.classId,
                        p.classFlags, p.scannerChannel, p.scanAngle, p.userData, p.sourceId, p.red, p.green,
                        p.blue, p.nearInfrared);
    };
    return integers(*this) == integers(other) && std::memcmp(&gpsTime, &other.gpsTime, sizeof gpsTime) == 0;
}

std::size_t LASFile::recordBytes(int format)
{
    constexpr std::size_t bytes[] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
    return bytes[format];
}

bool LASFile::hasTime(int format)
{
    return format == 1 || format >= 3;
}

LASFile LASFile::load(const std::string& path)
{
    const std::string content = readFile(path);
    return parse({content.begin(), content.end()});
}

LASFile LASFile::parse(const LASBytes& bytes)
{
    LASFile file;
    Stream in(bytes, 0);
    std::uint64_t extendedAt = 0;
    header(in, file, extendedAt);
    Stream records(bytes, file.headerSize), extended(bytes, extendedAt);
    for (LASFileRecord& each : file.records)
        record(records, each, false);
    for (LASFileRecord& each : file.extendedRecords)
        record(extended, each, true);
    if (file.versionMinor < 4) {
        file.count = file.legacyCount;
        std::copy(file.legacyByReturn.begin(), file.legacyByReturn.end(), file.byReturn.begin());
    }
    const std::uint64_t count = file.count != 0 ? file.count : file.legacyCount;
    for (std::uint64_t i = 0; i < count && !file.compressed; ++i) {
        Stream fields(bytes, file.pointDataOffset + i * file.recordLength);
        point(fields, file.points.emplace_back(), file.format);
    }
    return file;
}

LASBytes LASFile::build() const
{
    LASFile file = *this;
    Stream out, body;
    for (LASFileRecord& each : file.records)
        record(body, each, false);
    if (headerSize == 0)
        file.headerSize = versionMinor >= 4 ? 375 : versionMinor == 3 ? 235 : 227;
    if (pointDataOffset == 0)
        file.pointDataOffset = static_cast<std::uint32_t>(file.headerSize + body.bytes.size());
    if (recordLength == 0)
        file.recordLength = static_cast<std::uint16_t>(recordBytes(format));
    body.bytes.resize(file.pointDataOffset - file.headerSize, 0xEE);
    for (LASFilePoint& each : file.points) {
        const std::size_t end = body.bytes.size() + file.recordLength;
        point(body, each, format);
        body.bytes.resize(end, 0xDD); // extra bytes and wave packets
    }
    std::uint64_t extendedAt = extendedRecords.empty() ? 0 : file.headerSize + body.bytes.size();
    for (LASFileRecord& each : file.extendedRecords)
        record(body, each, true);
    header(out, file, extendedAt);
    out.bytes.resize(file.headerSize, 0xCC); // the additional bytes of a longer header
    out.raw(body.bytes.data(), body.bytes.size());
    return out.bytes;
}

void LASFile::describePoints()
{
    count = points.size();
    legacyCount = static_cast<std::uint32_t>(points.size());
    byReturn = {};
    min.fill(1e300);
    max.fill(-1e300);
    for (const LASFilePoint& each : points) {
        if (each.returnNum >= 1)
            ++byReturn[each.returnNum - 1u];
        const std::int32_t steps[] = {each.x, each.y, each.z};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double value = steps[axis] * scale[axis] + offset[axis];
            min[axis] = std::min(min[axis], value);
            max[axis] = std::max(max[axis], value);
        }
    }
    std::copy_n(byReturn.begin(), legacyByReturn.size(), legacyByReturn.begin());
}

} // namespace Quillmoran::Testing
