#include "decode/container/BandLayout.h"

#include "decode/coders/SubblockReader.h"
#include "decode/container/WaveletDecoderInfo.h"
#include "platform/Stream.h"
#include "remote/RemoteError.h"

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBufferSize = 4096;
constexpr TransformType unlifted = 10; // the MQ code without lifting

using Band = WaveletDecoderChannelInfo::Band;

bool hasTwoRanges(const Band& band)
{
    return band.first.length() > 0 && band.second.length() > 0;
}

struct Candidate
{
    const WaveletDecoderChannelInfo* channel = nullptr;
    std::size_t band = 0;

    const Band& ranges() const { return channel->getBands()[band]; }
};

// The first band with two ranges, of the channels for which `accept` returns true.
template <class Accept>
Candidate findBand(const WaveletDecoderInfo& info, Accept accept)
{
    for (const WaveletDecoderChannelInfo& channel : info.getChannels()) {
        if (!accept(channel))
            continue;
        const auto& bands = channel.getBands();
        const auto found = std::find_if(bands.begin(), bands.end(), hasTwoRanges);
        if (found != bands.end())
            return {&channel, static_cast<std::size_t>(found - bands.begin())};
    }
    return {};
}

std::uint64_t countSubblocks(const WaveletDecoderInfo& info, const Candidate& candidate)
{
    // Band 0 is the low band of the coarsest level; band i is the high band of the i-th level from there.
    const auto level = static_cast<std::uint32_t>(info.getNumLevels() - 1 - candidate.band);
    std::int64_t samples = info.getNumSamples(level);
    if (candidate.band != 0)
        samples /= 2;
    const std::uint64_t size = candidate.channel->getSubblockSize();
    return static_cast<std::uint64_t>(samples) / size + (static_cast<std::uint64_t>(samples) % size != 0);
}

bool fits(const WaveletDecoderInfo& info, const Candidate& candidate, bool swapped, bool planeLengths)
{
    const WaveletDecoderChannelInfo& channel = *candidate.channel;
    const IO::Location& headers = swapped ? candidate.ranges().second : candidate.ranges().first;
    const IO::Location& data = swapped ? candidate.ranges().first : candidate.ranges().second;
    try {
        const auto reader = SubblockReader::create({channel.getKernelDataType(), channel.getTransformType(),
                                                    channel.getSubblockSize(), planeLengths});
        reader->init();
        const Scoped<IO> range(BoundedIO::create(headers));
        StreamReader stream;
        stream.init(range.get(), true, streamBufferSize);
        stream.seek(headers.offset(), Stream::SEEK_FROM_START);

        std::uint64_t left = countSubblocks(info, candidate);
        std::uint64_t payloads = 0;
        while (left != 0) {
            SubblockHeader header;
            const std::uint64_t zeros = reader->readHeader(stream, header);
            left -= zeros == 0 ? 1 : std::min(zeros, left);
            payloads += header.payloadLength;
        }
        return stream.tell() == headers.offset() + headers.length() &&
               payloads == static_cast<std::uint64_t>(data.length());
    } catch (const Error& error) {
        if (isRemoteError(error))
            throw;
        return false; // decoding the band reports the error
    }
}

} // namespace

BandLayout BandLayout::detect(const WaveletDecoderInfo& info)
{
    BandLayout layout;
    const bool oldFile = info.isBeforeSingleLengths();
    const Candidate first = findBand(info, [](const auto&) { return true; });
    if (!first.channel) {
        layout.singleRange = true;
        return layout;
    }
    const bool lifted = TransformUtils::isWavelet(first.channel->getTransformType());
    const bool planeLengths = oldFile && lifted;
    layout.swapped =
        !fits(info, first, false, planeLengths) &&
        (fits(info, first, true, planeLengths) ||
         (oldFile && !lifted && !fits(info, first, false, true) && fits(info, first, true, true)));
    if (!oldFile)
        return layout;

    const Candidate plain =
        findBand(info, [](const auto& channel) { return channel.getTransformType() == unlifted; });
    layout.planeLengthsWithoutLifting =
        plain.channel && !fits(info, plain, layout.swapped, false) && fits(info, plain, layout.swapped, true);
    return layout;
}

} // namespace Quillmoran
