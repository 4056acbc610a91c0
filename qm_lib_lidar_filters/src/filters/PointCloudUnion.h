// The description of several point clouds as one: what the mosaic shows of its sources and the tile-set index
// of its tiles. Clouds are added one by one; what they do not agree on is settled so that no point loses
// anything:
//
//   channels            all names, in order of first appearance
//     type              one that holds the values of both: the wider integer, signed when either is; FLOAT64
//                       where no integer does and for floats beside integers
//     quantization      kept when equal; of steps of which one divides the others that one; else none
//   number of points    the sum, unknown when one is unknown
//   bounds              around all points
//   scale and offset    kept when equal, else none
//   coordinate system   the first, with a warning when another one differs
//   class names         the first
//
// A cloud without points adds its channels, its coordinate system and its class names alone.
#pragma once

#include "framework/PointCloudInfo.h"

#include <string>
#include <vector>

namespace Quillmoran {

class QM_API PointCloudUnion
{
public:
    PointCloudUnion();
    // Starts from the description of clouds that were added before.
    explicit PointCloudUnion(const PointCloudInfo& cloud);

    void add(const PointCloudInfo& cloud);

    const PointCloudInfo& getInfo() const noexcept { return *m_info; }
    // What the clouds did not agree on and a user should know; each is said once.
    const std::vector<std::string>& getWarnings() const noexcept { return m_warnings; }

private:
    void addChannels(const PointInfo& layout);
    void addWKT(const char* wkt);
    void addQuantization(const double* scale, const double* offset);

    Scoped<PointCloudInfo> m_info;
    bool m_hasPoints = false;
    std::vector<std::string> m_warnings;
};

} // namespace Quillmoran
