#include "utils/program/Summary.h"

#include "srs/SpatialReference.h"
#include "text/Printable.h"
#include "utils/program/Program.h"
#include "utils/sets/NamedSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/PointSource.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace Quillmoran::Utils {

namespace {

// The number of points before compression, if the record holds a number.
std::optional<long long> getPreCompressionCount(const Metadata& metadata)
{
    const char* description = nullptr;
    MetadataDataType type{};
    const void* value = nullptr;
    std::size_t length = 0;
    if (!metadata.get("PreCompressionPointCount", description, type, value, length) || !value)
        return std::nullopt;
    if (type == METADATA_STRING) {
        const char* text = static_cast<const char*>(value);
        const char* end = text + std::strlen(text);
        long long count = 0;
        const auto [rest, error] = std::from_chars(text, end, count);
        if (error == std::errc() && rest == end)
            return count;
    } else if (type == METADATA_FLOAT64_ARRAY && length != 0) {
        double count = 0;
        std::memcpy(&count, value, sizeof count);
        constexpr double limit = 9223372036854775808.0;
        if (count >= -limit && count < limit && count == std::trunc(count))
            return static_cast<long long>(count);
    }
    return std::nullopt;
}

// Escapes each line by itself and so keeps the line ends of indented WKT.
std::string printableLines(const std::string& text)
{
    std::string result;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        result += printable(std::string_view(text).substr(begin, end - begin));
        if (end < text.size())
            result += '\n';
        begin = end + 1;
    }
    return result;
}

std::string describeCoordinateSystem(const char* wkt, const char* fileName)
{
    if (!wkt)
        return "None";
    try {
        const std::string pretty = SpatialReference::pretty(wkt);
        return pretty == wkt ? printable(pretty) : printableLines(pretty);
    } catch (const Error& error) {
        const std::string file = fileName && *fileName ? '\'' + std::string(fileName) + "': " : "";
        warn(file + "the coordinate system is printed as it is: " + error.what());
        return printable(wkt);
    }
}

} // namespace

void printHeader(std::FILE* stream, const PointSource& shown, const char* fileName)
{
    const PointSource& source = NamedSource::unwrap(shown);
    if (dynamic_cast<const MosaicFilter*>(&source)) {
        std::fprintf(stream, "Basic Mosaic Info:\n");
    } else {
        std::fprintf(stream, "Basic LiDAR Info:\n");
        if (fileName && *fileName)
            std::fprintf(stream, "   Filename:          %s\n", printable(fileName).c_str());
        if (const auto* reader = dynamic_cast<const PointReader*>(&source))
            std::fprintf(stream, "   Format:            %s\n", reader->getFileFormatString());
    }

    const std::int64_t numPoints = source.getNumPoints();
    const Bounds& bounds = source.getBounds();
    std::fprintf(stream, "   Number of Points:  %llu\n", static_cast<unsigned long long>(numPoints));
    std::fprintf(stream, "   Bounds Min:        %f %f %f\n", bounds.x.min, bounds.y.min, bounds.z.min);
    std::fprintf(stream, "   Bounds Max:        %f %f %f\n", bounds.x.max, bounds.y.max, bounds.z.max);
    const double density = numPoints == 0 ? 0
                                          : static_cast<double>(numPoints) / (bounds.x.max - bounds.x.min) /
                                                (bounds.y.max - bounds.y.min);
    std::fprintf(stream, "   Point Density:     %f points / sq. unit\n", density);
    if (const double* scale = source.getScale())
        std::fprintf(stream, "   Scale:             %g %g %g\n", scale[0], scale[1], scale[2]);
    else
        std::fprintf(stream, "   Scale:             None\n");
    if (const double* offset = source.getOffset())
        std::fprintf(stream, "   Offset:            %f %f %f\n", offset[0] + 0.0, offset[1] + 0.0,
                     offset[2] + 0.0); // no -0
    else
        std::fprintf(stream, "   Offset:            None\n");

    Metadata metadata;
    source.loadMetadata(metadata, false);
    std::printf("   Pre-compression point count check:  ");
    const auto original = getPreCompressionCount(metadata);
    if (!original)
        std::fprintf(stream, "not present / indeterminate\n");
    else if (*original == numPoints)
        std::fprintf(stream, "lossless (%lld)\n", *original);
    else
        std::fprintf(stream, "lossy (%lld, %lld)\n", *original, static_cast<long long>(numPoints));

    std::fprintf(stream, "   Supported Fields: ");
    for (std::size_t i = 0; i < source.getNumChannels(); ++i)
        std::fprintf(stream, " '%s'", printable(source.getChannel(i).getName()).c_str());
    std::fputc('\n', stream);
    std::fprintf(stream, "   Spatial Reference: %s\n",
                 describeCoordinateSystem(source.getWKT(), fileName).c_str());
}

} // namespace Quillmoran::Utils
