#include "pdal/PDALPointReader.h"

#include "model/ChannelNames.h"
#include "pdal/PDALBPFInput.h"
#include "pdal/PDALDimensions.h"
#include "pdal/PDALPointIterator.h"
#include "platform/OpenIO.h"
#include <vxunpack/Base.h>
#include <vxunpack/FileIO.h>

#include <cmath>

namespace Quillmoran {

namespace {

struct StandardType
{
    const char* channel;
    DataType type;
    int bits;
    double min, max;
};

// In the order in which they are tried: the values of some channels may need more bits.
constexpr StandardType standardTypes[] = {
    {ChannelNames::intensity, UINT16, 16, 0, UINT16_MAX},
    {ChannelNames::returnNum, UINT8, 3, 0, 7},
    {ChannelNames::returnNum, UINT8, 4, 0, 15},
    {ChannelNames::numReturns, UINT8, 3, 0, 7},
    {ChannelNames::numReturns, UINT8, 4, 0, 15},
    {ChannelNames::scanDir, UINT8, 1, 0, 1},
    {ChannelNames::edgeFlightLine, UINT8, 1, 0, 1},
    {ChannelNames::classId, UINT8, 8, 0, UINT8_MAX},
    {ChannelNames::classFlags, UINT8, 4, 0, 15},
    {ChannelNames::scannerChannel, UINT8, 2, 0, 3},
    {ChannelNames::scanAngle, SINT8, 8, INT8_MIN, INT8_MAX},
    {ChannelNames::userData, UINT8, 8, 0, UINT8_MAX},
    {ChannelNames::sourceId, UINT16, 16, 0, UINT16_MAX},
    {ChannelNames::red, UINT16, 16, 0, UINT16_MAX},
    {ChannelNames::green, UINT16, 16, 0, UINT16_MAX},
    {ChannelNames::blue, UINT16, 16, 0, UINT16_MAX},
    {ChannelNames::nearInfrared, UINT16, 16, 0, UINT16_MAX},
};

// A standard channel has its standard type if that holds the range of the values; every other channel has a
// type that holds a float plus the dimension's offset.
ChannelInfo describe(const BPFDimension& dimension)
{
    const char* const standard = ChannelNames::fromPDAL(dimension.label);
    ChannelInfo channel;
    channel.init(standard ? standard : dimension.label.c_str(),
                 standard || dimension.offset != 0 ? FLOAT64 : FLOAT32, 0, 0);
    const bool integral =
        std::trunc(dimension.min) == dimension.min && std::trunc(dimension.max) == dimension.max;
    if (integral)
        for (const StandardType& each : standardTypes)
            if (channel.isNamed(each.channel) && dimension.min >= each.min && dimension.max <= each.max) {
                channel.init(each.channel, each.type, each.bits, 0);
                break;
            }
    return channel;
}

} // namespace

PDALPointReader* PDALPointReader::create()
{
    return new PDALPointReader;
}

void PDALPointReader::init(const char* path)
{
    m_path = path;
    try {
        open();
    } catch (const Error& error) {
        QM_THROW(ErrorCode::BPFRead, "Failed to create PDALReader for path = '%s': %s", path, error.what());
    }
}

void PDALPointReader::open()
{
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(m_path.c_str(), "r");
    const OpenIO io(file.get());
    m_header.read(*io);
    setDescription();
}

void PDALPointReader::setDescription()
{
    PointInfo layout;
    Bounds bounds = Bounds::Huge();
    for (const BPFDimension& dimension : m_header.dimensions) {
        const ChannelInfo channel = describe(dimension);
        layout.append(channel);
        if (!(dimension.min <= dimension.max))
            continue;
        if (channel.isNamed(ChannelNames::x))
            bounds.x = {dimension.min, dimension.max};
        else if (channel.isNamed(ChannelNames::y))
            bounds.y = {dimension.min, dimension.max};
        else if (channel.isNamed(ChannelNames::z))
            bounds.z = {dimension.min, dimension.max};
    }
    if (!layout.hasValidXYZ())
        QM_THROW(ErrorCode::BPFRead, "must have x, y, and z channels");
    setPointInfo(layout);
    setNumPoints(m_header.numPoints);
    setBounds(bounds);

    // PDAL assumes longitudes and latitudes for an unknown kind of coordinates, which the bounds may
    // contradict.
    const Bounds degrees{{-360, 360}, {-90, 90}, Bounds::Huge().z};
    const std::string wkt = PDALBPFInput::readCoordinateSystem(m_path.c_str());
    if (!wkt.empty() && (m_header.isUTM || degrees.contains(bounds)))
        setWKT(wkt.c_str());
}

double PDALPointReader::getTotalWork(const Bounds&, double fraction) const
{
    return fraction > 0 ? static_cast<double>(getNumPoints()) : 0;
}

PointIterator* PDALPointReader::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                               ProgressDelegate* delegate) const
{
    return new PDALPointIterator(m_path.c_str(), m_header, getPointInfo(), bounds, fraction, layout,
                                 delegate);
}

} // namespace Quillmoran
