#include "support/LASFile.h"

#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <tuple>

namespace Quillmoran::Testing {

namespace {

constexpr std::size_t formatBytes[] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

std::size_t headerBytes(int minor)
{
    return minor >= 4 ? 375 : minor == 3 ? 235 : 227;
}

bool hasTime(int format)
{
    return format == 1 || format >= 3;
}

bool hasColour(int format)
{
    return format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10;
}

class In
{
public:
    In(const LASBytes& bytes, std::size_t at) : m_bytes(bytes), m_at(at) {}

    template <class T>
    void operator()(T& value)
    {
        need(sizeof(T));
        std::memcpy(&value, m_bytes.data() + m_at, sizeof(T)); // tests run on little-endian machines
        m_at += sizeof(T);
    }
    template <class T>
    T get()
    {
        T value;
        (*this)(value);
        return value;
    }
    std::string text(std::size_t size)
    {
        need(size);
        m_at += size;
        return {reinterpret_cast<const char*>(m_bytes.data()) + m_at - size, size};
    }
    std::size_t at() const { return m_at; }

private:
    void need(std::size_t size) const
    {
        if (m_at > m_bytes.size() || size > m_bytes.size() - m_at)
            throw std::runtime_error("LAS file too short at " + std::to_string(m_at));
    }

    const LASBytes& m_bytes;
    std::size_t m_at;
};

class Out
{
public:
    template <class T>
    void operator()(T value)
    {
        std::uint8_t raw[sizeof(T)];
        std::memcpy(raw, &value, sizeof(T));
        bytes.insert(bytes.end(), raw, raw + sizeof(T));
    }
    void text(const std::string& value, std::size_t size)
    {
        std::string padded = value;
        padded.resize(size);
        bytes.insert(bytes.end(), padded.begin(), padded.end());
    }

    LASBytes bytes;
};

std::string withoutPadding(const std::string& text)
{
    return text.substr(0, text.find('\0'));
}

LASFileRecord readRecord(In& in, bool extended)
{
    LASFileRecord record;
    in(record.reserved);
    record.userID = withoutPadding(in.text(16));
    in(record.recordID);
    const std::uint64_t length = extended ? in.get<std::uint64_t>() : in.get<std::uint16_t>();
    record.description = withoutPadding(in.text(32));
    const std::string value = in.text(length);
    record.value.assign(value.begin(), value.end());
    return record;
}

void writeRecord(Out& out, const LASFileRecord& record, bool extended)
{
    out(record.reserved);
    out.text(record.userID, 16);
    out(record.recordID);
    if (extended)
        out(static_cast<std::uint64_t>(record.value.size()));
    else
        out(static_cast<std::uint16_t>(record.value.size()));
    out.text(record.description, 32);
    out.bytes.insert(out.bytes.end(), record.value.begin(), record.value.end());
}

LASFilePoint readPoint(In in, int format)
{
    LASFilePoint p;
    in(p.x), in(p.y), in(p.z), in(p.intensity);
    const auto returns = in.get<std::uint8_t>();
    if (format < 6) {
        p.returnNum = returns % 8;
        p.numReturns = returns / 8 % 8;
        p.scanDir = returns / 64 % 2;
        p.edge = returns / 128;
        in(p.classId);
        p.scanAngle = in.get<std::int8_t>();
        in(p.userData), in(p.sourceId);
        if (hasTime(format))
            in(p.gpsTime);
    } else {
        p.returnNum = returns % 16;
        p.numReturns = returns / 16;
        const auto flags = in.get<std::uint8_t>();
        p.classFlags = flags % 16;
        p.scannerChannel = flags / 16 % 4;
        p.scanDir = flags / 64 % 2;
        p.edge = flags / 128;
        in(p.classId), in(p.userData), in(p.scanAngle), in(p.sourceId), in(p.gpsTime);
    }
    if (hasColour(format))
        in(p.red), in(p.green), in(p.blue);
    if (format == 8 || format == 10)
        in(p.nearInfrared);
    return p;
}

void writePoint(Out& out, const LASFilePoint& p, int format)
{
    const auto byte = [&out](int value) { out(static_cast<std::uint8_t>(value)); };
    out(p.x), out(p.y), out(p.z), out(p.intensity);
    if (format < 6) {
        byte(p.returnNum + 8 * p.numReturns + 64 * p.scanDir + 128 * p.edge);
        out(p.classId), byte(p.scanAngle), out(p.userData), out(p.sourceId);
        if (hasTime(format))
            out(p.gpsTime);
    } else {
        byte(p.returnNum + 16 * p.numReturns);
        byte(p.classFlags + 16 * p.scannerChannel + 64 * p.scanDir + 128 * p.edge);
        out(p.classId), out(p.userData), out(p.scanAngle), out(p.sourceId), out(p.gpsTime);
    }
    if (hasColour(format))
        out(p.red), out(p.green), out(p.blue);
    if (format == 8 || format == 10)
        out(p.nearInfrared);
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
    return formatBytes[format];
}

LASFile LASFile::load(const std::string& path)
{
    const std::string content = readFile(path);
    return parse({content.begin(), content.end()});
}

LASFile LASFile::parse(const LASBytes& bytes)
{
    LASFile file;
    In in(bytes, 0);
    if (in.text(4) != "LASF")
        throw std::runtime_error("no LAS file");
    in(file.fileSourceID), in(file.globalEncoding), in(file.guid1), in(file.guid2), in(file.guid3),
        in(file.guid4);
    file.versionMajor = in.get<std::uint8_t>();
    file.versionMinor = in.get<std::uint8_t>();
    file.systemID = in.text(32);
    file.software = in.text(32);
    file.day = in.get<std::uint16_t>();
    file.year = in.get<std::uint16_t>();
    in(file.headerSize), in(file.pointDataOffset);
    const auto numRecords = in.get<std::uint32_t>();
    const auto markedFormat = in.get<std::uint8_t>();
    file.format = markedFormat % 64;
    file.compressed = markedFormat >= 128;
    in(file.recordLength), in(file.legacyCount), in(file.legacyByReturn), in(file.scale), in(file.offset);
    for (std::size_t axis = 0; axis < 3; ++axis)
        in(file.max[axis]), in(file.min[axis]);
    std::uint64_t extendedAt = 0;
    std::uint32_t numExtended = 0;
    if (file.versionMinor >= 3)
        in.get<std::uint64_t>();
    if (file.versionMinor >= 4)
        in(extendedAt), in(numExtended), in(file.count), in(file.byReturn);
    In records(bytes, file.headerSize);
    for (std::uint32_t i = 0; i < numRecords; ++i)
        file.records.push_back(readRecord(records, false));
    In extended(bytes, extendedAt);
    for (std::uint32_t i = 0; i < numExtended; ++i)
        file.extendedRecords.push_back(readRecord(extended, true));
    const std::uint64_t count = file.count != 0 ? file.count : file.legacyCount;
    for (std::uint64_t i = 0; i < count && !file.compressed; ++i)
        file.points.push_back(
            readPoint(In(bytes, file.pointDataOffset + i * file.recordLength), file.format));
    if (file.versionMinor < 4) {
        file.count = file.legacyCount;
        std::copy(file.legacyByReturn.begin(), file.legacyByReturn.end(), file.byReturn.begin());
    }
    return file;
}

LASBytes LASFile::build() const
{
    Out body;
    for (const LASFileRecord& record : records)
        writeRecord(body, record, false);
    const auto size = headerSize != 0 ? headerSize : static_cast<std::uint16_t>(headerBytes(versionMinor));
    const auto begin =
        pointDataOffset != 0 ? pointDataOffset : static_cast<std::uint32_t>(size + body.bytes.size());
    const auto length = recordLength != 0 ? recordLength : static_cast<std::uint16_t>(recordBytes(format));
    body.bytes.resize(begin - size, 0xEE);
    for (const LASFilePoint& point : points) {
        const std::size_t end = body.bytes.size() + length;
        writePoint(body, point, format);
        body.bytes.resize(end, 0xDD); // extra bytes and wave packets
    }
    const std::uint64_t extendedAt = extendedRecords.empty() ? 0 : size + body.bytes.size();
    for (const LASFileRecord& record : extendedRecords)
        writeRecord(body, record, true);

    Out out;
    out.text("LASF", 4);
    out(fileSourceID), out(globalEncoding), out(guid1), out(guid2), out(guid3), out(guid4);
    out(static_cast<std::uint8_t>(versionMajor)), out(static_cast<std::uint8_t>(versionMinor));
    out.text(systemID, 32), out.text(software, 32);
    out(static_cast<std::uint16_t>(day)), out(static_cast<std::uint16_t>(year));
    out(size), out(begin), out(static_cast<std::uint32_t>(records.size()));
    out(static_cast<std::uint8_t>(format + (compressed ? 128 : 0))), out(length), out(legacyCount);
    out(legacyByReturn), out(scale), out(offset);
    for (std::size_t axis = 0; axis < 3; ++axis)
        out(max[axis]), out(min[axis]);
    if (versionMinor >= 3)
        out(std::uint64_t{0});
    if (versionMinor >= 4)
        out(extendedAt), out(static_cast<std::uint32_t>(extendedRecords.size())), out(count), out(byReturn);
    out.bytes.resize(size, 0xCC); // the additional bytes of a longer header
    out.bytes.insert(out.bytes.end(), body.bytes.begin(), body.bytes.end());
    return out.bytes;
}

void LASFile::describePoints()
{
    count = points.size();
    legacyCount = static_cast<std::uint32_t>(points.size());
    legacyByReturn = {};
    byReturn = {};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        min[axis] = 1e300;
        max[axis] = -1e300;
    }
    for (const LASFilePoint& point : points) {
        if (point.returnNum >= 1)
            ++byReturn[point.returnNum - 1u];
        const std::int32_t steps[] = {point.x, point.y, point.z};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double value = steps[axis] * scale[axis] + offset[axis];
            min[axis] = std::min(min[axis], value);
            max[axis] = std::max(max[axis], value);
        }
    }
    for (std::size_t i = 0; i < 5; ++i)
        legacyByReturn[i] = static_cast<std::uint32_t>(byReturn[i]);
}

} // namespace Quillmoran::Testing
