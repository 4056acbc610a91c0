// Any cloud with any options of the writer: the file must restore every bit, and checked queries of it must
// succeed.
#include "support/InputReader.h"
#include "support/Layouts.h"
#include "support/MemoryPointSource.h"
#include "support/ReadPoints.h"
#include "support/ReadSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/VX7PointWriter.h>

#include <cmath>

namespace Quillmoran::Fuzz {

namespace {

using Testing::ByteStore;
using Testing::MemoryPointSource;

constexpr TransformType transforms[] = {1, 3, 10, 11, 13, 61, 63, 70, 71, 73, 81, 83, 90, 91, 93};

EncodeOptions takeOptions(InputReader& reader)
{
    EncodeOptions options;
    options.versions.file = static_cast<std::uint8_t>(1 + reader.below(4));
    options.versions.header = static_cast<std::uint8_t>(1 + reader.below(2));
    options.versions.index = static_cast<std::uint8_t>(1 + reader.below(2));
    options.versions.band = static_cast<std::uint8_t>(1 + reader.below(3));
    const auto choices = reader.take<std::uint8_t>();
    if ((choices & 1) != 0)
        options.all.transform = transforms[reader.below(std::size(transforms))];
    options.all.smooth = (choices & 2) != 0;
    if ((choices & 4) != 0)
        options.all.subblockSize = 16 + reader.below(300);
    if ((choices & 8) != 0)
        options.numLevels = 1 + reader.below(12);
    if ((choices & 16) != 0)
        options.pointsPerEntry = 1 + reader.below(200);
    if ((choices & 32) != 0)
        options.rawPlanes = static_cast<int>(reader.below(8));
    return options;
}

PointInfo takeLayout(InputReader& reader)
{
    constexpr DataType types[] = {UINT8,  SINT8,   UINT16, SINT16, UINT32,
                                  SINT32, FLOAT32, UINT64, SINT64, FLOAT64};
    PointInfo layout;
    for (const char* name : {"X", "Y", "Z"})
        layout.append(Testing::channel(name, FLOAT64, reader.below(2) * 0.01));
    for (std::uint32_t i = reader.below(5); i > 0; --i)
        layout.append(
            Testing::channel(("C" + std::to_string(i)).c_str(), types[reader.below(std::size(types))]));
    return layout;
}

// Samples are the bytes of the input, repeated. Coordinates are never NaN, which no box contains.
Scoped<MemoryPointSource> takeCloud(InputReader& reader)
{
    const PointInfo layout = takeLayout(reader);
    const std::size_t count = reader.below(250);
    const Input bytes = reader.rest();
    Scoped<MemoryPointSource> cloud = MemoryPointSource::make(
        layout, MemoryPointSource::Columns(layout.getNumChannels(), std::vector<double>(count, 0.0)));
    std::size_t at = 0;
    for (std::size_t c = 0; c < layout.getNumChannels() && !bytes.empty(); ++c) {
        ChannelData& column = cloud->column(layout.getChannel(c).getName());
        auto* samples = static_cast<std::uint8_t*>(column.getData());
        for (std::size_t i = 0; i < count * DataTypeUtils::getSize(column.getDataType()); ++i)
            samples[i] = bytes[at++ % bytes.size()];
        auto* reals = static_cast<double*>(column.getData());
        for (std::size_t i = 0; c < 3 && i < count; ++i) {
            if (std::isnan(reals[i]))
                reals[i] = static_cast<double>(i % 7) * 0.01;
        }
    }
    cloud->setBounds(Bounds::Huge());
    return cloud;
}

} // namespace

std::uint64_t runPack(Input input)
{
    InputReader reader(input);
    const EncodeOptions options = takeOptions(reader);
    const Scoped<MemoryPointSource> cloud = takeCloud(reader);
    const Scoped<ByteStore> file(ByteStore::create());
    const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
    writer->init(cloud.get(), file.get());
    writer->setOptions(options);
    writer->write(Bounds::Huge(), 1.0, cloud->getPointInfo(), nullptr);
    try {
        const Scoped<VX7PointReader> written = Testing::openFile(file->bytes());
        require(Testing::readAll(*written) == Testing::readAll(*cloud), "points do not come back");
        readPoints(*written, partOf(written->getBounds()), 1.0, written->getPointInfo());
        readPoints(*written, Bounds::Huge(), 0.3, written->getPointInfo());
    } catch (const Error& error) {
        require(false, error.what());
    }
    constexpr std::uint64_t trials = 64; // codes and sizes that the writer tries
    return trials * cloud->getPointInfo().getNumChannels() *
           static_cast<std::uint64_t>(cloud->getNumPoints());
}

} // namespace Quillmoran::Fuzz
