#include "utils/sets/TileSetFile.h"

#include "index/DiskRTree.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include "utils/sets/Packet.h"
#include <vxunpack/Base.h>
#include <vxunpack/DataType.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBytes = 4096;
constexpr std::uint32_t newestVersion = 2;

constexpr std::size_t textBytes = Packet::textBytes;
constexpr std::size_t channelBytes = textBytes + 2 + 2 + 8; // without a name

class PacketSequence
{
public:
    explicit PacketSequence(IO* io) { m_stream.init(io, true, streamBytes); }

    void readHeader()
    {
        char magic[4];
        if (m_stream.read(magic, sizeof magic) != sizeof magic ||
            std::memcmp(magic, "rtre", sizeof magic) != 0)
            QM_THROW(ErrorCode::General, "bad magic");
        std::uint32_t version = 0;
        if (!m_stream.get_be(version))
            Packet::throwCut("version");
        if (version > newestVersion)
            QM_THROW(ErrorCode::General, "unsupported version");
    }

    // Skips to the next packet with a known name, which must be one of these, and returns its name. The last
    // one of `names` is required, the others are optional.
    std::string next(std::initializer_list<const char*> names)
    {
        const char* expected = names.end()[-1];
        std::string name;
        do {
            m_stream.seek(m_end, Stream::SEEK_FROM_START);
            name = readStart(expected);
        } while (!isAmong(name, {"info", "week", "over", "path", "tree"}));
        if (!isAmong(name, names))
            QM_THROW(ErrorCode::General, "unknown chunk name '%s' was expecting '%s'", name.c_str(),
                     expected);
        return name;
    }

    Packet open() { return {m_stream.getIO(), m_stream.tell(), m_end - m_stream.tell()}; }
    std::unique_ptr<TileTable> openTiles()
    {
        return std::make_unique<TileTable>(m_stream.getIO(), m_stream.tell(), m_end - m_stream.tell());
    }
    void read(DiskRTree& tree) { tree.init(m_stream, m_end - m_stream.tell()); }

private:
    static bool isAmong(const std::string& name, std::initializer_list<const char*> names)
    {
        return std::find(names.begin(), names.end(), name) != names.end();
    }

    std::string readStart(const char* expected)
    {
        const auto fieldOf = [expected](const char* field) { return '\'' + (expected + std::string(field)); };
        std::string name(4, '\0');
        if (m_stream.read(name.data(), name.size()) != name.size())
            Packet::throwCut(fieldOf("' packet name"));
        std::uint32_t length = 0;
        if (!m_stream.get_be(length))
            Packet::throwCut(fieldOf("' packet length"));
        if (length > m_stream.remaining())
            Packet::throwImpossible(fieldOf("' packet length").c_str());
        m_end = m_stream.tell() + length;
        return name;
    }

    StreamReader m_stream;
    std::int64_t m_end = 8; // of the current packet; at first of the header
};

ChannelInfo readChannel(Packet& packet)
{
    const std::string name = packet.readText("channel name");
    const auto type = static_cast<DataType>(packet.readNumber<std::uint16_t>("data type"));
    const auto bits = packet.readNumber<std::uint16_t>("bits");
    const auto quantization = packet.readNumber<double>("quantization");
    if (!DataTypeUtils::isKnown(type))
        Packet::throwImpossible("data type");
    ChannelInfo channel;
    channel.init(name.c_str(), type, bits, quantization);
    return channel;
}

void readQuantization(Packet& packet, PointCloudInfo& info)
{
    double scale[3];
    double offset[3];
    for (int axis = 0; axis < 3; ++axis) {
        scale[axis] = packet.readNumber<double>("scale");
        offset[axis] = packet.readNumber<double>("offset");
    }
    info.setQuantization(scale, offset);
}

void readClassNames(Packet& packet, PointCloudInfo& info)
{
    std::vector<std::string> names(packet.readCount<std::uint16_t>("number of classes", textBytes));
    std::vector<const char*> pointers;
    for (std::string& name : names) {
        name = packet.readText("class name");
        pointers.push_back(name.empty() ? nullptr : name.c_str());
    }
    info.setClassIdNames(pointers.data(), pointers.size());
}

void readInfo(Packet packet, TileSet& set)
{
    set.srs = packet.readText("srs");
    PointInfo layout;
    const auto numChannels = packet.readCount<std::uint16_t>("number of channels", channelBytes);
    for (unsigned i = 0; i < numChannels; ++i)
        layout.append(readChannel(packet));
    set.info->setPointInfo(layout);
    set.info->setNumPoints(packet.readNumPoints());
    const std::string wkt = packet.readText("WKT");
    set.info->setWKT(wkt.empty() ? nullptr : wkt.c_str());
    set.info->setBounds(packet.readBounds());
    readQuantization(packet, *set.info);
    readClassNames(packet, *set.info);
}

void readGPSWeek(Packet packet, TileSet& set)
{
    const auto week = packet.readNumber<std::uint32_t>("GPS week");
    if (week > INT32_MAX)
        Packet::throwImpossible("GPS week");
    set.gpsWeek = static_cast<int>(week);
}

void readOverview(Packet packet, TileSet& set)
{
    Overview overview;
    overview.tile = packet.readTile();
    overview.fraction = packet.readNumber<double>("overview fraction");
    if (!isOverviewFraction(overview.fraction))
        Packet::throwImpossible("overview fraction");
    set.overview = overview;
}

constexpr std::uint32_t openLength = 0xFFFFFFFF; // until the payload is written

[[noreturn]] void throwFailed(const std::string& field)
{
    OSError error(__FILE__, "write", __LINE__);
    error(": failed writing: %s", field.c_str());
    throw error;
}

// Writes the fields of a file. Errors name the field.
class FieldWriter
{
public:
    explicit FieldWriter(IO* io) { m_stream.init(io, true, streamBytes); }

    StreamWriter& stream() { return m_stream; }
    void close() { m_stream.close(true); }

    template <class T>
    void putNumber(T value, const std::string& field)
    {
        if (!m_stream.put_be(value))
            throwFailed(field);
    }

    void putBytes(const char* bytes, std::size_t count, const std::string& field)
    {
        if (!m_stream.put_str(bytes, count))
            throwFailed(field);
    }

    // Null is written as empty text.
    void putText(const char* text, const char* field)
    {
        const std::size_t length = text ? std::strlen(text) : 0;
        if (length > UINT16_MAX)
            QM_THROW(ErrorCode::General, "failed writing: %s: string is too long", field);
        putNumber(static_cast<std::uint16_t>(length), std::string(field) + ": string length");
        if (length != 0)
            putBytes(text, length, std::string(field) + ": string payload");
    }

    void putCount16(std::size_t count, const char* field)
    {
        if (count > UINT16_MAX)
            QM_THROW(ErrorCode::General, "failed writing: %s", field);
        putNumber(static_cast<std::uint16_t>(count), field);
    }

    void putBounds(const Bounds& bounds)
    {
        for (const Bounds::Range& range : {bounds.x, bounds.y, bounds.z}) {
            putNumber(range.min, "bounds");
            putNumber(range.max, "bounds");
        }
    }

    void putTile(const TileInfo& tile)
    {
        putText(tile.path.c_str(), "path");
        putNumber(tile.timestamp, "timestamp");
        putBounds(tile.bounds);
        putNumber(tile.numPoints, "number of points");
    }

    // Fills in the length after the payload is written.
    template <class Payload>
    void putPacket(const std::string& name, Payload putPayload)
    {
        constexpr std::int64_t startBytes = 8;
        const std::int64_t start = m_stream.tell();
        const std::string quoted = '\'' + name + '\'';
        putBytes(name.data(), name.size(), quoted + " packet name");
        putNumber(openLength, quoted + " packet length");
        putPayload();
        const std::int64_t end = m_stream.tell();
        const std::int64_t length = end - start - startBytes;
        if (length > UINT32_MAX)
            QM_THROW(ErrorCode::General, "failed writing: '%s' packet too long", name.c_str());
        m_stream.seek(start + 4, Stream::SEEK_FROM_START);
        putNumber(static_cast<std::uint32_t>(length), quoted + " packet length");
        m_stream.seek(end, Stream::SEEK_FROM_START);
    }

private:
    StreamWriter m_stream;
};

void writeInfo(FieldWriter& writer, const TileSet& set)
{
    const PointCloudInfo& info = *set.info;
    writer.putText(set.srs.c_str(), "srs");
    const PointInfo& layout = info.getPointInfo();
    writer.putCount16(layout.getNumChannels(), "number of channels");
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        writer.putText(channel.getName(), "channel name");
        writer.putNumber(static_cast<std::uint16_t>(channel.getDataType()), "data type");
        writer.putNumber(static_cast<std::uint16_t>(channel.getBits()), "bits");
        writer.putNumber(channel.getQuantization(), "quantization");
    }
    writer.putNumber(static_cast<std::uint64_t>(info.getNumPoints()), "number of points");
    writer.putText(info.getWKT(), "WKT");
    writer.putBounds(info.getBounds());
    for (int axis = 0; axis < 3; ++axis) {
        writer.putNumber(info.getScale() ? info.getScale()[axis] : 0.0, "scale");
        writer.putNumber(info.getOffset() ? info.getOffset()[axis] : 0.0, "offset");
    }
    writer.putCount16(info.getNumClassIdNames(), "number of classes");
    for (std::size_t i = 0; i < info.getNumClassIdNames(); ++i)
        writer.putText(info.getClassIdNames()[i], "class name");
}

} // namespace

std::unique_ptr<TileTable> TileSetFile::read(IO* io, TileSet& set, DiskRTree& tree)
{
    PacketSequence packets(io);
    packets.readHeader();
    packets.next({"info"});
    set = TileSet();
    readInfo(packets.open(), set);
    std::string name = packets.next({"week", "over", "path"});
    if (name == "week") {
        readGPSWeek(packets.open(), set);
        name = packets.next({"over", "path"});
    }
    if (name == "over") {
        readOverview(packets.open(), set);
        packets.next({"path"});
    }
    std::unique_ptr<TileTable> tiles = packets.openTiles();
    packets.next({"tree"});
    packets.read(tree);
    return tiles;
}

void TileSetFile::write(IO* io, const TileSet& set, const MemoryRTree& tree, const double scale[3])
{
    if (set.tiles.size() > UINT32_MAX)
        QM_THROW(ErrorCode::General, "failed writing: too many files");
    FieldWriter writer(io);
    writer.putBytes("rtre", 4, "magic");
    writer.putNumber(newestVersion, "version");
    writer.putPacket("info", [&] { writeInfo(writer, set); });
    if (set.gpsWeek)
        writer.putPacket("week",
                         [&] { writer.putNumber(static_cast<std::uint32_t>(*set.gpsWeek), "GPS week"); });
    if (set.overview)
        writer.putPacket("over", [&] {
            writer.putTile(set.overview->tile);
            writer.putNumber(set.overview->fraction, "overview fraction");
        });
    writer.putPacket("path", [&] {
        writer.putNumber(static_cast<std::uint32_t>(set.tiles.size()), "number of files");
        for (const TileInfo& tile : set.tiles)
            writer.putTile(tile);
    });
    writer.putPacket("tree", [&] { tree.save(writer.stream(), scale); });
    writer.close();
}

} // namespace Quillmoran
