#include "pdal/PDALBPFInput.h"

#include "pdal/PDALErrors.h"

#include <ostream>
#include <pdal/PointTable.hpp>
#include <pdal/StageWrapper.hpp>
#include <pdal/io/BpfReader.hpp>

namespace Quillmoran {

namespace {

// A reader without log output.
struct QuietReader
{
    explicit QuietReader(const char* path)
    {
        pdal::Options options;
        options.add("filename", path);
        reader.setOptions(options);
        reader.setLog(pdal::Log::makeLog("", &silence));
    }

    std::ostream silence{nullptr};
    pdal::BpfReader reader;
};

} // namespace

struct PDALBPFInput::Pipeline : QuietReader
{
    using QuietReader::QuietReader;

    pdal::FixedPointTable table{1};
    pdal::PointRef point{table, 0};
    std::vector<pdal::Dimension::Id> dimensions;
};

PDALBPFInput::PDALBPFInput(const char* path, const std::vector<BPFDimension>& dimensions)
{
    translatePDALErrors(ErrorCode::BPFRead, [&] {
        m_pipeline = std::make_unique<Pipeline>(path);
        Pipeline& p = *m_pipeline;
        // A float plus its offset needs a double; PDAL's default has doubles for coordinates only.
        for (const BPFDimension& each : dimensions)
            p.dimensions.push_back(p.table.layout()->registerOrAssignDim(pdal::Dimension::fixName(each.label),
                                                                         pdal::Dimension::Type::Double));
        p.reader.prepare(p.table);
        p.table.finalize();
        pdal::StageWrapper::ready(p.reader, p.table);
    });
}

PDALBPFInput::~PDALBPFInput() = default;

bool PDALBPFInput::next(double* values)
{
    return translatePDALErrors(ErrorCode::BPFRead, [&] {
        Pipeline& p = *m_pipeline;
        if (!pdal::StreamableWrapper::processOne(p.reader, p.point))
            return false;
        for (const pdal::Dimension::Id id : p.dimensions)
            *values++ = p.point.getFieldAs<double>(id);
        return true;
    });
}

std::string PDALBPFInput::readCoordinateSystem(const char* path)
{
    return translatePDALErrors(ErrorCode::BPFRead,
                               [&] { return QuietReader(path).reader.preview().m_srs.getWKT(); });
}

} // namespace Quillmoran
