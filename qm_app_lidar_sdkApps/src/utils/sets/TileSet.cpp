#include "utils/sets/TileSet.h"

#include "files/QMFileUtils.h"
#include "model/ChannelNames.h"
#include "utils/sets/PointScan.h"
#include <vxunpack/Base.h>
#include <vxunpack/PointSource.h>

#include <cmath>
#include <iterator>

namespace Quillmoran {

namespace {

bool isFinite(const Bounds::Range& range)
{
    return std::isfinite(range.min) && std::isfinite(range.max);
}

bool isFinite(const Bounds& bounds)
{
    return isFinite(bounds.x) && isFinite(bounds.y) && isFinite(bounds.z);
}

Bounds measureBounds(const PointSource& source)
{
    const char* const names[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    PointInfo layout;
    layout.init(source.getPointInfo(), names, std::size(names));
    Bounds bounds;
    scanPoints(source, Bounds::Huge(), layout, nullptr, [&bounds](const PointData& block, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            bounds.x.grow(block.getX()[i]);
            bounds.y.grow(block.getY()[i]);
            bounds.z.grow(block.getZ()[i]);
        }
    });
    return bounds;
}

} // namespace

TileInfo describeTile(const char* file, const PointSource& source)
{
    TileInfo tile;
    tile.path = QMFileUtils::resolve(file).c_str();
    tile.timestamp = QMFileUtils::getStats(file).modificationTime;
    tile.numPoints = source.getNumPoints();
    if (tile.numPoints == PointSource::unknownNumPoints)
        QM_THROW(ErrorCode::General, "the number of points must be known");
    if (tile.numPoints == 0)
        return tile;
    tile.bounds = source.getBounds();
    if (!isFinite(tile.bounds))
        tile.bounds = measureBounds(source);
    if (!isFinite(tile.bounds))
        QM_THROW(ErrorCode::General, "the bounds must be known");
    return tile;
}

} // namespace Quillmoran
