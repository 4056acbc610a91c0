// What a file tells about itself before any point is decoded.
#pragma once

#include "info/CompressedSize.h"
#include <vxunpack/Metadata.h>
#include <vxunpack/PointSource.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Quillmoran {

struct SourceDescription
{
    Scoped<PointSource> source; // its own description: count, bounds, channels, class names, WKT
    const char* typeName = "";
    const char* format = nullptr; // null unless the source is a single file
    std::optional<std::uint64_t> fileBytes;
    bool hasWaveforms = false; // packets that are not decoded
    Metadata metadata;

    // Of a compressed file only, and owned by the source.
    const WaveletDecoderInfo* compression = nullptr;
    CompressedSize compressedSize;

    // Errors of records that cannot be read.
    SourceDescription(const Scoped<PointSource>& opened, const std::string& fileName);
};

} // namespace Quillmoran
