// The index of a tile set, queried through a mosaic. Its tiles are small clouds in memory, since their paths
// could name any file.
#include "support/FuzzTarget.h"
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/PersistentPointSourceManager.h>

namespace Quillmoran::Fuzz {

namespace {

class TileOpener final : public PersistentPointSourceManager::FileOpener
{
public:
    // Every path is a tile of three points, except for those that cannot be opened.
    PointSource* openPointSource(const char* path) const override
    {
        if (std::string(path).ends_with('!'))
            QM_THROW(ErrorCode::General, "no such tile");
        return MemoryPointSource::make(layoutXYZ(), {{0, 50, 100}, {0, 50, 100}, {0, 5, 10}}).detach();
    }
};

} // namespace

std::uint64_t runTileSet(Input input)
{
    const std::string path = storeInput(input, "survey.index");
    const Scoped<TileOpener> opener(new TileOpener);
    const Scoped<PersistentPointSourceManager> tiles(PersistentPointSourceManager::create());
    tiles->init(path.c_str(), opener.get());
    const Scoped<MosaicFilter> mosaic(MosaicFilter::create());
    mosaic->init(tiles->getPointCloudInfo(), tiles->getRTree(), tiles.get());
    describe(*mosaic);
    const PointInfo layout = mosaic->getPointInfo();
    std::uint64_t points = 0;
    for (const double fraction : {1.0, 0.1})
        for (const Bounds& bounds : {Bounds::Huge(), partOf(mosaic->getBounds())})
            succeeds([&] { points += readPoints(*mosaic, bounds, fraction, layout); });
    return points;
}

} // namespace Quillmoran::Fuzz
