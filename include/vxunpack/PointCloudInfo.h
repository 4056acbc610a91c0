// The summary record of a point cloud, apart from the source that it describes.
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

    // Takes everything from a source, or from another record.
    void init(const PointSource& source);
    void init(const PointCloudInfo& other);

    const PointInfo& getPointInfo() const noexcept { return m_pointInfo; }
    void setPointInfo(const PointInfo& info) { m_pointInfo = info; }
    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    void setNumPoints(std::int64_t count) noexcept { m_numPoints = count; }
    const char* getWKT() const noexcept { return m_wkt ? m_wkt->c_str() : nullptr; }
    void setWKT(const char* wkt);
    const Bounds& getBounds() const noexcept { return m_bounds; }
    void setBounds(const Bounds& bounds) noexcept { m_bounds = bounds; }

    // Three values each, or null while any of the three scales is 0 (quantization unknown).
    const double* getScale() const noexcept { return isQuantized() ? m_scale : nullptr; }
    const double* getOffset() const noexcept { return isQuantized() ? m_offset : nullptr; }
    // A null pointer sets its three values to 0.
    void setQuantization(const double* scale, const double* offset) noexcept;

    const char* const* getClassIdNames() const noexcept;
    std::size_t getNumClassIdNames() const noexcept { return m_classIdNames.size(); }
    void setClassIdNames(const char* const* names, std::size_t count);

private:
    PointCloudInfo() = default;
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
