#include "las/points/LASRecordWriter.h"

#include "las/laszip/LASzipEncoder.h"
#include "las/points/LASzipChunkWriter.h"
#include "platform/ParallelLoop.h"

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

class CompressedWriter final : public LASRecordWriter
{
public:
    CompressedWriter(IO& io, const LASHeader& header, bool inOrder)
        : m_encoder(io, header, header.pointDataOffset, inOrder)
    {}

    void write(const unsigned char* records, std::size_t count) override { m_encoder.write(records, count); }
    void finish() override { m_end = m_encoder.finish(); }
    std::int64_t end() const override { return m_end; }

private:
    LASzipEncoder m_encoder;
    std::int64_t m_end = 0;
};

} // namespace

std::unique_ptr<LASRecordWriter> LASRecordWriter::create(IO& io, const LASHeader& header, bool inOrder)
{
    if (header.compressed && getNumThreads() > 1)
        return std::make_unique<LASzipChunkWriter>(io, header, inOrder);
    if (header.compressed)
        return std::make_unique<CompressedWriter>(io, header, inOrder);
    return std::make_unique<PlainWriter>(io, header);
}

std::vector<unsigned char> LASRecordWriter::compressionRecord(const LASHeader& header)
{
    return LASzipEncoder::makeRecord(header);
}

} // namespace Quillmoran
