#include <vxunpack/MosaicFilter.h>

#include "filters/LayoutAdapter.h"
#include "filters/MergeRules.h"
#include "filters/PointCloudUnion.h"
#include "filters/SharedMetadata.h"
#include "index/MemoryRTree.h"
#include "model/NameIndex.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <cstring>

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

} // namespace

struct MosaicFilter::Impl
{
    bool readsTiles(double fraction) const
    {
        if (!manager)
            QM_THROW(ErrorCode::InvalidArgument, "the mosaic has no sources before init()");
        return fraction > overviewThreshold;
    }

    Scoped<PointCloudInfo> info{PointCloudInfo::create()};
    Scoped<const RTree> tree; // the sources' boxes
    Scoped<PointSourceManager> manager;
    double overviewThreshold = 0; // fractions up to this one are read from the overview
    bool sharesMetadata = false;
    std::shared_ptr<const MergeRules::Target> target; // shared with iterators
    std::vector<std::string> warnings;
    std::vector<NamedCoordinateSystem> coordinateSystems;
};

// Reads one source after the other, or the overview.
class MosaicFilter::Iterator final : public PointIterator
{
public:
    Iterator(std::shared_ptr<const MergeRules::Target> target, const Bounds& bounds, double fraction,
             const PointInfo& layout, ProgressDelegate* delegate)
        : m_target(std::move(target)), m_query(bounds), m_queryFraction(fraction), m_layout(layout)
    {
        init(bounds, fraction, layout, delegate);
    }

    void walk(const RTree& tree, PointSourceManager* manager)
    {
        m_walk.reset(tree.createIterator());
        m_manager = Scoped<PointSourceManager>::retained(manager);
    }

    // Adopts the caller's count of the source.
    void read(PointSource* source)
    {
        m_source.reset(source);
        m_points.reset(
            createAdaptedIterator(*source, *m_target, m_query, m_queryFraction, m_layout, getDelegate()));
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
            read(m_manager->createPointSource(source));
        } catch (Error& error) {
            if (error.code() == misfitError && !std::strstr(error.what(), " path = "))
                error(" path = %s", m_manager->getSourceName(source).c_str());
            throw;
        }
        return true;
    }

    const std::shared_ptr<const MergeRules::Target> m_target;
    const Bounds m_query;
    const double m_queryFraction;
    const PointInfo m_layout;
    Scoped<RTree::Iterator> m_walk; // null when there are no tiles to read
    Scoped<PointSourceManager> m_manager;
    Scoped<PointSource> m_source;   // being read
    Scoped<PointIterator> m_points; // of that source
};

MosaicFilter::MosaicFilter() : m_impl(std::make_unique<Impl>())
{}

MosaicFilter::~MosaicFilter() = default;

MosaicFilter* MosaicFilter::create()
{
    return new MosaicFilter;
}

void MosaicFilter::init(PointSourceManager* manager, const std::optional<int>& gpsWeek)
{
    PointCloudUnion all(gpsWeek);
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (std::size_t i = 0; i < manager->getNumSources(); ++i) {
        const Scoped<PointSource> source(manager->createPointSource(i));
        // A text file is read for its bounds, and only then knows its number of points.
        const Bounds box = getSearchBox(source->getBounds());
        const Scoped<PointCloudInfo> info(PointCloudInfo::create());
        info->init(*source);
        all.add(*info, manager->getSourceName(i));
        if (info->getNumPoints() != 0)
            tree->insert(box, static_cast<std::int64_t>(i));
    }
    init(&all.getInfo(), tree.get(), manager, gpsWeek);
    m_impl->sharesMetadata = true;
    m_impl->warnings = all.getWarnings();
    m_impl->coordinateSystems = all.getCoordinateSystems();
}

void MosaicFilter::init(const PointCloudInfo* info, const RTree* tree, PointSourceManager* manager,
                        const std::optional<int>& gpsWeek)
{
    auto impl = std::make_unique<Impl>();
    impl->overviewThreshold = manager->getOverviewFraction();
    impl->target = std::make_shared<const MergeRules::Target>(info->getPointInfo(), gpsWeek);
    impl->info->init(*info);
    impl->tree = Scoped<const RTree>::retained(tree);
    impl->manager = Scoped<PointSourceManager>::retained(manager);
    m_impl = std::move(impl);
}

void MosaicFilter::setClassIdNames(const char* const* names, std::size_t count)
{
    m_impl->info->setClassIdNames(names, count);
}

const std::vector<std::string>& MosaicFilter::getWarnings() const noexcept
{
    return m_impl->warnings;
}

const std::vector<NamedCoordinateSystem>& MosaicFilter::getCoordinateSystems() const noexcept
{
    return m_impl->coordinateSystems;
}

const PointInfo& MosaicFilter::getPointInfo() const
{
    return m_impl->info->getPointInfo();
}

std::int64_t MosaicFilter::getNumPoints() const
{
    return m_impl->info->getNumPoints();
}

const char* MosaicFilter::getWKT() const
{
    return m_impl->info->getWKT();
}

const Bounds& MosaicFilter::getBounds() const
{
    return m_impl->info->getBounds();
}

const double* MosaicFilter::getScale() const
{
    return m_impl->info->getScale();
}

const double* MosaicFilter::getOffset() const
{
    return m_impl->info->getOffset();
}

std::size_t MosaicFilter::getNumClassIdNames() const
{
    return m_impl->info->getNumClassIdNames();
}

const char* const* MosaicFilter::getClassIdNames() const
{
    return m_impl->info->getClassIdNames();
}

void MosaicFilter::loadMetadata(Metadata& into, bool sanitize) const
{
    if (!m_impl->sharesMetadata)
        return;
    PointSourceManager& manager = *m_impl->manager;
    Metadata shared;
    for (std::size_t i = 0; i < manager.getNumSources(); ++i) {
        const Scoped<PointSource> source(manager.createPointSource(i));
        Metadata own;
        source->loadMetadata(i == 0 ? shared : own, sanitize);
        if (i != 0)
            keepShared(shared, own);
    }
    if (manager.getNumSources() > 1)
        removeCounts(shared);
    into.add(shared);
}

double MosaicFilter::getTotalWork(const Bounds& bounds, double fraction) const
{
    if (!m_impl->readsTiles(fraction)) {
        const Scoped<PointSource> overview(m_impl->manager->createOverviewPointSource());
        return overview ? overview->getTotalWork(bounds, fraction / m_impl->overviewThreshold) : 0;
    }
    double work = 0;
    const Scoped<RTree::Iterator> walk(m_impl->tree->createIterator());
    for (std::int64_t index = 0; walk->next(bounds, index);) {
        const Scoped<PointSource> source(m_impl->manager->createPointSource(static_cast<std::size_t>(index)));
        work += source->getTotalWork(bounds, fraction);
    }
    return work;
}

PointIterator* MosaicFilter::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                            ProgressDelegate* delegate) const
{
    const bool readsTiles = m_impl->readsTiles(fraction);
    checkChannels(getPointInfo(), layout);
    const double sourceFraction = readsTiles ? fraction : fraction / m_impl->overviewThreshold;
    Scoped<Iterator> iterator(new Iterator(m_impl->target, bounds, sourceFraction, layout, delegate));
    if (readsTiles)
        iterator->walk(*m_impl->tree, m_impl->manager.get());
    else if (PointSource* overview = m_impl->manager->createOverviewPointSource())
        iterator->read(overview);
    return iterator.detach();
}

} // namespace Quillmoran
