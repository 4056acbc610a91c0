#include "info/FileReport.h"

#include <vxunpack/LASPointReader.h>
#include <vxunpack/VX7PointReader.h>

#include <filesystem>

namespace Quillmoran {

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

} // namespace Quillmoran
