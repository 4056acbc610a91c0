// A LASzip instance, and conversions between point records and LASzip's point structure. Only the sources
// that call LASzip include this header, since it includes LASzip's.
#pragma once

#include "las/points/LASPointFormat.h"

#include <laszip/laszip_api.h>

namespace Quillmoran {

class LASzip
{
public:
    // The constructor and check() throw LASRead with LASzip's message.
    LASzip();
    ~LASzip();
    LASzip(const LASzip&) = delete;
    LASzip& operator=(const LASzip&) = delete;

    laszip_POINTER get() const noexcept { return m_handle; }
    laszip_point_struct& point() const noexcept { return *m_point; }
    // Throws unless `status`, the result of a function of LASzip, is 0.
    void check(laszip_I32 status) const;

private:
    laszip_POINTER m_handle = nullptr;
    laszip_point_struct* m_point = nullptr;
};

// `record` has the length of the format's fields; user bytes after them are not converted.
void toRecord(unsigned char* record, const laszip_point_struct& point, LASPointFormat format) noexcept;
void fromRecord(laszip_point_struct& point, const unsigned char* record, LASPointFormat format) noexcept;

} // namespace Quillmoran
