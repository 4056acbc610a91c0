// A compressed file: opening, metadata, a copy of its coordinates, all points, a box, a coarse level, coordinates
// of a thinned box, and all points compared with their digests.
#include "decode/container/WaveletDecoderInfo.h"
#include "rewrite/VX7Rewriter.h"
#include "support/FuzzTarget.h"
#include <vxunpack/VX7PointReader.h>

namespace Quillmoran::Fuzz {

std::uint64_t runContainer(Input input)
{
    constexpr double maxSamples = 1 << 18;
    const Scoped<VX7PointReader> reader(VX7PointReader::create());
    reader->init(storeOf(input).get());
    reader->setVerifiesDigests(false); // digests would refuse nearly all changes of a file
    describe(*reader);
    const Scoped<ByteStore> copy = ByteStore::make();
    if (succeeds([&] { VX7Rewriter(*reader, {layoutXYZ(), {}, {}}).write(copy.get(), nullptr); }))
        require(succeeds([&] { Scoped<VX7PointReader>(VX7PointReader::create())->init(copy.get()); }),
                "the copy of a file cannot be opened");
    const WaveletDecoderInfo& info = reader->getDecoderInfo();
    // The number of samples that one refill of the decoder can decode: whole subblocks of all channels.
    double atOnce = 0;
    for (const WaveletDecoderChannelInfo& channel : info.getChannels())
        atOnce += static_cast<double>(std::min<std::int64_t>(
            std::max<std::int64_t>(channel.getSubblockSize(), 16384), info.getNumPoints()));
    if (atOnce > maxSamples)
        return 0; // correct, but slow
    const PointInfo layout = reader->getPointInfo();
    PointInfo coordinates;
    for (std::size_t i = 0; i < std::min<std::size_t>(3, layout.getNumChannels()); ++i)
        coordinates.append(layout.getChannel(i));
    const Bounds part = partOf(reader->getBounds());
    std::uint64_t samples = 0;
    for (const auto& [bounds, fraction] :
         {std::pair(Bounds::Huge(), 1.0), {part, 1.0}, {Bounds::Huge(), 0.25}, {part, 0.1}}) {
        // A query decodes all ranges that the box touches, even if no point is inside.
        const double work = reader->getTotalWork(bounds, fraction);
        if (bounds != Bounds::Huge() && work > maxSamples)
            continue;
        succeeds([&, &bounds = bounds, &fraction = fraction] {
            readPoints(*reader, bounds, fraction, fraction < 0.2 ? coordinates : layout);
        });
        samples += static_cast<std::uint64_t>(2 * atOnce + std::min(work, maxSamples)) *
                   std::max<std::size_t>(info.getChannels().size(), 1);
    }
    reader->setVerifiesDigests(true);
    succeeds([&] { readPoints(*reader, Bounds::Huge(), 1, layout); });
    return 2 * samples;
}

} // namespace Quillmoran::Fuzz
