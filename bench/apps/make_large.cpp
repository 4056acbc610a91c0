// Writes a LAS file of any number of points without holding them: make_large PATH MILLIONS [FILE]
//
// The points are those of a made-up survey, or of a LAS or LAZ file over and over.
#include "las/LASPointReader.h"
#include "las/LASPointWriter.h"
#include "support/TerrainSurvey.h"
#include "support/TiledSource.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace Quillmoran;

namespace {

Scoped<PointSource> tile(const char* path, double numPoints)
{
    const Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init(path, false);
    const double numCopies = std::round(numPoints / static_cast<double>(reader->getNumPoints()));
    auto tiled =
        Benchmarks::TiledSource::make(reader.get(), static_cast<std::int64_t>(std::max(numCopies, 1.0)));
    return Scoped<PointSource>(tiled.detach());
}

Scoped<PointSource> makeUp(double numPoints)
{
    auto survey = Benchmarks::TerrainSurvey::make(static_cast<std::int64_t>(numPoints));
    return Scoped<PointSource>(survey.detach());
}

} // namespace

int main(int argc, char** argv)
{
    const double millions = argc >= 3 ? std::atof(argv[2]) : 0;
    if (argc > 4 || !(millions > 0)) {
        std::fprintf(stderr, "usage: make_large PATH MILLIONS [FILE]\n");
        return 1;
    }
    try {
        const Scoped<PointSource> source = argc == 4 ? tile(argv[3], millions * 1e6) : makeUp(millions * 1e6);
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(source.get(), argv[1], -1);
        writer->write(Bounds::Huge(), 1, source->getPointInfo(), nullptr);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}
