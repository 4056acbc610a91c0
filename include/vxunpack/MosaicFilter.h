// Presents the sources of a manager (a list of files, or the tiles of an index) as one point cloud. A query
// reads the sources whose boxes it intersects, one after the other; the others are not opened. Sources may
// have different channels: docs/merging.md describes how the mosaic merges them.
//
// A manager with an overview, a file that holds a fraction of all points, answers queries of up to that
// fraction from the overview.
#pragma once

#include <vxunpack/PointSource.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class RTree;

// A coordinate system and a file that has it.
struct NamedCoordinateSystem
{
    std::string wkt; // empty: the file has points and no coordinate system
    std::string file;
};

class QM_API MosaicFilter final : public PointFilter
{
public:
    static MosaicFilter* create() { return new MosaicFilter; }

    // Retains the manager and opens every source to read its description. `gpsWeek` is the GPS week (0 began
    // on 1980-01-06) from which week times count; if it is given, week times are converted to adjusted
    // standard time. Otherwise sources with different clocks are refused: InvalidArgument. If init() throws,
    // the mosaic is unchanged.
    void init(PointSourceManager* manager, const std::optional<int>& gpsWeek = std::nullopt);
    // For a tile-set index: the description and the boxes are given, and no source is opened. The values of
    // the tree are the manager's indices; the tree is retained. `gpsWeek` is the week with which the
    // description was made.
    void init(const PointCloudInfo* info, const RTree* tree, PointSourceManager* manager,
              const std::optional<int>& gpsWeek = std::nullopt);
    void setClassIdNames(const char* const* names, std::size_t count)
    {
        m_info->setClassIdNames(names, count);
    }

    const char* getFileFormatString() const { return "Mosaic 1.0"; }
    // Differences between the sources; empty for a tile-set index.
    const std::vector<std::string>& getWarnings() const noexcept { return m_warnings; }
    // Each distinct WKT once, in order of first appearance, with the first file that has it. Distinct texts
    // may describe the same system. Empty for a tile-set index.
    const std::vector<NamedCoordinateSystem>& getCoordinateSystems() const noexcept
    {
        return m_coordinateSystems;
    }

    // The description is empty before init().
    const PointInfo& getPointInfo() const override { return m_info->getPointInfo(); }
    std::int64_t getNumPoints() const override { return m_info->getNumPoints(); }
    const char* getWKT() const override { return m_info->getWKT(); }
    const Bounds& getBounds() const override { return m_info->getBounds(); }
    const double* getScale() const override { return m_info->getScale(); }
    const double* getOffset() const override { return m_info->getOffset(); }
    std::size_t getNumClassIdNames() const override { return m_info->getNumClassIdNames(); }
    const char* const* getClassIdNames() const override { return m_info->getClassIdNames(); }
    // The records that all sources share, without point counts and boxes; opens every source. None for a
    // tile-set index.
    void loadMetadata(Metadata& into, bool sanitize) const override;
    // Opens the sources whose boxes intersect the query, one at a time. Throws InvalidArgument before init().
    double getTotalWork(const Bounds& bounds, double fraction) const override;
    // Throws NoSuchChannel "requesting channel not in the source" for a channel that no source has, and
    // InvalidArgument before init(). May be called from any thread if the functions of the manager may be.
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override;
    // Null if the source at the position cannot be sampled.
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override;

private:
    class QM_HIDDEN Iterator;
    struct QM_HIDDEN Impl;

    MosaicFilter();

    const Impl& sources() const;
    QM_HIDDEN void init(const PointCloudInfo* info, const RTree* tree, PointSourceManager* manager,
                        const std::optional<int>& gpsWeek, std::vector<double> sizes);

    Scoped<PointCloudInfo> m_info;
    bool m_sharesMetadata = false;
    std::vector<std::string> m_warnings;
    std::vector<NamedCoordinateSystem> m_coordinateSystems;
    std::shared_ptr<const Impl> m_impl; // null before init(), shared with iterators
};

} // namespace Quillmoran
