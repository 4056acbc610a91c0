// The payload of one packet of a tile-set index: a stream that ends with the packet, so that a truncated
// field is a short read. TileSetFile.h describes the file and its errors.
#pragma once

#include "platform/Stream.h"
#include <vxunpack/PersistentPointSourceManager.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Quillmoran {

class Packet
{
public:
    static constexpr std::size_t textBytes = 2;                         // of an empty text
    static constexpr std::size_t tileBytes = textBytes + 8 + 6 * 8 + 8; // of a tile without a path

    // A range of the file, which is kept open.
    Packet(IO* io, std::int64_t position, std::int64_t length, std::size_t bufferSize = 4096);

    std::int64_t tell() const noexcept { return m_stream.tell(); } // position in the file
    void seek(std::int64_t position) { m_stream.seek(position, Stream::SEEK_FROM_START); }
    void skip(std::size_t count)
    {
        m_stream.seek(static_cast<std::int64_t>(count), Stream::SEEK_FROM_CURRENT);
    }

    template <class T>
    T readNumber(const char* field)
    {
        T value;
        if (!m_stream.get_be(value))
            throwCut(field);
        return value;
    }

    // The number of items that follow, each of at least `size` bytes.
    template <class T>
    T readCount(const char* field, std::size_t size)
    {
        const T count = readNumber<T>(field);
        if (count > m_stream.remaining() / size)
            throwImpossible(field);
        return count;
    }

    std::int64_t readNumPoints();
    std::string readText(const char* field);
    Bounds readBounds();
    TileInfo readTile();
    // Skips a tile that readTile() would read without an error.
    void skipTile();

    [[noreturn]] static void throwCut(const std::string& field);
    [[noreturn]] static void throwImpossible(const char* field);

private:
    StreamReader m_stream;
};

} // namespace Quillmoran
