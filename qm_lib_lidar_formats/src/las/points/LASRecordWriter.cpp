#include "las/points/LASRecordWriter.h"

#include "las/laszip/IOStreamBuffer.h"
#include "las/laszip/LASzip.h"
#include <vxunpack/Base.h>

#include <cstring>
#include <ostream>

namespace Quillmoran {

namespace {

class PlainWriter final : public LASRecordWriter
{
public:
    PlainWriter(IO& io, const LASHeader& header)
        : m_io(io), m_recordLength(header.recordLength), m_position(header.pointDataOffset)
    {}

    void write(const unsigned char* records, std::size_t count) override
    {
        const std::size_t size = count * m_recordLength;
        writeFully(m_io, m_position, records, size);
        m_position += static_cast<std::int64_t>(size);
    }
    void finish() override {}
    std::int64_t end() const override { return m_position; }

private:
    IO& m_io;
    std::size_t m_recordLength;
    std::int64_t m_position;
};

// Declares the points to LASzip. Formats 6 to 10 use its layered coding.
void describe(const LASzip& laszip, const LASHeader& header)
{
    laszip.check(laszip_request_native_extension(laszip.get(), header.pointFormat.isExtended()));
    laszip.check(
        laszip_set_point_type_and_size(laszip.get(), header.pointFormat.number, header.recordLength));
}

class CompressedWriter final : public LASRecordWriter
{
public:
    CompressedWriter(IO& io, const LASHeader& header, bool inOrder)
        : m_header(header),
          m_extraBytes(header.recordLength - header.pointFormat.recordLength()),
          m_buffer(io, header.pointDataOffset,
                   inOrder ? IOStreamBuffer::SEQUENTIAL : IOStreamBuffer::SEEKABLE),
          m_stream(&m_buffer)
    {
        describe(m_laszip, header);
        // LASPointWriter writes the header; LASzip appends the points.
        m_laszip.check(laszip_open_writer_stream(m_laszip.get(), m_stream, 1, 1));
        m_isOpen = true;
    }
    ~CompressedWriter() override
    {
        if (m_isOpen)
            laszip_close_writer(m_laszip.get());
    }

    void write(const unsigned char* records, std::size_t count) override
    {
        for (std::size_t i = 0; i < count; ++i, records += m_header.recordLength) {
            fromRecord(m_laszip.point(), records, m_header.pointFormat);
            if (m_extraBytes != 0)
                std::memcpy(m_laszip.point().extra_bytes, records + m_header.pointFormat.recordLength(),
                            m_extraBytes);
            m_laszip.check(laszip_write_point(m_laszip.get()));
        }
        throwIfBad();
    }

    void finish() override
    {
        m_isOpen = false;
        m_laszip.check(laszip_close_writer(m_laszip.get()));
        m_stream.flush();
        throwIfBad();
        m_end = m_stream.tellp();
    }

    std::int64_t end() const override { return m_end; }

private:
    // LASzip does not check whether its writes succeed.
    void throwIfBad() const
    {
        m_buffer.throwFailure();
        if (!m_stream)
            QM_THROW(ErrorCode::Write, "write error");
    }

    LASHeader m_header;
    std::size_t m_extraBytes; // of each record
    IOStreamBuffer m_buffer;
    std::ostream m_stream;
    LASzip m_laszip;
    bool m_isOpen = false;
    std::int64_t m_end = 0;
};

} // namespace

std::unique_ptr<LASRecordWriter> LASRecordWriter::create(IO& io, const LASHeader& header, bool inOrder)
{
    if (header.compressed)
        return std::make_unique<CompressedWriter>(io, header, inOrder);
    return std::make_unique<PlainWriter>(io, header);
}

std::vector<unsigned char> LASRecordWriter::compressionRecord(const LASHeader& header)
{
    const LASzip laszip;
    describe(laszip, header);
    laszip_U8* bytes = nullptr;
    laszip_U32 size = 0;
    laszip.check(laszip_create_laszip_vlr(laszip.get(), &bytes, &size));
    return {bytes, bytes + size};
}

} // namespace Quillmoran
