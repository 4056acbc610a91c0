#include <vxunpack/PointCloudInfo.h>

#include <vxunpack/PointSource.h>

#include <algorithm>

namespace Quillmoran {

PointCloudInfo* PointCloudInfo::create()
{
    return new PointCloudInfo;
}

template <class Described>
void PointCloudInfo::copy(const Described& from)
{
    setPointInfo(from.getPointInfo());
    setNumPoints(from.getNumPoints());
    setWKT(from.getWKT());
    setBounds(from.getBounds());
    setQuantization(from.getScale(), from.getOffset());
    setClassIdNames(from.getClassIdNames(), from.getNumClassIdNames());
}

void PointCloudInfo::init(const PointSource& source)
{
    copy(source);
}

void PointCloudInfo::init(const PointCloudInfo& other)
{
    copy(other);
}

void PointCloudInfo::setWKT(const char* wkt)
{
    m_wkt = wkt ? std::optional<std::string>(wkt) : std::nullopt;
}

void PointCloudInfo::setQuantization(const double* scale, const double* offset) noexcept
{
    for (int axis = 0; axis < 3; ++axis) {
        m_scale[axis] = scale ? scale[axis] : 0.0;
        m_offset[axis] = offset ? offset[axis] : 0.0;
    }
}

const char* const* PointCloudInfo::getClassIdNames() const noexcept
{
    return m_classIdNamePointers.empty() ? nullptr : m_classIdNamePointers.data();
}

void PointCloudInfo::setClassIdNames(const char* const* names, std::size_t count)
{
    std::vector<std::optional<std::string>> copies(names ? count : 0);
    for (std::size_t i = 0; i < copies.size(); ++i)
        if (names[i])
            copies[i] = names[i];
    m_classIdNames = std::move(copies);
    m_classIdNamePointers.resize(m_classIdNames.size());
    std::transform(m_classIdNames.begin(), m_classIdNames.end(), m_classIdNamePointers.begin(),
                   [](const auto& name) { return name ? name->c_str() : nullptr; });
}

} // namespace Quillmoran
