#include "support/LASzipHandle.h"

#include <vxunpack/Base.h>

namespace Quillmoran::Benchmarks {

LASzipHandle::LASzipHandle()
{
    check(laszip_create(&m_handle));
}

LASzipHandle::~LASzipHandle()
{
    laszip_destroy(m_handle);
}

std::uint64_t LASzipHandle::openReader(const std::string& path)
{
    laszip_BOOL isCompressed = 0;
    check(laszip_open_reader(m_handle, path.c_str(), &isCompressed));
    return header().number_of_point_records != 0 ? header().number_of_point_records
                                                 : header().extended_number_of_point_records;
}

laszip_header_struct& LASzipHandle::header() const
{
    laszip_header_struct* header = nullptr;
    check(laszip_get_header_pointer(m_handle, &header));
    return *header;
}

laszip_point_struct& LASzipHandle::point() const
{
    laszip_point_struct* point = nullptr;
    check(laszip_get_point_pointer(m_handle, &point));
    return *point;
}

void LASzipHandle::check(laszip_I32 status) const
{
    if (status == 0)
        return;
    laszip_CHAR* reason = nullptr;
    if (m_handle)
        laszip_get_error(m_handle, &reason);
    QM_THROW(ErrorCode::General, "LASzip: %s", reason ? reason : "no reason given");
}

} // namespace Quillmoran::Benchmarks
