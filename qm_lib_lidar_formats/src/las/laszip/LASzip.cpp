#include "las/laszip/LASzip.h"

#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <cstring>

namespace Quillmoran {

namespace {

void legacyToRecord(unsigned char* record, const laszip_point_struct& point) noexcept
{
    // Two bytes of bit fields, as in LASzip's structure. The compiler emits loads and shifts.
    record[14] = static_cast<unsigned char>(point.return_number | point.number_of_returns << 3 |
                                            point.scan_direction_flag << 6 | point.edge_of_flight_line << 7);
    record[15] = static_cast<unsigned char>(point.classification | point.synthetic_flag << 5 |
                                            point.keypoint_flag << 6 | point.withheld_flag << 7);
    record[16] = static_cast<unsigned char>(point.scan_angle_rank);
    record[17] = point.user_data;
    storeLittleEndian(record + 18, point.point_source_ID);
}

void legacyFromRecord(laszip_point_struct& point, const unsigned char* record) noexcept
{
    point.return_number = record[14] & 7;
    point.number_of_returns = record[14] >> 3 & 7;
    point.scan_direction_flag = record[14] >> 6 & 1;
    point.edge_of_flight_line = (record[14] & 0x80) != 0;
    point.classification = record[15] & 31;
    point.synthetic_flag = record[15] >> 5 & 1;
    point.keypoint_flag = record[15] >> 6 & 1;
    point.withheld_flag = (record[15] & 0x80) != 0;
    point.scan_angle_rank = static_cast<laszip_I8>(record[16]);
    point.user_data = record[17];
    point.point_source_ID = loadLittleEndian<std::uint16_t>(record + 18);
}

void extendedToRecord(unsigned char* record, const laszip_point_struct& point) noexcept
{
    record[14] =
        static_cast<unsigned char>(point.extended_return_number | point.extended_number_of_returns << 4);
    record[15] =
        static_cast<unsigned char>(point.extended_classification_flags | point.extended_scanner_channel << 4 |
                                   point.scan_direction_flag << 6 | point.edge_of_flight_line << 7);
    record[16] = point.extended_classification;
    record[17] = point.user_data;
    storeLittleEndian(record + 18, point.extended_scan_angle);
    storeLittleEndian(record + 20, point.point_source_ID);
}

void extendedFromRecord(laszip_point_struct& point, const unsigned char* record) noexcept
{
    const unsigned flags = loadLittleEndian<std::uint16_t>(record + 14); // two bytes of flags
    point.extended_point_type = 1;
    point.extended_return_number = flags & 15;
    point.extended_number_of_returns = flags >> 4 & 15;
    point.extended_classification_flags = flags >> 8 & 15;
    point.extended_scanner_channel = flags >> 12 & 3;
    point.scan_direction_flag = flags >> 14 & 1;
    point.edge_of_flight_line = flags >> 15 & 1;
    point.extended_classification = record[16];
    point.user_data = record[17];
    point.extended_scan_angle = loadLittleEndian<std::int16_t>(record + 18);
    point.point_source_ID = loadLittleEndian<std::uint16_t>(record + 20);
    // LASzip refuses a point whose legacy flags differ; its legacy class may be 0.
    point.synthetic_flag = flags >> 8 & 1;
    point.keypoint_flag = flags >> 9 & 1;
    point.withheld_flag = flags >> 10 & 1;
}

} // namespace

LASzip::LASzip()
{
    if (laszip_create(&m_handle) != 0)
        QM_THROW(ErrorCode::LASRead, "LASzip: cannot be started");
    if (laszip_get_point_pointer(m_handle, &m_point) != 0) {
        laszip_destroy(m_handle);
        QM_THROW(ErrorCode::LASRead, "LASzip: cannot be started");
    }
}

LASzip::~LASzip()
{
    laszip_destroy(m_handle);
}

void LASzip::check(laszip_I32 status) const
{
    if (status == 0)
        return;
    laszip_CHAR* reason = nullptr;
    if (laszip_get_error(m_handle, &reason) != 0 || !reason)
        QM_THROW(ErrorCode::LASRead, "LASzip: unknown error");
    QM_THROW(ErrorCode::LASRead, "LASzip: %s", reason);
}

void toRecord(unsigned char* record, const laszip_point_struct& point, LASPointFormat format) noexcept
{
    storeLittleEndian(record, point.X);
    storeLittleEndian(record + 4, point.Y);
    storeLittleEndian(record + 8, point.Z);
    storeLittleEndian(record + 12, point.intensity);
    if (format.isExtended())
        extendedToRecord(record, point);
    else
        legacyToRecord(record, point);
    if (format.hasTime())
        storeLittleEndian(record + format.timeOffset(), point.gps_time);
    for (std::size_t i = 0; format.hasColour() && i < 3; ++i)
        storeLittleEndian(record + format.colourOffset() + 2 * i, point.rgb[i]);
    if (format.hasNearInfrared())
        storeLittleEndian(record + format.nearInfraredOffset(), point.rgb[3]);
    if (format.hasWaveform())
        std::memcpy(record + format.wavePacketOffset(), point.wave_packet, LASPointFormat::wavePacketLength);
}

void fromRecord(laszip_point_struct& point, const unsigned char* record, LASPointFormat format) noexcept
{
    point.X = loadLittleEndian<std::int32_t>(record);
    point.Y = loadLittleEndian<std::int32_t>(record + 4);
    point.Z = loadLittleEndian<std::int32_t>(record + 8);
    point.intensity = loadLittleEndian<std::uint16_t>(record + 12);
    if (format.isExtended())
        extendedFromRecord(point, record);
    else
        legacyFromRecord(point, record);
    if (format.hasTime())
        point.gps_time = loadLittleEndian<double>(record + format.timeOffset());
    for (std::size_t i = 0; format.hasColour() && i < 3; ++i)
        point.rgb[i] = loadLittleEndian<std::uint16_t>(record + format.colourOffset() + 2 * i);
    if (format.hasNearInfrared())
        point.rgb[3] = loadLittleEndian<std::uint16_t>(record + format.nearInfraredOffset());
    if (format.hasWaveform())
        std::memcpy(point.wave_packet, record + format.wavePacketOffset(), LASPointFormat::wavePacketLength);
}

} // namespace Quillmoran
