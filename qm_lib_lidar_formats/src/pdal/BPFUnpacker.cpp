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

[[noreturn]] void throwMalformed()
{
    QM_THROW(ErrorCode::BPFRead, "the compressed points are malformed");
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

// A byte range of the input, read in pieces.
class ByteRange
{
public:
    ByteRange(const IO& io, std::int64_t position, std::int64_t count)
        : m_io(io), m_position(position), m_left(count)
    {}

    // Empty at the end.
    const Bytes& next(std::int64_t maxBytes = pieceBytes)
    {
        m_piece.resize(static_cast<std::size_t>(std::min(m_left, maxBytes)));
        if (readFully(m_io, m_position, m_piece.data(), m_piece.size()) != m_piece.size())
            throwMalformed();
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

void copy(ByteRange from, Appender& to)
{
    for (const Bytes* piece = &from.next(); !piece->empty(); piece = &from.next())
        to.append(piece->data(), piece->size());
}

struct InflateStream : z_stream
{
    InflateStream() : z_stream()
    {
        if (inflateInit(this) != Z_OK)
            throwMalformed();
    }
    ~InflateStream() { inflateEnd(this); }
    InflateStream(const InflateStream&) = delete;
    InflateStream& operator=(const InflateStream&) = delete;
};

void inflate(ByteRange from, std::int64_t size, Appender& to)
{
    InflateStream stream;
    Bytes out(pieceBytes);
    for (int state = Z_OK; state != Z_STREAM_END;) {
        const Bytes& piece = from.next();
        if (piece.empty())
            throwMalformed();
        stream.next_in = const_cast<unsigned char*>(piece.data());
        stream.avail_in = static_cast<uInt>(piece.size());
        do {
            stream.next_out = out.data();
            stream.avail_out = static_cast<uInt>(out.size());
            state = ::inflate(&stream, Z_NO_FLUSH);
            if (state != Z_OK && state != Z_STREAM_END && state != Z_BUF_ERROR)
                throwMalformed();
            const std::size_t count = out.size() - stream.avail_out;
            size -= static_cast<std::int64_t>(count);
            if (size < 0)
                throwMalformed();
            to.append(out.data(), count);
        } while (stream.avail_out == 0 && state != Z_STREAM_END);
    }
    if (size != 0)
        throwMalformed();
}

void unpackBlock(BPFCompression method, ByteRange from, std::int64_t packed, std::int64_t size, Appender& to)
{
    if (packed == size) { // stored without compression
        copy(std::move(from), to);
    } else if (method == BPFCompression::Deflate) {
        inflate(std::move(from), size, to);
    } else {
        const auto bytes = unpackFastLZ(from.next(packed), static_cast<std::size_t>(size));
        if (!bytes)
            throwMalformed();
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
    copy(ByteRange(packed, 0, header.headerSize), out);
    header.forEachBlock(packed, [&](std::int64_t position, std::int64_t packedSize, std::int64_t size) {
        unpackBlock(header.compression, ByteRange(packed, position, packedSize), packedSize, size, out);
    });
    BPFHeader::setPlain(*plain);
    return plain;
}

} // namespace Quillmoran
