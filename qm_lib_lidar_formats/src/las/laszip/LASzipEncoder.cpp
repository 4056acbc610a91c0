#include "las/laszip/LASzipEncoder.h"

#include <vxunpack/Base.h>

#include <cstring>

namespace Quillmoran {

namespace {

// Declares the points to LASzip. Formats 6 to 10 use its layered coding.
void describe(const LASzip& laszip, const LASHeader& header)
{
    laszip.check(laszip_request_native_extension(laszip.get(), header.pointFormat.isExtended()));
    laszip.check(
        laszip_set_point_type_and_size(laszip.get(), header.pointFormat.number, header.recordLength));
}

} // namespace

LASzipEncoder::LASzipEncoder(IO& io, const LASHeader& header, std::int64_t position, bool inOrder)
    : m_format(header.pointFormat),
      m_recordLength(header.recordLength),
      m_buffer(io, position, inOrder ? IOStreamBuffer::SEQUENTIAL : IOStreamBuffer::SEEKABLE),
      m_stream(&m_buffer)
{
    describe(m_laszip, header);
    m_laszip.check(laszip_set_chunk_size(m_laszip.get(), chunkPoints));
    // The caller writes the header; LASzip writes what follows it.
    m_laszip.check(laszip_open_writer_stream(m_laszip.get(), m_stream, 1, 1));
    m_isOpen = true;
}

LASzipEncoder::~LASzipEncoder()
{
    if (m_isOpen)
        laszip_close_writer(m_laszip.get());
}

std::vector<unsigned char> LASzipEncoder::makeRecord(const LASHeader& header)
{
    const LASzip laszip;
    describe(laszip, header);
    laszip_U8* bytes = nullptr;
    laszip_U32 size = 0;
    laszip.check(laszip_create_laszip_vlr(laszip.get(), &bytes, &size));
    return {bytes, bytes + size};
}

void LASzipEncoder::write(const unsigned char* records, std::size_t count)
{
    const std::size_t fields = m_format.recordLength();
    const std::size_t extraBytes = m_recordLength - fields;
    for (std::size_t i = 0; i < count; ++i, records += m_recordLength) {
        fromRecord(m_laszip.point(), records, m_format);
        if (extraBytes != 0)
            std::memcpy(m_laszip.point().extra_bytes, records + fields, extraBytes);
        m_laszip.check(laszip_write_point(m_laszip.get()));
    }
    throwIfBad();
}

std::int64_t LASzipEncoder::finish()
{
    m_isOpen = false;
    m_laszip.check(laszip_close_writer(m_laszip.get()));
    m_stream.flush();
    throwIfBad();
    return m_stream.tellp();
}

// LASzip does not check whether its writes succeed.
void LASzipEncoder::throwIfBad() const
{
    m_buffer.throwFailure();
    if (!m_stream)
        QM_THROW(ErrorCode::Write, "write error");
}

} // namespace Quillmoran
