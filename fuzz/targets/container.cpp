// A compressed file and everything behind it: opening, metadata, all points, a box, a coarse level, a thinned
// box of a coarse level.
#include "decode/container/WaveletDecoderInfo.h"
#include "support/ByteStore.h"
#include "support/FuzzTarget.h"
#include "support/ReadSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/VX7PointReader.h>

#include <limits>

namespace Quillmoran::Fuzz {

namespace {

// Samples that one refill of the decoder can make it decode: whole subblocks of all channels.
double samplesAtOnce(const WaveletDecoderInfo& info)
{
    double samples = 0;
    for (const WaveletDecoderChannelInfo& channel : info.getChannels())
        samples += static_cast<double>(std::min<std::int64_t>(
            std::max<std::int64_t>(channel.getSubblockSize(), 16384), info.getNumPoints()));
    return samples;
}

} // namespace

std::uint64_t run(Input input)
{
    constexpr double mostSamples = 1 << 18;
    const Scoped<Testing::ByteStore> store(Testing::ByteStore::create({input.begin(), input.end()}));
    const Scoped<VX7PointReader> reader(VX7PointReader::create());
    reader->init(store.get());

    const WaveletDecoderInfo& info = reader->getDecoderInfo();
    std::uint64_t samples = 0;
    try {
        Metadata metadata;
        reader->loadMetadata(metadata, false);
    } catch (const Error&) {
        // points come without it
    }
    const double atOnce = samplesAtOnce(info);
    if (atOnce > mostSamples)
        return samples; // right, but slow
    const PointInfo& layout = reader->getPointInfo();
    const Bounds part = partOf(reader->getBounds());
    for (const auto& [bounds, fraction] :
         {std::pair(Bounds::Huge(), 1.0), {part, 1.0}, {Bounds::Huge(), 0.25}, {part, 0.1}}) {
        // A box is looked for in all ranges that it touches, whatever comes of them.
        const double work = reader->getTotalWork(bounds, fraction);
        if (bounds != Bounds::Huge() && work > mostSamples)
            continue;
        try {
            readPoints(*reader, bounds, fraction, layout);
        } catch (const Error&) {
            // the next query may touch other bands
        }
        samples += static_cast<std::uint64_t>(2 * atOnce + std::min(work, mostSamples)) *
                   std::max<std::size_t>(info.getChannels().size(), 1);
    }
    return samples;
}

} // namespace Quillmoran::Fuzz
