// Shows the sources of a manager as one: a list of files, or the tiles of an index. A query visits the
// sources whose boxes it meets, one after the other in the order of an R-tree; the others are never opened,
// and only the one being read is held. Sources may differ in their channels: see PointCloudUnion.h for what
// the mosaic shows of them and MergeRules.h for how they are read.
//
// A manager with an overview, a file that holds a share of all points, answers from it the queries of that
// share or less.
#pragma once

#include "filters/PointCloudUnion.h"
#include "index/RTree.h"
#include <vxunpack/PointSource.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

namespace MergeRules {
class Target;
}

class QM_API MosaicFilter final : public PointFilter
{
public:
    static MosaicFilter* create();

    // Asks every source for its description. With a GPS week, week time is converted to adjusted standard
    // time; without one, sources with different clocks are InvalidArgument (see PointCloudUnion::add). A mosaic whose
    // init() throws is unchanged.
    void init(PointSourceManager* manager, const std::optional<int>& gpsWeek = std::nullopt);
    // The description and the boxes are known, and no source is opened: those of a tile-set index, whose
    // values are the manager's indices. The GPS week is the one with which the description was made.
    void init(const PointCloudInfo* info, const RTree* tree, PointSourceManager* manager,
              const std::optional<int>& gpsWeek = std::nullopt);
    void setClassIdNames(const char* const* names, std::size_t count)
    {
        m_info->setClassIdNames(names, count);
    }

    const char* getFileFormatString() const { return "Mosaic 1.0"; }
    // What the sources did not agree on; empty for a tile-set index. See PointCloudUnion.
    const std::vector<std::string>& getWarnings() const noexcept { return m_warnings; }
    const std::vector<NamedCoordinateSystem>& getCoordinateSystems() const noexcept
    {
        return m_coordinateSystems;
    }

    const PointInfo& getPointInfo() const override { return m_info->getPointInfo(); }
    std::int64_t getNumPoints() const override { return m_info->getNumPoints(); }
    const char* getWKT() const override { return m_info->getWKT(); }
    // The records that all sources share, apart from counts and boxes. None for a tile-set index, which does
    // not hold any: asking all its tiles would open them all.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    const Bounds& getBounds() const override { return m_info->getBounds(); }
    const double* getScale() const override { return m_info->getScale(); }
    const double* getOffset() const override { return m_info->getOffset(); }
    std::size_t getNumClassIdNames() const override { return m_info->getNumClassIdNames(); }
    const char* const* getClassIdNames() const override { return m_info->getClassIdNames(); }
    // Opens the sources whose boxes meet the query, one at a time.
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // A channel that no source has is NoSuchChannel "requesting channel not in the source".
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;

private:
    class Iterator;

    MosaicFilter();

    bool readsTiles(double fraction) const { return fraction > m_overviewThreshold; }

    Scoped<PointCloudInfo> m_info;
    Scoped<const RTree> m_tree; // the sources' boxes
    Scoped<PointSourceManager> m_manager;
    double m_overviewThreshold = 0; // fractions up to this one are read from the overview
    bool m_sharesMetadata = false;
    std::shared_ptr<const MergeRules::Target> m_target; // shared with iterators
    std::vector<std::string> m_warnings;
    std::vector<NamedCoordinateSystem> m_coordinateSystems;
};

} // namespace Quillmoran
