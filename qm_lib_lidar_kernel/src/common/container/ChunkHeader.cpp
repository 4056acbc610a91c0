#include "common/container/ChunkHeader.h"

#include "platform/Stream.h"

namespace Quillmoran {

int ChunkHeader::read(StreamReader& reader)
{
    offset = reader.tell();
    if (!reader.get_be(id))
        QM_THROW(ErrorCode::ChunkHeaderRead, "bad read -- chunk id");
    if (!reader.get_be(length))
        QM_THROW(ErrorCode::ChunkHeaderRead, "bad read -- chunk length");
    return size;
}

int ChunkHeader::write(StreamWriter& writer, bool rewrite)
{
    const std::int64_t end = writer.tell();
    if (rewrite) {
        length = end - offset - size;
        writer.seek(offset, Stream::SEEK_FROM_START);
    } else {
        offset = end;
    }
    if (!writer.put_be(id))
        QM_THROW(ErrorCode::ChunkHeaderWrite, "bad write -- chunk id");
    if (!writer.put_be(length))
        QM_THROW(ErrorCode::ChunkHeaderWrite, "bad write -- chunk length");
    if (rewrite)
        writer.seek(end, Stream::SEEK_FROM_START);
    return size;
}

void ChunkHeader::save(IO* io, IO::Location& location) const
{
    location.set(io, offset, length + size);
}

} // namespace Quillmoran
