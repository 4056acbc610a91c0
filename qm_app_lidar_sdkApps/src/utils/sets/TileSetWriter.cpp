#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include "utils/sets/TileSetFile.h"
#include <vxunpack/Base.h>

#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBytes = 4096;
constexpr std::uint32_t version = 2;
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

void writeChannels(FieldWriter& writer, const PointInfo& layout)
{
    writer.putCount16(layout.getNumChannels(), "number of channels");
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        writer.putText(channel.getName(), "channel name");
        writer.putNumber(static_cast<std::uint16_t>(channel.getDataType()), "data type");
        writer.putNumber(static_cast<std::uint16_t>(channel.getBits()), "bits");
        writer.putNumber(channel.getQuantization(), "quantization");
    }
}

void writeInfo(FieldWriter& writer, const TileSet& set)
{
    const PointCloudInfo& info = *set.info;
    writer.putText(set.srs.c_str(), "srs");
    writeChannels(writer, info.getPointInfo());
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

void TileSetFile::write(IO* io, const TileSet& set, const MemoryRTree& tree, const double scale[3])
{
    if (set.tiles.size() > UINT32_MAX)
        QM_THROW(ErrorCode::General, "failed writing: too many files");
    FieldWriter writer(io);
    writer.putBytes("rtre", 4, "magic");
    writer.putNumber(version, "version");
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
