// The points of a source with another coordinate system. Points are not transformed.
#pragma once

#include "las/header/LASMetadata.h"
#include <vxunpack/PointSource.h>

#include <string>

namespace Quillmoran {

class CoordinateSystemFilter final : public PointFilter
{
public:
    static CoordinateSystemFilter* create() { return new CoordinateSystemFilter; }

    void init(PointSource* source, const std::string& wkt)
    {
        PointFilter::init(source);
        m_wkt = wkt;
    }
    const char* getWKT() const override { return m_wkt.c_str(); }
    // Without the records of the source's coordinate system.
    void loadMetadata(Metadata& into, bool sanitize) const override
    {
        Metadata records;
        getSrc()->loadMetadata(records, sanitize);
        LASMetadata::removeCoordinateSystem(records);
        into.add(records);
    }
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override
    {
        return getSrc()->createSampleIterator(position, layout);
    }

private:
    std::string m_wkt;
};

} // namespace Quillmoran
