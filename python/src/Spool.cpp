#include "Spool.h"

#include <vxunpack/Bounds.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <unistd.h>

namespace vx::python {

using namespace Quillmoran;

struct Spool::Files
{
    explicit Files(std::string path) : folder(std::move(path)) {}
    ~Files()
    {
        for (const int file : descriptors)
            ::close(file);
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    void create()
    {
        std::string name = folder + "/.vxl-XXXXXX";
        const int file = ::mkostemp(name.data(), 0);
        if (file < 0)
            QM_THROW_OS(folder.c_str());
        descriptors.push_back(file);
        ::unlink(name.c_str());
    }
    // `transfer` is pread or pwrite.
    template <class Transfer, class Data>
    void transferAll(Transfer transfer, std::size_t index, Data* data, std::size_t size,
                     std::uint64_t offset) const
    {
        while (size != 0) {
            const ssize_t done = transfer(descriptors[index], data, size, static_cast<off_t>(offset));
            if (done < 0 && errno == EINTR)
                continue;
            if (done <= 0) {
                errno = done < 0 ? errno : ENOSPC;
                QM_THROW_OS(folder.c_str());
            }
            data += done;
            size -= static_cast<std::size_t>(done);
            offset += static_cast<std::uint64_t>(done);
        }
    }

    const std::string folder;
    std::vector<int> descriptors;
};

Spool::Spool(std::string folder, std::vector<Channel> channels)
    : m_channels(std::move(channels)),
      m_usedBits(m_channels.size()),
      m_files(std::make_shared<Files>(std::move(folder)))
{
    for (std::size_t i = 0; i < m_channels.size(); ++i)
        m_files->create();
}

void Spool::append(const std::vector<const void*>& arrays, std::size_t count)
{
    for (std::size_t i = 0; i < m_channels.size(); ++i) {
        const std::size_t size = DataTypeUtils::getSize(m_channels[i].type);
        m_files->transferAll(::pwrite, i, static_cast<const unsigned char*>(arrays[i]), count * size,
                             m_numPoints * size);
        if (m_channels[i].type == UINT8)
            for (const std::uint8_t value : std::span(static_cast<const std::uint8_t*>(arrays[i]), count))
                m_usedBits[i] |= value;
        const std::string& name = m_channels[i].name;
        Bounds::Range* const range = name == "X"   ? &m_bounds.x
                                     : name == "Y" ? &m_bounds.y
                                     : name == "Z" ? &m_bounds.z
                                                   : nullptr;
        if (range && m_channels[i].type == FLOAT64)
            for (const double value : std::span(static_cast<const double*>(arrays[i]), count))
                range->grow(value);
    }
    m_numPoints += count;
}

Cloud Spool::cloud() const
{
    const auto fill = [files = m_files, channels = m_channels](std::uint64_t first,
                                                               const MutableBlock& block) {
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const std::size_t size = DataTypeUtils::getSize(channels[i].type);
            files->transferAll(::pread, i, static_cast<unsigned char*>(block.samples(channels[i].name)),
                               block.size() * size, first * size);
        }
    };
    // As Cloud::fromColumns() does.
    std::vector<Channel> described = m_channels;
    for (std::size_t i = 0; i < described.size(); ++i)
        if (described[i].type == UINT8 &&
            (described[i].name == "ReturnNum" || described[i].name == "NumReturns"))
            described[i].bits = std::max(static_cast<int>(std::bit_width(m_usedBits[i])), 3);
    Box box;
    if (m_bounds.x.min <= m_bounds.x.max && m_bounds.y.min <= m_bounds.y.max &&
        m_bounds.z.min <= m_bounds.z.max)
        box = {m_bounds.x.min, m_bounds.x.max, m_bounds.y.min,
               m_bounds.y.max, m_bounds.z.min, m_bounds.z.max};
    return Cloud::generate(m_numPoints, described, fill, box, true);
}

} // namespace vx::python
