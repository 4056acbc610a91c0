// Any cloud with any options of the writer: the file must restore every bit, and checked queries of it must
// succeed.
#include "support/FuzzTarget.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"
#include "support/ReadSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/VX7PointWriter.h>

namespace Quillmoran::Fuzz {

namespace {

using Testing::ByteStore;
using Testing::Random;

constexpr TransformType transforms[] = {1, 3, 10, 11, 13, 61, 63, 70, 71, 73, 81, 83, 90, 91, 93};

EncodeOptions chooseOptions(Random& random)
{
    EncodeOptions options;
    options.versions.file = static_cast<std::uint8_t>(random.between(1, 4));
    options.versions.header = static_cast<std::uint8_t>(random.between(1, 2));
    options.versions.index = static_cast<std::uint8_t>(random.between(1, 2));
    options.versions.band = static_cast<std::uint8_t>(random.between(1, 3));
    if (random.chance(0.5))
        options.all.transform = transforms[random.below(std::size(transforms))];
    options.all.smooth = random.chance(0.5);
    if (random.chance(0.5))
        options.all.subblockSize = static_cast<std::uint32_t>(random.between(16, 315));
    if (random.chance(0.5))
        options.numLevels = static_cast<std::uint32_t>(random.between(1, 12));
    if (random.chance(0.5))
        options.pointsPerEntry = static_cast<std::uint32_t>(random.between(1, 200));
    if (random.chance(0.5))
        options.rawPlanes = static_cast<int>(random.below(8));
    return options;
}

} // namespace

std::uint64_t runPack(Input input)
{
    Random random(input);
    const EncodeOptions options = chooseOptions(random);
    const std::size_t count = random.below(250);
    const auto cloud = Testing::makeRandomCloud(random, count, 4);
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
