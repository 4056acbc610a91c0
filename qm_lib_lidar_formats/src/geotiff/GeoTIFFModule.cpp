#include "geotiff/GeoTIFFModule.h"

#include "srs/ParseWKT.h"
#include "srs/QuietLibraries.h"

#include <algorithm>
#include <cpl_string.h>
#include <cstdint>
#include <gdal_frmts.h>
#include <gdal_priv.h>
#include <limits>
#include <memory>
#include <ogr_spatialref.h>

namespace Quillmoran {

namespace {

constexpr int blockSize = 512; // cells

struct Closer
{
    void operator()(GDALDataset* dataset) const { GDALClose(dataset); }
};
using Dataset = std::unique_ptr<GDALDataset, Closer>;

// GDAL keeps blocks of all images in up to a twentieth of the memory.
class CacheLimit
{
public:
    CacheLimit() { GDALSetCacheMax64(std::min<std::int64_t>(m_before, maxBytes)); }
    ~CacheLimit() { GDALSetCacheMax64(m_before); }
    CacheLimit(const CacheLimit&) = delete;
    CacheLimit& operator=(const CacheLimit&) = delete;

private:
    static constexpr std::int64_t maxBytes = 64 << 20;

    const std::int64_t m_before = GDALGetCacheMax64();
};

std::string lastError()
{
    const std::string text = CPLGetLastErrorMsg();
    return text.empty() ? "unknown reason" : text;
}

GDALDriver* findDriver(const char* name)
{
    GDALRegister_GTiff();
    GDALRegister_COG();
    return GetGDALDriverManager()->GetDriverByName(name);
}

struct Progress
{
    bool (*isWanted)(double, void*);
    void* context;
    bool isCancelled = false;

    static int call(double fraction, const char*, void* self)
    {
        auto* const progress = static_cast<Progress*>(self);
        progress->isCancelled = progress->isCancelled || !progress->isWanted(fraction, progress->context);
        return !progress->isCancelled;
    }
};

class File final : public GeoTIFFFile
{
public:
    bool create(const char* path, const GeoTIFFLayout& layout)
    {
        const QuietLibraries quiet;
        const CPLStringList options(
            CSLParseCommandLine("TILED=YES SPARSE_OK=TRUE BIGTIFF=IF_SAFER INTERLEAVE=BAND"), true);
        CPLStringList all = options;
        all.SetNameValue("BLOCKXSIZE", std::to_string(blockSize).c_str());
        all.SetNameValue("BLOCKYSIZE", std::to_string(blockSize).c_str());
        const GDALDataType type = layout.type == GeoTIFFLayout::Counts   ? GDT_UInt32
                                  : layout.type == GeoTIFFLayout::Colors ? GDT_Byte
                                  : layout.type == GeoTIFFLayout::Single ? GDT_Float32
                                                                         : GDT_Float64;
        GDALDriver* const driver = findDriver("GTiff");
        if (driver)
            m_image.reset(driver->Create(path, static_cast<int>(layout.columns),
                                         static_cast<int>(layout.rows), static_cast<int>(layout.bands.size()),
                                         type, all.List()));
        if (!m_image)
            return fail();
        const double cellHeight = layout.cellHeight > 0 ? layout.cellHeight : layout.cellSize;
        double transform[6] = {layout.xMin, layout.cellSize, 0, layout.yMax, 0, -cellHeight};
        bool succeeds = m_image->SetGeoTransform(transform) == CE_None;
        for (int band = 1; band <= m_image->GetRasterCount(); ++band) {
            GDALRasterBand& made = *m_image->GetRasterBand(band);
            made.SetDescription(layout.bands[static_cast<std::size_t>(band - 1)].c_str());
            if (layout.type == GeoTIFFLayout::Colors)
                succeeds = succeeds && made.SetColorInterpretation(static_cast<GDALColorInterp>(
                                           GCI_RedBand + band - 1)) == CE_None; // they follow one another
            else if (layout.type != GeoTIFFLayout::Counts)
                succeeds =
                    succeeds && made.SetNoDataValue(std::numeric_limits<double>::quiet_NaN()) == CE_None;
        }
        OGRSpatialReference system;
        system.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        m_lacksSystem = !layout.wkt.empty() &&
                        (!parseWKT(layout.wkt.c_str(), system) || m_image->SetSpatialRef(&system) != CE_None);
        return succeeds || fail();
    }

    bool lacksCoordinateSystem() const override { return m_lacksSystem; }

    bool write(std::size_t band, std::size_t column, std::size_t row, std::size_t columns, std::size_t rows,
               const double* values) override
    {
        const QuietLibraries quiet;
        const CacheLimit limit;
        const auto width = static_cast<int>(columns), height = static_cast<int>(rows);
        GDALRasterBand& target = *m_image->GetRasterBand(static_cast<int>(band) + 1);
        return target.RasterIO(GF_Write, static_cast<int>(column), static_cast<int>(row), width, height,
                               const_cast<double*>(values), width, height, GDT_Float64, 0, 0,
                               nullptr) == CE_None ||
               fail();
    }

    bool copyTo(const char* path, unsigned numThreads, bool (*isWanted)(double, void*),
                void* context) override
    {
        const QuietLibraries quiet;
        const CacheLimit limit;
        CPLErrorReset();
        m_image->FlushCache();
        if (CPLGetLastErrorType() == CE_Failure)
            return fail();
        CPLStringList options(CSLParseCommandLine("COMPRESS=DEFLATE PREDICTOR=YES BIGTIFF=IF_SAFER "
                                                  "OVERVIEWS=AUTO OVERVIEW_RESAMPLING=AVERAGE"),
                              true);
        options.SetNameValue("BLOCKSIZE", std::to_string(blockSize).c_str());
        options.SetNameValue("NUM_THREADS", std::to_string(numThreads).c_str());
        Progress progress{isWanted, context};
        GDALDriver* const driver = findDriver("COG");
        Dataset copy(
            driver ? driver->CreateCopy(path, m_image.get(), true, options.List(), Progress::call, &progress)
                   : nullptr);
        if (copy)
            copy->FlushCache();
        const bool failed = !copy || CPLGetLastErrorType() == CE_Failure;
        if (progress.isCancelled)
            m_error = "cancelled";
        else if (failed)
            fail();
        return !failed && !progress.isCancelled;
    }

    const char* error() const noexcept override { return m_error.c_str(); }

private:
    bool fail()
    {
        m_error = lastError();
        return false;
    }

    Dataset m_image;
    bool m_lacksSystem = false;
    std::string m_error;
};

} // namespace

} // namespace Quillmoran

Quillmoran::GeoTIFFFile* qmCreateGeoTIFF(const char* path, const Quillmoran::GeoTIFFLayout& layout,
                                         std::string& error)
{
    auto file = std::make_unique<Quillmoran::File>();
    if (file->create(path, layout))
        return file.release();
    error = file->error();
    return nullptr;
}
