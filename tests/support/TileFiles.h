// Small compressed files on a grid of cells, as the tiles of a survey, and an opener that records which files
// were opened.
#pragma once

#include "support/TemporaryDirectory.h"
#include "support/VX7FileBuilder.h"
#include <vxunpack/FilePointSourceManager.h>

#include <string>
#include <vector>

namespace Quillmoran::Testing {

// `count` points in the cell whose lower corner is (x, y, 0) and whose edges are below 10.
inline Bytes buildTile(double x, double y, int count = 20)
{
    std::vector<std::int64_t> steps[3];
    for (int i = 0; i < count; ++i) {
        steps[0].push_back(i * 7 % 100 * 9);
        steps[1].push_back(i * 13 % 100 * 9);
        steps[2].push_back(i % 5);
    }
    FilePlan plan;
    plan.numLevels = 2;
    plan.channels = {quantizedChannel("X", steps[0], x, 0.01), quantizedChannel("Y", steps[1], y, 0.01),
                     quantizedChannel("Z", steps[2], 0, 0.01)};
    plan.wkt = "LOCAL_CS[\"grid\"]";
    plan.classNames = {"never", std::nullopt, "ground"};
    return buildFile(plan);
}

class CountingOpener final : public PersistentPointSourceManager::FileOpener
{
public:
    static Scoped<CountingOpener> make() { return Scoped<CountingOpener>(new CountingOpener); }

    PointSource* openPointSource(const char* path) const override
    {
        m_opened.push_back(std::filesystem::path(path).filename());
        return m_opener->openPointSource(path);
    }

    SimpleFileOpener& simple() { return *m_opener; }
    // The base names of the files opened since the last call.
    std::vector<std::string> takeOpened()
    {
        std::vector<std::string> opened;
        opened.swap(m_opened);
        return opened;
    }

private:
    Scoped<SimpleFileOpener> m_opener{SimpleFileOpener::create()};
    mutable std::vector<std::string> m_opened;
};

} // namespace Quillmoran::Testing
