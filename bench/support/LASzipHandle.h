// A LASzip reader or writer that is closed with its scope; for sources that may include LASzip's header.
#pragma once

#include <cstdint>
#include <laszip/laszip_api.h>
#include <string>

namespace Quillmoran::Benchmarks {

class LASzipHandle
{
public:
    LASzipHandle();
    ~LASzipHandle();
    LASzipHandle(const LASzipHandle&) = delete;
    LASzipHandle& operator=(const LASzipHandle&) = delete;

    // Returns the number of points.
    std::uint64_t openReader(const std::string& path);

    laszip_POINTER get() const { return m_handle; }
    laszip_header_struct& header() const;
    laszip_point_struct& point() const;

    // Throws with LASzip's reason unless the status is 0.
    void check(laszip_I32 status) const;

private:
    laszip_POINTER m_handle = nullptr;
};

} // namespace Quillmoran::Benchmarks
