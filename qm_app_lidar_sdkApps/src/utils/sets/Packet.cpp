#include "utils/sets/Packet.h"

#include <vxunpack/Base.h>

#include <cerrno>

namespace Quillmoran {

// The system reports no error at the end of a file.
void Packet::throwCut(const std::string& field)
{
    errno = EIO;
    OSError error(__FILE__, "read", __LINE__);
    error(": failed reading: %s", field.c_str());
    throw error;
}

void Packet::throwImpossible(const char* field)
{
    QM_THROW(ErrorCode::General, "failed reading: %s", field);
}

Packet::Packet(IO* io, std::int64_t position, std::int64_t length, std::size_t bufferSize)
{
    const Scoped<IO> range(BoundedIO::create(IO::Location(io, position, length)));
    m_stream.init(range.get(), true, bufferSize);
    seek(position);
}

std::int64_t Packet::readNumPoints()
{
    const auto count = readNumber<std::int64_t>("number of points");
    if (count < 0)
        throwImpossible("number of points");
    return count;
}

std::string Packet::readText(const char* field)
{
    const auto length = readNumber<std::uint16_t>(field);
    std::string text(length, '\0');
    if (m_stream.read(text.data(), length) != length)
        throwCut(field);
    return text;
}

Bounds Packet::readBounds()
{
    Bounds bounds;
    for (Bounds::Range* range : {&bounds.x, &bounds.y, &bounds.z}) {
        range->min = readNumber<double>("bounds");
        range->max = readNumber<double>("bounds");
    }
    return bounds;
}

TileInfo Packet::readTile()
{
    TileInfo tile;
    const std::string path = readText("path");
    tile.path = path.substr(0, path.find('\0'));
    tile.timestamp = readNumber<std::int64_t>("timestamp");
    tile.bounds = readBounds();
    tile.numPoints = readNumPoints();
    return tile;
}

void Packet::skipTile()
{
    const auto length = readNumber<std::uint16_t>("path");
    skip(length + tileBytes - textBytes - sizeof(TileInfo::numPoints));
    readNumPoints(); // truncated if any field before it is
}

} // namespace Quillmoran
