#include "info/FileReport.h"

#include "model/ChannelNames.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/VX7PointReader.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <type_traits>
#include <utility>

namespace Quillmoran {

namespace {

// The range of the samples that the record of a whole channel states.
std::optional<ChannelStatistics::Range> getStatedRange(const WaveletChannelInfo& record)
{
    std::optional<ChannelStatistics::Range> range;
    const auto set = [&range](auto min, auto max) {
        if (min <= max)
            range = {min, max};
    };
    visitDataType(record.getDataType(), [&](auto zero) {
        using T = decltype(zero);
        const auto [low, high] = std::pair(record.getMinimum(), record.getMaximum());
        if constexpr (std::is_floating_point_v<T>) {
            const auto toSample = [&record](WaveletChannelInfo::Value value) -> double {
                if (!record.isQuantized())
                    return value.real;
                return static_cast<T>(static_cast<double>(value.integer) * record.getScale() +
                                      record.getOffset());
            };
            if (std::isfinite(toSample(low)) && std::isfinite(toSample(high)))
                set(toSample(low), toSample(high));
        } else if constexpr (std::is_signed_v<T>) {
            if (low.integer >= std::numeric_limits<T>::min() && high.integer <= std::numeric_limits<T>::max())
                set(low.integer, high.integer);
        } else {
            const auto max = static_cast<std::uint64_t>(high.integer);
            if (low.integer >= 0 && high.integer >= 0 && max <= std::numeric_limits<T>::max())
                set(static_cast<std::uint64_t>(low.integer), max);
        }
    });
    return range;
}

} // namespace

CompressedSize CompressedSize::of(const WaveletDecoderInfo& info)
{
    // The byte ranges are disjoint parts of the file, so the sums cannot overflow.
    CompressedSize size;
    const std::uint32_t coarsest = info.getNumLevels() - 1;
    size.levelBytes.resize(info.getNumLevels());
    for (const WaveletDecoderChannelInfo& record : info.getChannels()) {
        Channel& channel = size.channels.emplace_back();
        for (std::uint32_t band = 0; band <= coarsest; ++band) {
            const BandRanges ranges = info.getBandRanges(record, band);
            const std::int64_t headers = ranges.interleaved ? 0 : ranges.headers.length();
            channel.interleaved = channel.interleaved || ranges.interleaved;
            channel.headerBytes += headers;
            channel.dataBytes += ranges.data.length();
            // Band 0 is the coarsest level; each following band refines to the next finer level.
            size.levelBytes[coarsest - band] += headers + ranges.data.length();
        }
    }
    return size;
}

SourceDescription::SourceDescription(const Scoped<PointSource>& opened, const Utils::Input& input)
    : source(opened), typeName(SimpleFileOpener::getPointSourceTypeName(input.type))
{
    source->loadMetadata(metadata, false);
    std::error_code failure;
    const std::uintmax_t size = input.io ? static_cast<std::uintmax_t>(input.io->size())
                                         : std::filesystem::file_size(input.name, failure);
    if (!failure)
        fileBytes = size;
    if (const auto* reader = dynamic_cast<const PointReader*>(source.get()))
        format = reader->getFileFormatString();
    if (const auto* reader = dynamic_cast<const LASPointReader*>(source.get()))
        hasWaveforms = reader->hasWaveforms();
    if (const auto* reader = dynamic_cast<const VX7PointReader*>(source.get())) {
        compression = &reader->getDecoderInfo();
        compressedSize = CompressedSize::of(*compression);
    }
}

std::vector<ChannelStatistics> SourceDescription::startStatistics(bool isSampled) const
{
    const std::size_t numChannels = source->getNumChannels();
    std::vector<const WaveletChannelInfo*> records(numChannels); // of whole channels
    for (std::size_t i = 0; compression && i < compression->getChannels().size(); ++i)
        if (compression->getChannels()[i].getPart() == ChannelPart::Whole)
            records.at(compression->getPointChannel(i)) = &compression->getChannels()[i];

    const double* offsets = source->getOffset();
    const char* const axes[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    std::vector<ChannelStatistics> statistics;
    for (std::size_t i = 0; i < numChannels; ++i) {
        const ChannelInfo& channel = source->getChannel(i);
        double offset = records[i] ? records[i]->getOffset() : 0;
        for (std::size_t axis = 0; offsets && axis < 3; ++axis)
            if (channel.isNamed(axes[axis]))
                offset = offsets[axis];
        statistics.emplace_back(channel, offset);
        const auto range = isSampled && records[i] ? getStatedRange(*records[i]) : std::nullopt;
        if (range)
            statistics.back().setKnownRange(*range);
    }
    return statistics;
}

} // namespace Quillmoran
