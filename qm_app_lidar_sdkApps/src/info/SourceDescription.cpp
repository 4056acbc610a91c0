#include "info/SourceDescription.h"

#include "utils/sets/Formats.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/VX7PointReader.h>

#include <filesystem>

namespace Quillmoran {

SourceDescription::SourceDescription(const Scoped<PointSource>& opened, const std::string& fileName)
    : source(opened), typeName(Formats::ofName(fileName.c_str()).description)
{
    source->loadMetadata(metadata, false);
    std::error_code failure;
    const std::uintmax_t size = std::filesystem::file_size(fileName, failure);
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
