// Writes a LAS file of any number of points without holding them: make_large PATH MILLIONS [FILE [square]]
//
// The points are those of a made-up survey, or of a LAS or LAZ file over and over: side by side, or as a
// square of copies that also differ a little in intensity.
#include "support/TerrainSurvey.h"
#include "support/TiledSource.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace Quillmoran;

namespace {

constexpr int intensityNoise = 2;

Scoped<PointSource> tile(const char* path, double numPoints, bool isSquare)
{
    const Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init(path, false);
    const double numCopies = std::round(numPoints / static_cast<double>(reader->getNumPoints()));
    Benchmarks::Tiling tiling;
    tiling.numCopies = static_cast<std::int64_t>(std::max(numCopies, 1.0));
    tiling.isSquare = isSquare;
    tiling.intensityNoise = isSquare ? intensityNoise : 0;
    auto tiled = Benchmarks::TiledSource::make(reader.get(), tiling);
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
    const bool isSquare = argc == 5 && std::strcmp(argv[4], "square") == 0;
    if (argc > (isSquare ? 5 : 4) || !(millions > 0)) {
        std::fprintf(stderr, "usage: make_large PATH MILLIONS [FILE [square]]\n");
        return 1;
    }
    try {
        const double numPoints = millions * 1e6;
        const Scoped<PointSource> source = argc >= 4 ? tile(argv[3], numPoints, isSquare) : makeUp(numPoints);
        const Scoped<LASPointWriter> writer(LASPointWriter::create());
        writer->init(source.get(), argv[1], -1);
        writer->write(Bounds::Huge(), 1, source->getPointInfo(), nullptr);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}
