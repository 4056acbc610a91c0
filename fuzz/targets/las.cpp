// LAS and LAZ files: header, VLRs, all points, a box. The reader must pass only safe data on to LASzip, which
// checks little itself.
#include "support/FuzzTarget.h"
#include <vxunpack/LASPointReader.h>

namespace Quillmoran::Fuzz {

std::uint64_t runLAS(Input input)
{
    const std::string path = storeInput(input, "file.las");
    const Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init(path.c_str(), true);
    const PointInfo& layout = reader->getPointInfo();
    std::uint64_t points = 0;
    succeeds([&] { points = readPoints(*reader, Bounds::Huge(), 1.0, layout); });
    if (reader->getNumPoints() < 100000) // every query reads the whole file
        succeeds([&] { points += readPoints(*reader, partOf(reader->getBounds()), 0.5, layout); });
    describe(*reader);
    return points;
}

} // namespace Quillmoran::Fuzz
