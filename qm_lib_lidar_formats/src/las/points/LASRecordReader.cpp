#include "las/points/LASRecordReader.h"

#include "las/laszip/IOStreamBuffer.h"
#include "las/laszip/LASzip.h"
#include "las/points/LASFields.h"
#include "model/ChannelNames.h"
#include "platform/OpenIO.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstring>
#include <istream>

namespace Quillmoran {

namespace {

class PlainReader final : public LASRecordReader
{
public:
    PlainReader(IO* io, const LASHeader& header)
        : LASRecordReader(header.recordLength), m_io(io), m_begin(header.pointDataOffset), m_position(m_begin)
    {}

    void read(unsigned char* records, std::size_t count) override
    {
        const std::size_t wanted = count * stride();
        if (readFully(*m_io, m_position, records, wanted) != wanted)
            QM_THROW(ErrorCode::LASRead, "the file ends within its points");
        m_position += static_cast<std::int64_t>(wanted);
    }
    void seek(std::uint64_t point) override
    {
        m_position = m_begin + static_cast<std::int64_t>(point * stride());
    }

private:
    OpenIO m_io;
    std::int64_t m_begin;
    std::int64_t m_position;
};

bool wantsExtraBytes(const PointInfo& wanted)
{
    for (std::size_t i = 0; i < wanted.getNumChannels(); ++i)
        if (!LASFields::isKnown(wanted.getChannel(i).getName()))
            return true;
    return false;
}

// Files of formats 6 to 10 compress each field separately; those that are not wanted are skipped.
laszip_U32 selectFields(const PointInfo& wanted)
{
    using namespace ChannelNames;
    constexpr struct
    {
        const char* channel;
        laszip_U32 fields;
    } selections[] = {
        {z, laszip_DECOMPRESS_SELECTIVE_Z},
        {intensity, laszip_DECOMPRESS_SELECTIVE_INTENSITY},
        {classId, laszip_DECOMPRESS_SELECTIVE_CLASSIFICATION},
        {classFlags, laszip_DECOMPRESS_SELECTIVE_FLAGS},
        {scanDir, laszip_DECOMPRESS_SELECTIVE_FLAGS},
        {edgeFlightLine, laszip_DECOMPRESS_SELECTIVE_FLAGS},
        {scanAngle, laszip_DECOMPRESS_SELECTIVE_SCAN_ANGLE},
        {userData, laszip_DECOMPRESS_SELECTIVE_USER_DATA},
        {sourceId, laszip_DECOMPRESS_SELECTIVE_POINT_SOURCE},
        {gpsTime, laszip_DECOMPRESS_SELECTIVE_GPS_TIME},
        {gpsTimeAdjusted, laszip_DECOMPRESS_SELECTIVE_GPS_TIME},
        {red, laszip_DECOMPRESS_SELECTIVE_RGB},
        {green, laszip_DECOMPRESS_SELECTIVE_RGB},
        {blue, laszip_DECOMPRESS_SELECTIVE_RGB},
        {nearInfrared, laszip_DECOMPRESS_SELECTIVE_NIR},
    };
    laszip_U32 fields = laszip_DECOMPRESS_SELECTIVE_CHANNEL_RETURNS_XY;
    for (const auto& selection : selections)
        if (wanted.hasChannel(selection.channel))
            fields |= selection.fields;
    return wantsExtraBytes(wanted) ? fields | laszip_DECOMPRESS_SELECTIVE_EXTRA_BYTES : fields;
}

class CompressedReader final : public LASRecordReader
{
public:
    CompressedReader(IO* io, const LASHeader& header, const LASzipChunks& chunks, const PointInfo& wanted)
        : LASRecordReader(wantsExtraBytes(wanted) ? header.recordLength : header.pointFormat.recordLength()),
          m_io(io),
          m_format(header.pointFormat),
          m_extraBytes(stride() - m_format.recordLength()),
          m_table(chunks.table),
          m_buffer(*m_io, chunks),
          m_stream(&m_buffer)
    {
        m_laszip.check(laszip_decompress_selective(m_laszip.get(), selectFields(wanted)));
        laszip_BOOL isCompressed = 0;
        const laszip_I32 status = laszip_open_reader_stream(m_laszip.get(), m_stream, &isCompressed);
        if (status == 0)
            m_opened.reset(m_laszip.get());
        check(status);
        if (m_extraBytes > static_cast<std::size_t>(std::max(m_laszip.point().num_extra_bytes, 0)))
            QM_THROW(ErrorCode::LASRead, "LASzip does not read the extra bytes of the points");
    }

    void seek(std::uint64_t point) override
    {
        m_buffer.seekChunk(m_table->find(point));
        check(laszip_seek_point(m_laszip.get(), static_cast<laszip_I64>(point)));
    }
    bool isAtChunk(std::size_t chunk) const override { return m_buffer.tell() == m_table->positions[chunk]; }

    void read(unsigned char* records, std::size_t count) override
    {
        // After an error LASzip would continue at the next chunk of the chunk table.
        if (m_failed)
            QM_THROW(ErrorCode::LASRead, "the points after malformed ones cannot be read");
        m_failed = true;
        for (std::size_t i = 0; i < count; ++i, records += stride()) {
            check(laszip_read_point(m_laszip.get()));
            toRecord(records, m_laszip.point(), m_format);
            if (m_extraBytes != 0)
                std::memcpy(records + m_format.recordLength(), m_laszip.point().extra_bytes, m_extraBytes);
        }
        m_failed = false;
    }

private:
    void check(laszip_I32 status) const
    {
        m_buffer.throwFailure();
        m_laszip.check(status);
    }

    OpenIO m_io;
    LASPointFormat m_format;
    std::size_t m_extraBytes; // of each record that are read
    std::shared_ptr<const LASzipChunkTable> m_table;
    IOStreamBuffer m_buffer;
    std::istream m_stream;
    LASzip m_laszip;
    std::unique_ptr<void, laszip_I32 (*)(laszip_POINTER)> m_opened{nullptr, laszip_close_reader};
    bool m_failed = false;
};

} // namespace

std::unique_ptr<LASRecordReader> LASRecordReader::create(IO* io, const LASHeader& header,
                                                         const LASzipChunks& chunks, const PointInfo& wanted)
{
    if (header.compressed)
        return std::make_unique<CompressedReader>(io, header, chunks, wanted);
    return std::make_unique<PlainReader>(io, header);
}

} // namespace Quillmoran
