// The PDAL stage "readers.quillmoran": compressed point clouds (".vxl") as the input of any PDAL pipeline, in
// standard and in streaming mode. docs/pdal.md describes its options.
#include "model/ChannelNames.h"
#include "pdal/PDALDimensions.h"
#include "srs/ParseWKT.h"
#include <vxunpack/Base.h>
#include <vxunpack/Export.h>
#include <vxunpack/VX7PointReader.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <pdal/PluginHelper.hpp>
#include <pdal/PointView.hpp>
#include <pdal/Reader.hpp>
#include <pdal/Streamable.hpp>
#include <pdal/util/Bounds.hpp>
#include <pdal/util/ProgramArgs.hpp>
#include <tbb/global_control.h>

namespace Quillmoran {

namespace {

const pdal::StaticPluginInfo stageInfo{
    "readers.quillmoran", "Compressed LiDAR point clouds (VX7)", "", {"vxl"}};

constexpr std::size_t blockSize = 16384; // points

pdal::Dimension::Type toPDALType(DataType type)
{
    using pdal::Dimension::BaseType;
    const BaseType base = DataTypeUtils::isFloat(type) ? BaseType::Floating
                          : (type & 1) != 0            ? BaseType::Signed
                                                       : BaseType::Unsigned;
    return static_cast<pdal::Dimension::Type>(static_cast<std::size_t>(base) | DataTypeUtils::getSize(type));
}

} // namespace

class QuillmoranReader final : public pdal::Reader, public pdal::Streamable
{
public:
    std::string getName() const override { return stageInfo.name; }

private:
    // The dimension for a channel's samples.
    struct Target
    {
        pdal::Dimension::Id id;
        pdal::Dimension::Type type; // of the samples
        double factor;              // of the dimension's values, see PDALDimension
    };

    void addArgs(pdal::ProgramArgs& args) override;
    void initialize() override;
    pdal::QuickInfo inspect() override;
    void addDimensions(pdal::PointLayoutPtr layout) override;
    void ready(pdal::PointTableRef table) override;
    pdal::point_count_t read(pdal::PointViewPtr view, pdal::point_count_t count) override;
    bool processOne(pdal::PointRef& point) override;
    void done(pdal::PointTableRef table) override;

    void chooseChannels();
    Bounds getBox() const;
    void addMetadata();
    bool refill();
    void store(pdal::PointRef& point);
    // Calls body() and translates Error to PDAL's exception.
    template <class Body>
    auto translateErrors(Body body) const;

    // Options.
    pdal::Bounds m_bounds;
    pdal::Arg* m_boundsArg = nullptr;
    double m_fraction = 1;
    pdal::StringList m_channels;
    unsigned m_threads = 0;

    Scoped<VX7PointReader> m_reader;
    PointInfo m_layout; // the wanted channels
    std::vector<Target> m_targets;

    // The current query.
    std::optional<tbb::global_control> m_threadLimit;
    Scoped<PointIterator> m_iterator;
    PointData m_block;
    std::size_t m_cursor = 0;
    std::size_t m_fill = 0;
};

template <class Body>
auto QuillmoranReader::translateErrors(Body body) const
{
    try {
        return body();
    } catch (const Error& error) {
        throw pdal::pdal_error(getName() + ": " + error.what());
    }
}

void QuillmoranReader::addArgs(pdal::ProgramArgs& args)
{
    m_boundsArg = &args.add("bounds", "Box of the points to read, in the file's coordinates", m_bounds);
    args.add("fraction", "Fraction of the points to read, evenly spaced", m_fraction, 1.0);
    args.add("channels", "Channels to read besides X, Y and Z; all by default", m_channels);
    args.add("threads", "Number of threads; by default that of the machine", m_threads);
}

void QuillmoranReader::initialize()
{
    if (!(m_fraction > 0))
        throwError("'fraction' must be above 0.");
    translateErrors([this] {
        m_reader.reset(VX7PointReader::create());
        m_reader->init(m_filename.c_str());
        chooseChannels();
        addMetadata();
    });
    try {
        // PDAL interprets any text, also paths and URLs, so it gets WKT only.
        const char* text = m_reader->getWKT();
        const std::string wkt = text ? toWKT1(text) : "";
        if (!wkt.empty())
            setSpatialReference(pdal::SpatialReference(wkt));
        else if (text && *text != '\0')
            log()->get(pdal::LogLevel::Warning)
                << getName() << ": the coordinate system is not understood" << std::endl;
    } catch (const pdal::pdal_error& error) {
        log()->get(pdal::LogLevel::Warning) << getName() << ": " << error.what() << std::endl;
    }
}

// The option names channels or their dimensions.
void QuillmoranReader::chooseChannels()
{
    const PointInfo& all = m_reader->getPointInfo();
    const auto dimensions = PDALDimensions::ofLayout(all);
    pdal::StringList unknown = m_channels;
    PointInfo chosen;
    for (std::size_t i = 0; i < all.getNumChannels(); ++i) {
        const ChannelInfo& channel = all.getChannel(i);
        const auto isChannel = [&](const std::string& name) {
            return channel.isNamed(name.c_str()) || name == dimensions[i].name;
        };
        const auto end = std::remove_if(unknown.begin(), unknown.end(), isChannel);
        const bool named = end != unknown.end();
        unknown.erase(end, unknown.end());
        const bool coordinate = channel.isNamed(ChannelNames::x) || channel.isNamed(ChannelNames::y) ||
                                channel.isNamed(ChannelNames::z);
        if (m_channels.empty() || named || coordinate)
            chosen.append(channel);
    }
    if (!unknown.empty())
        throwError("could not find channel '" + unknown.front() + "'");
    m_layout = std::move(chosen);
}

void QuillmoranReader::addMetadata()
{
    m_metadata.add("format", m_reader->getFileFormatString());
    m_metadata.add("count", m_reader->getNumPoints());
    const double* const scale = m_reader->getScale();
    const double* const offset = m_reader->getOffset();
    const char* const names[] = {"x", "y", "z"};
    for (int axis = 0; scale && axis < 3; ++axis) {
        m_metadata.add(std::string("scale_") + names[axis], scale[axis]);
        m_metadata.add(std::string("offset_") + names[axis], offset[axis]);
    }
    Metadata records;
    m_reader->loadMetadata(records, false);
    for (std::size_t i = 0; i < records.getNumRecords(); ++i)
        if (records.getDataType(i) == METADATA_STRING && records.getValue(i))
            m_metadata.add(records.getKey(i), static_cast<const char*>(records.getValue(i)));
}

pdal::QuickInfo QuillmoranReader::inspect()
{
    initialize();
    const Bounds& bounds = m_reader->getBounds();
    pdal::QuickInfo info;
    info.m_bounds =
        pdal::BOX3D(bounds.x.min, bounds.y.min, bounds.z.min, bounds.x.max, bounds.y.max, bounds.z.max);
    info.m_pointCount = static_cast<pdal::point_count_t>(m_reader->getNumPoints());
    info.m_srs = getSpatialReference();
    for (const PDALDimension& dimension : PDALDimensions::ofLayout(m_layout))
        info.m_dimNames.push_back(dimension.name);
    info.m_valid = true;
    return info;
}

void QuillmoranReader::addDimensions(pdal::PointLayoutPtr layout)
{
    m_targets.clear();
    const auto dimensions = PDALDimensions::ofLayout(m_layout);
    for (std::size_t i = 0; i < dimensions.size(); ++i)
        m_targets.push_back({layout->registerOrAssignDim(dimensions[i].name, toPDALType(dimensions[i].type)),
                             toPDALType(m_layout.getChannel(i).getDataType()), dimensions[i].factor});
}

Bounds QuillmoranReader::getBox() const
{
    Bounds box = Bounds::Huge();
    if (!m_boundsArg->set())
        return box;
    const pdal::BOX2D flat = m_bounds.to2d();
    box.x = {flat.minx, flat.maxx};
    box.y = {flat.miny, flat.maxy};
    if (m_bounds.is3d())
        box.z = {m_bounds.to3d().minz, m_bounds.to3d().maxz};
    return box;
}

void QuillmoranReader::ready(pdal::PointTableRef)
{
    if (m_threads != 0)
        m_threadLimit.emplace(tbb::global_control::max_allowed_parallelism, m_threads);
    translateErrors([this] {
        m_iterator.reset(m_reader->createIterator(getBox(), m_fraction, m_layout, nullptr));
        m_block.init(m_layout, m_layout.getBlockPoints(blockSize));
    });
    m_cursor = m_fill = 0;
}

bool QuillmoranReader::refill()
{
    m_cursor = 0;
    m_fill = translateErrors([this] { return m_iterator->getNextPoints(m_block); });
    return m_fill != 0;
}

void QuillmoranReader::store(pdal::PointRef& point)
{
    for (std::size_t i = 0; i < m_targets.size(); ++i) {
        const Target& target = m_targets[i];
        const void* const sample = static_cast<const char*>(m_block.getChannel(i).getData()) +
                                   m_cursor * pdal::Dimension::size(target.type);
        if (target.factor == 1)
            point.setField(target.id, target.type, sample);
        else
            point.setField(target.id, *static_cast<const std::int16_t*>(sample) * target.factor);
    }
}

// PDAL stops calling this after the number of points in its option "count".
bool QuillmoranReader::processOne(pdal::PointRef& point)
{
    if (m_cursor == m_fill && !refill())
        return false;
    store(point);
    ++m_cursor;
    return true;
}

pdal::point_count_t QuillmoranReader::read(pdal::PointViewPtr view, pdal::point_count_t count)
{
    pdal::point_count_t done = 0;
    for (pdal::PointId next = view->size(); done < count; ++done, ++next) {
        pdal::PointRef point = view->point(next);
        if (!processOne(point))
            break;
        if (m_cb)
            m_cb(*view, next);
    }
    return done;
}

void QuillmoranReader::done(pdal::PointTableRef)
{
    m_iterator.reset();
    m_threadLimit.reset();
}

} // namespace Quillmoran

using Quillmoran::QuillmoranReader;
using Quillmoran::stageInfo;
// PDAL looks up the function that the macro defines; PDAL exports it on other systems only.
extern "C" QM_API void PF_initPlugin();
CREATE_SHARED_STAGE(QuillmoranReader, stageInfo)
