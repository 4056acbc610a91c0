// The description of a point cloud: layout, number of points, bounds, quantization, coordinate system and
// class names. Const methods may be called from any thread.
#pragma once

#include <vxunpack/Bounds.h>
#include <vxunpack/Object.h>
#include <vxunpack/PointInfo.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class PointSource;

class QM_API PointCloudInfo final : public Object
{
public:
    static PointCloudInfo* create();

    // Copies the description of a source or of another object.
    void init(const PointSource& source);
    void init(const PointCloudInfo& other);

    const PointInfo& getPointInfo() const noexcept { return m_pointInfo; }
    void setPointInfo(const PointInfo& info) { m_pointInfo = info; }
    // PointSource::unknownNumPoints if it is unknown.
    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    void setNumPoints(std::int64_t count) noexcept { m_numPoints = count; }
    // Null if there is none; valid until it is changed. The text is copied.
    const char* getWKT() const noexcept { return m_wkt ? m_wkt->c_str() : nullptr; }
    void setWKT(const char* wkt);
    const Bounds& getBounds() const noexcept { return m_bounds; }
    void setBounds(const Bounds& bounds) noexcept { m_bounds = bounds; }

    // Three values each, or null if any of the three scales is 0, which means that there is no quantization.
    const double* getScale() const noexcept { return isQuantized() ? m_scale : nullptr; }
    const double* getOffset() const noexcept { return isQuantized() ? m_offset : nullptr; }
    // Null sets the three values to 0.
    void setQuantization(const double* scale, const double* offset) noexcept;

    // The name of class i, or null if it has none; the array is null if there are no names. Names are copied.
    const char* const* getClassIdNames() const noexcept;
    std::size_t getNumClassIdNames() const noexcept { return m_classIdNames.size(); }
    void setClassIdNames(const char* const* names, std::size_t count);

private:
    PointCloudInfo() = default;
    template <class Described>
    void copy(const Described& from);
    bool isQuantized() const noexcept { return m_scale[0] != 0 && m_scale[1] != 0 && m_scale[2] != 0; }

    PointInfo m_pointInfo;
    std::int64_t m_numPoints = 0;
    std::optional<std::string> m_wkt;
    Bounds m_bounds;
    double m_scale[3] = {0, 0, 0};
    double m_offset[3] = {0, 0, 0};
    std::vector<std::optional<std::string>> m_classIdNames;
    std::vector<const char*> m_classIdNamePointers; // into m_classIdNames, null for a missing name
};

} // namespace Quillmoran
