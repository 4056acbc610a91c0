#include <vxunpack/MosaicFilter.h>

#include "filters/LayoutAdapter.h"
#include "filters/MergeRules.h"
#include "filters/PointCloudUnion.h"
#include "framework/MetadataKeys.h"
#include "index/MemoryRTree.h"
#include "model/NameIndex.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <cstring>
#include <utility>

namespace Quillmoran {

namespace {

constexpr ErrorCode misfitError = ErrorCode::ChannelType; // of MergeRules::findOrigin()

// The box of a source in the tree. An axis whose range is not known, as in a file without an index, is
// unbounded.
Bounds getSearchBox(const Bounds& bounds)
{
    Bounds box = bounds;
    for (const auto axis : {&Bounds::x, &Bounds::y, &Bounds::z})
        if (!((box.*axis).min <= (box.*axis).max))
            box.*axis = Bounds::Huge().*axis;
    return box;
}

void checkChannels(const PointInfo& known, const PointInfo& layout)
{
    const NameIndex names(known);
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        if (!names.find(layout.getChannel(i).getName()))
            QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
}

bool isSame(const Metadata& a, std::size_t i, const Metadata& b, std::size_t j)
{
    if (std::strcmp(a.getKey(i), b.getKey(j)) != 0 || a.getDataType(i) != b.getDataType(j) ||
        a.getValueLength(i) != b.getValueLength(j))
        return false;
    const std::size_t valueSize = a.getDataType(i) == METADATA_FLOAT64_ARRAY ? sizeof(double) : 1;
    const std::size_t bytes = a.getValueLength(i) * valueSize;
    return bytes == 0 || std::memcmp(a.getValue(i), b.getValue(j), bytes) == 0;
}

bool contains(const Metadata& records, const Metadata& other, std::size_t index)
{
    for (std::size_t i = 0; i < records.getNumRecords(); ++i)
        if (isSame(records, i, other, index))
            return true;
    return false;
}

// Removes from `shared` the records that `other` does not have with the same key and value.
void keepShared(Metadata& shared, const Metadata& other)
{
    for (std::size_t i = shared.getNumRecords(); i-- > 0;)
        if (!contains(other, shared, i))
            shared.remove(i);
}

} // namespace

struct MosaicFilter::Impl
{
    Impl(const PointInfo& layout, const RTree* boxes, PointSourceManager* sources,
         const std::optional<int>& gpsWeek, std::vector<double> numPoints)
        : tree(Scoped<const RTree>::retained(boxes)),
          manager(Scoped<PointSourceManager>::retained(sources)),
          target(layout, gpsWeek),
          sizes(std::move(numPoints))
    {}

    bool readsTiles(double fraction) const { return fraction > overviewThreshold; }

    const Scoped<const RTree> tree; // the sources' boxes
    const Scoped<PointSourceManager> manager;
    const MergeRules::Target target;
    const std::vector<double> sizes; // of the sources, in points; empty if they are not known
    const double overviewThreshold = manager->getOverviewFraction(); // fractions up to this read the overview
};

// Reads one source after the other, or the overview.
class MosaicFilter::Iterator final : public PointIterator
{
public:
    Iterator(std::shared_ptr<const Impl> sources, const Bounds& bounds, double fraction,
             const PointInfo& layout, ProgressDelegate* delegate)
        : m_sources(std::move(sources)), m_query(bounds), m_queryFraction(fraction), m_layout(layout)
    {
        init(bounds, fraction, layout, delegate);
        if (m_sources->readsTiles(fraction)) {
            m_walk.reset(m_sources->tree->createIterator());
            return;
        }
        m_queryFraction /= m_sources->overviewThreshold;
        if (PointSource* overview = m_sources->manager->createOverviewPointSource())
            read(overview);
    }

    // Continues at a relative position of all points instead of the first one. False if the source there cannot
    // be sampled.
    bool seek(double position)
    {
        const auto sizeOf = [this](std::int64_t source) {
            return m_sources->sizes.empty() ? 1 : m_sources->sizes[static_cast<std::size_t>(source)];
        };
        double before = 0; // points
        std::int64_t index = 0;
        const Scoped<RTree::Iterator> all(m_sources->tree->createIterator());
        while (all->next(getBounds(), index))
            before += sizeOf(index);
        before *= position;
        if (!m_walk)
            return false;
        double inside = 1; // relative position in the source
        index = -1;
        while (m_walk->next(getBounds(), index)) {
            if (before < sizeOf(index)) {
                inside = before / sizeOf(index);
                break;
            }
            before -= sizeOf(index);
        }
        if (index < 0)
            return true; // there are no points
        m_source.reset(m_sources->manager->createPointSource(static_cast<std::size_t>(index)));
        m_points.reset(createAdaptedSampleIterator(*m_source, m_sources->target, inside, m_layout));
        return m_points.get() != nullptr;
    }

    std::size_t getNextPoints(PointData& buffer) override
    {
        do {
            if (m_points)
                if (const std::size_t count = m_points->getNextPoints(buffer))
                    return count;
        } while (readNextSource());
        return 0;
    }

private:
    // Adopts the caller's count of the source.
    void read(PointSource* source)
    {
        m_source.reset(source);
        m_points.reset(createAdaptedIterator(*source, m_sources->target, m_query, m_queryFraction, m_layout,
                                             getDelegate()));
    }

    bool readNextSource()
    {
        // One source at a time: the last one releases its file and its buffers first.
        m_points.reset();
        m_source.reset();
        if (getDelegate() && getDelegate()->getCancelled())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
        // The sources widen the box, too: a point that rounds into the query is not lost.
        std::int64_t index = 0;
        if (!m_walk || !m_walk->next(getBounds(), index))
            return false;
        const auto source = static_cast<std::size_t>(index);
        try {
            read(m_sources->manager->createPointSource(source));
        } catch (Error& error) {
            if (error.code() == misfitError && !std::strstr(error.what(), " path = "))
                error(" path = %s", m_sources->manager->getSourceName(source).c_str());
            throw;
        }
        return true;
    }

    const std::shared_ptr<const Impl> m_sources;
    const Bounds m_query;
    double m_queryFraction; // of the sources, or of the overview
    const PointInfo m_layout;
    Scoped<RTree::Iterator> m_walk; // null for the overview
    Scoped<PointSource> m_source;   // being read
    Scoped<PointIterator> m_points; // of that source
};

MosaicFilter::MosaicFilter() : m_info(PointCloudInfo::create())
{}

const MosaicFilter::Impl& MosaicFilter::sources() const
{
    if (!m_impl)
        QM_THROW(ErrorCode::InvalidArgument, "the mosaic has no sources before init()");
    return *m_impl;
}

void MosaicFilter::init(PointSourceManager* manager, const std::optional<int>& gpsWeek)
{
    if (!manager)
        QM_THROW(ErrorCode::InvalidArgument, "manager not given");
    PointCloudUnion all(gpsWeek);
    std::vector<double> sizes;
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (std::size_t i = 0; i < manager->getNumSources(); ++i) {
        const Scoped<PointSource> source(manager->createPointSource(i));
        // A text file is read for its bounds, and only then knows its number of points.
        const Bounds box = getSearchBox(source->getBounds());
        const Scoped<PointCloudInfo> info(PointCloudInfo::create());
        info->init(*source);
        all.add(*info, manager->getSourceName(i));
        sizes.push_back(static_cast<double>(info->getNumPoints()));
        if (info->getNumPoints() != 0)
            tree->insert(box, static_cast<std::int64_t>(i));
    }
    init(&all.getInfo(), tree.get(), manager, gpsWeek, std::move(sizes));
    m_sharesMetadata = true;
    m_warnings = all.getWarnings();
    m_coordinateSystems = all.getCoordinateSystems();
}

void MosaicFilter::init(const PointCloudInfo* info, const RTree* tree, PointSourceManager* manager,
                        const std::optional<int>& gpsWeek)
{
    init(info, tree, manager, gpsWeek, {});
}

void MosaicFilter::init(const PointCloudInfo* info, const RTree* tree, PointSourceManager* manager,
                        const std::optional<int>& gpsWeek, std::vector<double> sizes)
{
    m_impl = std::make_shared<const Impl>(info->getPointInfo(), tree, manager, gpsWeek, std::move(sizes));
    m_info->init(*info);
    m_sharesMetadata = false;
    m_warnings.clear();
    m_coordinateSystems.clear();
}

void MosaicFilter::loadMetadata(Metadata& into, bool sanitize) const
{
    PointSourceManager& manager = *sources().manager;
    if (!m_sharesMetadata)
        return;
    Metadata shared;
    for (std::size_t i = 0; i < manager.getNumSources(); ++i) {
        const Scoped<PointSource> source(manager.createPointSource(i));
        Metadata own;
        source->loadMetadata(i == 0 ? shared : own, sanitize);
        if (i != 0)
            keepShared(shared, own);
    }
    if (manager.getNumSources() > 1) {
        MetadataKeys::removeCounts(shared);
        MetadataKeys::removePointIndexes(shared);
        shared.removeAll("PreCompressionPointCount");
    }
    into.add(shared);
}

double MosaicFilter::getTotalWork(const Bounds& bounds, double fraction) const
{
    const Impl& all = sources();
    if (!all.readsTiles(fraction)) {
        const Scoped<PointSource> overview(all.manager->createOverviewPointSource());
        return overview ? overview->getTotalWork(bounds, fraction / all.overviewThreshold) : 0;
    }
    double work = 0;
    const Scoped<RTree::Iterator> walk(all.tree->createIterator());
    for (std::int64_t index = 0; walk->next(bounds, index);) {
        const Scoped<PointSource> source(all.manager->createPointSource(static_cast<std::size_t>(index)));
        work += source->getTotalWork(bounds, fraction);
    }
    return work;
}

PointIterator* MosaicFilter::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                            ProgressDelegate* delegate) const
{
    sources();
    checkChannels(getPointInfo(), layout);
    return new Iterator(m_impl, bounds, fraction, layout, delegate);
}

PointIterator* MosaicFilter::createSampleIterator(double position, const PointInfo& layout) const
{
    sources();
    checkChannels(getPointInfo(), layout);
    Scoped<Iterator> iterator(new Iterator(m_impl, Bounds::Huge(), 1.0, layout, nullptr));
    return iterator->seek(position) ? iterator.detach() : nullptr;
}

} // namespace Quillmoran
