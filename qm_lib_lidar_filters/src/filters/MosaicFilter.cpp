#include <vxunpack/MosaicFilter.h>

#include "filters/LayoutAdapter.h"
#include "filters/MergeRules.h"
#include "filters/SharedMetadata.h"
#include "index/MemoryRTree.h"
#include "model/NameIndex.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <cstring>

namespace Quillmoran {

namespace {

constexpr ErrorCode misfitError = ErrorCode::ChannelType; // of MergeRules::findOrigin()

// The box by which a source is found. A side that is not known, as in a file without an index, is open.
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

// Reads one source after the other; for the overview there is only the first.
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
        // One source at a time: what is read to its end gives its file and its buffers back first.
        m_points.reset();
        m_source.reset();
        if (getDelegate() && getDelegate()->getCancelled())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
        // The widened box, as the sources use it: a point that rounds into the query is not lost.
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

MosaicFilter::MosaicFilter()
    : m_info(PointCloudInfo::create()),
      m_tree(MemoryRTree::create()),
      m_target(std::make_shared<const MergeRules::Target>(PointInfo()))
{}

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
        // A text file is read for its bounds, and knows its number of points only then.
        const Bounds box = getSearchBox(source->getBounds());
        const Scoped<PointCloudInfo> info(PointCloudInfo::create());
        info->init(*source);
        all.add(*info, manager->getSourceName(i));
        if (info->getNumPoints() != 0)
            tree->insert(box, static_cast<std::int64_t>(i));
    }
    init(&all.getInfo(), tree.get(), manager, gpsWeek);
    m_sharesMetadata = true;
    m_warnings = all.getWarnings();
    m_coordinateSystems = all.getCoordinateSystems();
}

void MosaicFilter::init(const PointCloudInfo* info, const RTree* tree, PointSourceManager* manager,
                        const std::optional<int>& gpsWeek)
{
    const double overviewThreshold = manager->getOverviewFraction();
    m_target = std::make_shared<const MergeRules::Target>(info->getPointInfo(), gpsWeek);
    m_info->init(*info);
    m_tree = Scoped<const RTree>::retained(tree);
    m_manager = Scoped<PointSourceManager>::retained(manager);
    m_overviewThreshold = overviewThreshold;
    m_sharesMetadata = false;
    m_warnings.clear();
    m_coordinateSystems.clear();
}

void MosaicFilter::loadMetadata(Metadata& into, bool sanitize) const
{
    if (!m_sharesMetadata)
        return;
    Metadata shared;
    for (std::size_t i = 0; i < m_manager->getNumSources(); ++i) {
        const Scoped<PointSource> source(m_manager->createPointSource(i));
        Metadata own;
        source->loadMetadata(i == 0 ? shared : own, sanitize);
        if (i != 0)
            keepShared(shared, own);
    }
    if (m_manager->getNumSources() > 1)
        removeCounts(shared);
    into.add(shared);
}

double MosaicFilter::getTotalWork(const Bounds& bounds, double fraction) const
{
    if (!readsTiles(fraction)) {
        const Scoped<PointSource> overview(m_manager->createOverviewPointSource());
        return overview ? overview->getTotalWork(bounds, fraction / m_overviewThreshold) : 0;
    }
    double work = 0;
    const Scoped<RTree::Iterator> walk(m_tree->createIterator());
    for (std::int64_t index = 0; walk->next(bounds, index);) {
        const Scoped<PointSource> source(m_manager->createPointSource(static_cast<std::size_t>(index)));
        work += source->getTotalWork(bounds, fraction);
    }
    return work;
}

PointIterator* MosaicFilter::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                            ProgressDelegate* delegate) const
{
    checkChannels(getPointInfo(), layout);
    if (readsTiles(fraction)) {
        Scoped<Iterator> iterator(new Iterator(m_target, bounds, fraction, layout, delegate));
        iterator->walk(*m_tree, m_manager.get());
        return iterator.detach();
    }
    Scoped<Iterator> iterator(
        new Iterator(m_target, bounds, fraction / m_overviewThreshold, layout, delegate));
    if (PointSource* overview = m_manager->createOverviewPointSource())
        iterator->read(overview);
    return iterator.detach();
}

} // namespace Quillmoran
