// LAS and LAZ files: header, VLRs, all points, a box. The reader must pass only safe data on to LASzip, which
// checks little itself. A LAS file that can be restored is written again, with the same bytes.
#include "las/header/LASRestore.h"
#include "support/FuzzTarget.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>

#include <algorithm>

namespace Quillmoran::Fuzz {

namespace {

void requireRestored(LASPointReader& reader, Input input)
{
    constexpr std::int64_t maxPoints = 4096;
    constexpr std::size_t maxChannels = 200;
    Metadata metadata;
    if (reader.hasWaveforms() || reader.getFileFormatString()[2] == 'Z' ||
        reader.getNumPoints() > maxPoints || reader.getNumChannels() > maxChannels)
        return;
    reader.loadMetadata(metadata, false);
    if (!metadata.has(LASRestore::key))
        return;
    const std::string output = storeInput({}, "restored.las");
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    writer->init(&reader, output.c_str(), -1);
    writer->setRestores(true);
    writer->write(Bounds::Huge(), 1, reader.getPointInfo(), nullptr);
    const std::string written = readFile(output);
    require(std::equal(written.begin(), written.end(), input.begin(), input.end(),
                       [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }),
            "the restored file differs");
}

} // namespace

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
    requireRestored(*reader, input);
    return points;
}

} // namespace Quillmoran::Fuzz
