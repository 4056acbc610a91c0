#include "pdal/BPFUnpacker.h"

#include "pdal/FastLZ.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <zlib.h>

namespace Quillmoran {

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::int64_t pieceBytes = 1 << 16;

[[noreturn]] void throwDamaged()
{
    QM_THROW(ErrorCode::BPFRead, "the compressed points are damaged");
}

// Appends to a file.
class Appender
{
public:
    explicit Appender(const IO& io) : m_io(io) {}

    void append(const unsigned char* bytes, std::size_t count)
    {
        writeFully(m_io, m_position, bytes, count);
        m_position += static_cast<std::int64_t>(count);
    }

private:
    const IO& m_io;
    std::int64_t m_position = 0;
};

// A stretch of the input, piece by piece.
class Stretch
{
public:
    Stretch(const IO& io, std::int64_t position, std::int64_t count)
        : m_io(io), m_position(position), m_left(count)
    {}

    // Empty at the end.
    const Bytes& next(std::int64_t most = pieceBytes)
    {
        m_piece.resize(static_cast<std::size_t>(std::min(m_left, most)));
        if (readFully(m_io, m_position, m_piece.data(), m_piece.size()) != m_piece.size())
            throwDamaged();
        m_position += static_cast<std::int64_t>(m_piece.size());
        m_left -= static_cast<std::int64_t>(m_piece.size());
        return m_piece;
    }

private:
    const IO& m_io;
    std::int64_t m_position;
    std::int64_t m_left;
    Bytes m_piece;
};

void copy(Stretch from, Appender& to)
{
    for (const Bytes* piece = &from.next(); !piece->empty(); piece = &from.next())
        to.append(piece->data(), piece->size());
}

struct InflateStream : z_stream
{
    InflateStream() : z_stream()
    {
        if (inflateInit(this) != Z_OK)
            throwDamaged();
    }
    ~InflateStream() { inflateEnd(this); }
    InflateStream(const InflateStream&) = delete;
    InflateStream& operator=(const InflateStream&) = delete;
};

void inflate(Stretch from, std::int64_t size, Appender& to)
{
    InflateStream stream;
    Bytes out(pieceBytes);
    for (int state = Z_OK; state != Z_STREAM_END;) {
        const Bytes& piece = from.next();
        if (piece.empty())
            throwDamaged();
        stream.next_in = const_cast<unsigned char*>(piece.data());
        stream.avail_in = static_cast<uInt>(piece.size());
        do {
            stream.next_out = out.data();
            stream.avail_out = static_cast<uInt>(out.size());
            state = ::inflate(&stream, Z_NO_FLUSH);
            if (state != Z_OK && state != Z_STREAM_END && state != Z_BUF_ERROR)
                throwDamaged();
            const std::size_t count = out.size() - stream.avail_out;
            size -= static_cast<std::int64_t>(count);
            if (size < 0)
                throwDamaged();
            to.append(out.data(), count);
        } while (stream.avail_out == 0 && state != Z_STREAM_END);
    }
    if (size != 0)
        throwDamaged();
}

void unpackBlock(BPFCompression method, Stretch from, std::int64_t packed, std::int64_t size, Appender& to)
{
    if (packed == size) { // did not become smaller
        copy(std::move(from), to);
    } else if (method == BPFCompression::Deflate) {
        inflate(std::move(from), size, to);
    } else {
        const auto bytes = unpackFastLZ(from.next(packed), static_cast<std::size_t>(size));
        if (!bytes)
            throwDamaged();
        to.append(bytes->data(), bytes->size());
    }
}

} // namespace

Scoped<FileIO::Imp> unpackBPF(const IO& packed, const BPFHeader& header)
{
    if (header.compression != BPFCompression::Deflate && header.compression != BPFCompression::FastLZ)
        QM_THROW(ErrorCode::BPFRead, "the file is compressed by a method that is not supported");
    Scoped<FileIO::Imp> plain(FileIO::create());
    plain->init(nullptr);
    Appender out(*plain);
    copy(Stretch(packed, 0, header.headerSize), out);
    header.forEachBlock(packed, [&](std::int64_t position, std::int64_t packedSize, std::int64_t size) {
        unpackBlock(header.compression, Stretch(packed, position, packedSize), packedSize, size, out);
    });
    BPFHeader::setPlain(*plain);
    return plain;
}

} // namespace Quillmoran
