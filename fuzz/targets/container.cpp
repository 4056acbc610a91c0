// A compressed file: opening, metadata, all points, a box, a coarse level, coordinates of a thinned box.
#include "decode/container/WaveletDecoderInfo.h"
#include "support/ByteStore.h"
#include "support/FuzzTarget.h"
#include "support/ReadSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/VX7PointReader.h>

#include <limits>

namespace Quillmoran::Fuzz {

namespace {

// The number of samples that one refill of the decoder can decode: whole subblocks of all channels.
double samplesAtOnce(const WaveletDecoderInfo& info)
{
    double samples = 0;
    for (const WaveletDecoderChannelInfo& channel : info.getChannels())
        samples += static_cast<double>(std::min<std::int64_t>(
            std::max<std::int64_t>(channel.getSubblockSize(), 16384), info.getNumPoints()));
    return samples;
}

} // namespace

std::uint64_t runContainer(Input input)
{
    constexpr double maxSamples = 1 << 18;
    const Scoped<Testing::ByteStore> store(Testing::ByteStore::create({input.begin(), input.end()}));
    const Scoped<VX7PointReader> reader(VX7PointReader::create());
    reader->init(store.get());

    const WaveletDecoderInfo& info = reader->getDecoderInfo();
    std::uint64_t samples = 0;
    describe(*reader);
    const double atOnce = samplesAtOnce(info);
    if (atOnce > maxSamples)
        return samples; // correct, but slow
    const PointInfo layout = reader->getPointInfo(), coordinates = coordinatesOf(*reader);
    const Bounds part = partOf(reader->getBounds());
    for (const auto& [bounds, fraction] :
         {std::pair(Bounds::Huge(), 1.0), {part, 1.0}, {Bounds::Huge(), 0.25}, {part, 0.1}}) {
        // A query decodes all ranges that the box touches, even if no point is inside.
        const double work = reader->getTotalWork(bounds, fraction);
        if (bounds != Bounds::Huge() && work > maxSamples)
            continue;
        try {
            readPoints(*reader, bounds, fraction, fraction < 0.2 ? coordinates : layout);
        } catch (const Error&) {
            // the next query may read other bands
        }
        samples += static_cast<std::uint64_t>(2 * atOnce + std::min(work, maxSamples)) *
                   std::max<std::size_t>(info.getChannels().size(), 1);
    }
    return samples;
}

} // namespace Quillmoran::Fuzz
