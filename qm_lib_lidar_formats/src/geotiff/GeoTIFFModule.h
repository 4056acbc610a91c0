// The file that GeoTIFFWriter writes through GDAL, in the module that links it.
#pragma once

#include <vxunpack/Export.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Quillmoran {

struct GeoTIFFLayout
{
    enum SampleType
    {
        Counts, // 32 bits, unsigned
        Single, // floating point
        Double,
        Colors // bytes; the bands are red, green, blue and alpha
    };

    std::size_t columns = 0, rows = 0;       // up to 2^31 - 1
    double xMin = 0, yMax = 0, cellSize = 1; // the corner of the first cell; rows go from north to south
    double cellHeight = 0;                   // 0: as cellSize
    SampleType type = Single;                // Single and Double have NaN as no-data value
    std::vector<std::string> bands;          // descriptions
    std::string wkt;                         // empty: none
};

// Functions return false after an error and describe it in error().
class GeoTIFFFile
{
public:
    virtual ~GeoTIFFFile() = default;
    GeoTIFFFile(const GeoTIFFFile&) = delete;
    GeoTIFFFile& operator=(const GeoTIFFFile&) = delete;

    // Whether the layout has a coordinate system that the file cannot have.
    virtual bool lacksCoordinateSystem() const = 0;
    // Writes a window of a band, row by row.
    virtual bool write(std::size_t band, std::size_t column, std::size_t row, std::size_t columns,
                       std::size_t rows, const double* values) = 0;
    // Copies the complete image to a cloud-optimized file with overviews. Stops with the error "cancelled" if
    // isWanted(fraction, context) returns false.
    virtual bool copyTo(const char* path, unsigned numThreads, bool (*isWanted)(double, void*),
                        void* context) = 0;
    virtual const char* error() const noexcept = 0;

protected:
    GeoTIFFFile() = default;
};

} // namespace Quillmoran

extern "C" {
// Creates a plain file at the path, owned by the caller; null and an error if that fails.
QM_API Quillmoran::GeoTIFFFile* qmCreateGeoTIFF(const char* path, const Quillmoran::GeoTIFFLayout& layout,
                                                std::string& error);
}
