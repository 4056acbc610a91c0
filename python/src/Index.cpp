// The tiles of an index file, without opening them.
#include "Bindings.h"

#include <vxunpack/PersistentPointSourceManager.h>

#include <algorithm>
#include <cstdint>

namespace vx::python {

using namespace Quillmoran;

namespace {

using TileTuple = std::tuple<py::bytes, std::int64_t, BoxTuple>; // path, number of points, bounds

class NoOpener final : public PersistentPointSourceManager::FileOpener
{
public:
    PointSource* openPointSource(const char* path) const override
    {
        QM_THROW(ErrorCode::General, "%s was opened by the list of tiles", path);
    }
};

class Index
{
public:
    explicit Index(const std::string& path) : m_tiles(PersistentPointSourceManager::create())
    {
        const Scoped<NoOpener> opener(new NoOpener);
        m_tiles->init(path.c_str(), opener.get());
    }

    std::size_t size() const { return m_tiles->getNumSources(); }

    std::vector<TileTuple> tiles(std::size_t first, std::size_t count) const
    {
        const std::size_t begin = std::min(first, size());
        const std::size_t end = begin + std::min(count, size() - begin);
        std::vector<TileTuple> tuples;
        for (std::size_t i = begin; i < end; ++i) {
            const TileInfo tile = m_tiles->getTileInfo(i);
            const Bounds& box = tile.bounds;
            tuples.emplace_back(tile.path, tile.numPoints,
                                BoxTuple(box.x.min, box.x.max, box.y.min, box.y.max, box.z.min, box.z.max));
        }
        return tuples;
    }

private:
    Scoped<PersistentPointSourceManager> m_tiles;
};

} // namespace

void bindIndex(py::module_& module)
{
    py::class_<Index>(module, "Index")
        .def(py::init<const std::string&>(), py::call_guard<Released>())
        .def("__len__", &Index::size)
        .def("tiles", &Index::tiles);
}

} // namespace vx::python
