// Point records and LASzip's own form of a point, in both directions, and the handle of a LASzip instance.
// For the two sources that call LASzip; its header is not to be seen elsewhere.
#pragma once

#include "las/LASPointFormat.h"

#include <laszip/laszip_api.h>

namespace Quillmoran {

class LASzip
{
public:
    // Each throws LASRead with LASzip's reason when it fails.
    LASzip();
    ~LASzip();
    LASzip(const LASzip&) = delete;
    LASzip& operator=(const LASzip&) = delete;

    laszip_POINTER get() const noexcept { return m_handle; }
    laszip_point_struct& point() const noexcept { return *m_point; }
    // Throws unless `status` is LASzip's word for success.
    void check(laszip_I32 status) const;

private:
    laszip_POINTER m_handle = nullptr;
    laszip_point_struct* m_point = nullptr;
};

// `record` has the length of the format's own fields, without bytes of the owner.
void toRecord(unsigned char* record, const laszip_point_struct& point, LASPointFormat format) noexcept;
void fromRecord(laszip_point_struct& point, const unsigned char* record, LASPointFormat format) noexcept;

} // namespace Quillmoran
