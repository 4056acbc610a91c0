// The description of a file, known before any point is decoded.
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
    Scoped<PointSource> source; // has count, bounds, channels, class names, WKT
    const char* typeName = "";
    const char* format = nullptr; // of a single file; null for an index
    std::optional<std::uint64_t> fileBytes;
    bool hasWaveforms = false; // waveform packets are not decoded
    Metadata metadata;

    // Only for compressed files. Owned by the source.
    const WaveletDecoderInfo* compression = nullptr;
    CompressedSize compressedSize;

    // Throws if the metadata cannot be read.
    SourceDescription(const Scoped<PointSource>& opened, const std::string& fileName);
};

} // namespace Quillmoran
