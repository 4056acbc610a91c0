#include "pdal/PDALBPFOutput.h"

#include "pdal/PDALErrors.h"
#include "srs/ParseWKT.h"

#include <cpl_error.h>
#include <cstdio>
#include <ostream>
#include <pdal/PointTable.hpp>
#include <pdal/PointView.hpp>
#include <pdal/StageWrapper.hpp>
#include <pdal/io/BpfWriter.hpp>

namespace Quillmoran {

namespace {

// Options are texts. PDAL's conversion of numbers loses digits.
std::string toText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

} // namespace

struct PDALBPFOutput::Pipeline
{
    void setOptions(const char* path, const double* scales);
    void setCoordinateSystem(const char* wkt);

    std::ostream silence{nullptr};
    pdal::PointTable table;
    pdal::BpfWriter writer;
    pdal::Options options;
    std::vector<pdal::Dimension::Id> dimensions;
    pdal::PointViewPtr view;
    bool keepsCoordinateSystem = true;
};

void PDALBPFOutput::Pipeline::setOptions(const char* path, const double* scales)
{
    options.add("filename", path);
    options.add("format", "POINT"); // the only format for several views
    const char* const names[] = {"scale_x", "scale_y", "scale_z"};
    for (int axis = 0; axis < 3; ++axis)
        options.add(names[axis], toText(scales[axis]));
}

// PDAL interprets any text, so it gets WKT only. The format has the UTM zones of WGS 84; without a zone,
// readers assume longitudes and latitudes of WGS 84.
void PDALBPFOutput::Pipeline::setCoordinateSystem(const char* wkt)
{
    if (!wkt || *wkt == '\0')
        return;
    keepsCoordinateSystem = false;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    try {
        const pdal::SpatialReference wanted(toWKT1(wkt)), horizontal(wanted.getHorizontal());
        const int zone = horizontal.getUTMZone();
        const auto stored =
            zone != 0 ? pdal::SpatialReference::wgs84FromZone(zone) : pdal::SpatialReference("EPSG:4326");
        if (zone != 0 && stored.equals(horizontal))
            options.add("coord_id", zone);
        keepsCoordinateSystem = stored.equals(wanted);
    } catch (const pdal::pdal_error&) {
        // A text that PDAL does not understand.
    }
    CPLPopErrorHandler();
}

PDALBPFOutput::PDALBPFOutput(const char* path, const std::vector<std::string>& dimensions,
                             const double* scales, const char* wkt)
    : m_pipeline(std::make_unique<Pipeline>())
{
    translatePDALErrors(ErrorCode::OutputCreate, [&] {
        Pipeline& p = *m_pipeline;
        p.setOptions(path, scales);
        p.setCoordinateSystem(wkt);
        p.writer.setOptions(p.options);
        p.writer.setLog(pdal::Log::makeLog("", &p.silence));
        for (const std::string& name : dimensions)
            p.dimensions.push_back(
                p.table.layout()->registerOrAssignDim(name, pdal::Dimension::Type::Double));
        p.writer.prepare(p.table);
        p.table.finalize();
        pdal::StageWrapper::ready(p.writer, p.table);
        p.view = std::make_shared<pdal::PointView>(p.table);
    });
}

PDALBPFOutput::~PDALBPFOutput() = default;

bool PDALBPFOutput::keepsCoordinateSystem() const
{
    return m_pipeline->keepsCoordinateSystem;
}

void PDALBPFOutput::write(const std::vector<std::vector<double>>& columns, std::size_t count)
{
    try {
        Pipeline& p = *m_pipeline;
        for (std::size_t i = 0; i < columns.size(); ++i)
            for (pdal::PointId point = 0; point < count; ++point)
                p.view->setField(p.dimensions[i], point, columns[i][point]);
        pdal::PointViewPtr written = p.view;
        if (written->size() != count) {
            // The view keeps its points between calls; this one has the first `count` of them.
            written = p.view->makeNew();
            for (pdal::PointId point = 0; point < count; ++point)
                written->appendPoint(*p.view, point);
        }
        pdal::StageWrapper::run(p.writer, written);
    } catch (const std::exception&) {
        QM_THROW(ErrorCode::PointWrite, "Unable to write point");
    }
}

void PDALBPFOutput::finish()
{
    translatePDALErrors(ErrorCode::PointWrite,
                        [&] { pdal::StageWrapper::done(m_pipeline->writer, m_pipeline->table); });
}

} // namespace Quillmoran
