// Points on disk: one temporary file per channel, without a name, so that the system removes it when it is
// closed or the process ends.
#pragma once

#include <vxunpack/Cloud.h>

#include <memory>
#include <string>
#include <vector>

namespace vx::python {

class Spool
{
public:
    // Files are created in `folder`. Throws OSError.
    Spool(std::string folder, std::vector<Channel> channels);

    // Appends points, one array per channel. Throws OSError. The spool is then read-only for its clouds.
    void append(const std::vector<const void*>& arrays, std::size_t count);
    // The points appended so far; the cloud keeps the files open.
    Cloud cloud() const;

private:
    struct Files;

    std::vector<Channel> m_channels;
    std::vector<unsigned> m_usedBits; // of each channel of type UINT8
    std::shared_ptr<Files> m_files;
    std::uint64_t m_numPoints = 0;
    Quillmoran::Bounds m_bounds;
};

} // namespace vx::python
