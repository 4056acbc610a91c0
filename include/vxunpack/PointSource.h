// Sources of points. A source describes a point cloud and creates iterators for a query: a box, a sampling
// fraction (1 selects all points, a value in (0, 1) an even sample) and the channels.
//
// PointReader is a source that reads a file, PointFilter wraps another source, PointSourceManager is a list
// of sources. A custom source overrides getPointInfo() and createIterator(), and what it knows of the rest.
//
// Const functions of one source may be called by one thread at a time, unless its class says more; its
// iterators are independent of each other.
#pragma once

#include <vxunpack/Bounds.h>
#include <vxunpack/Metadata.h>
#include <vxunpack/Object.h>
#include <vxunpack/PointCloudInfo.h>
#include <vxunpack/PointData.h>
#include <vxunpack/PointInfo.h>
#include <vxunpack/PointIterator.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace Quillmoran {

class ProgressDelegate;

class QM_API PointSource : public Object
{
public:
    static constexpr std::int64_t unknownNumPoints = std::numeric_limits<std::int64_t>::max();

    // References and pointers belong to the source and are valid until it changes.
    virtual const PointInfo& getPointInfo() const = 0;
    // unknownNumPoints, the default, if counting the points would mean reading them.
    virtual std::int64_t getNumPoints() const { return unknownNumPoints; }
    // The coordinate system as WKT; null, the default, if it is unknown.
    virtual const char* getWKT() const { return nullptr; }
    // Appends the records of the source; none by default. With `sanitize` without those of the
    // coordinate system.
    virtual void loadMetadata(Metadata&, bool /*sanitize*/) const {}
    // Bounds::Huge(), the default, if they are unknown. May read the file and throw what reading throws.
    virtual const Bounds& getBounds() const { return Bounds::Huge(); }
    // Three values each; null, the default, if the coordinates have no common quantization.
    virtual const double* getScale() const { return nullptr; }
    virtual const double* getOffset() const { return nullptr; }
    // The names of classes 0, 1 and so on, null for a class without a name; none by default.
    virtual std::size_t getNumClassIdNames() const { return 0; }
    virtual const char* const* getClassIdNames() const { return nullptr; }
    // The estimated cost of a query in points. By default the number of points in the box times the fraction,
    // or 0 if the number of points is unknown.
    virtual double getTotalWork(const Bounds& bounds, double fraction) const;
    // A new iterator with a count of 1, owned by the caller. The delegate may be null and must outlive the
    // iterator. Throws InvalidArgument "must have x, y, and z channels" or NoSuchChannel for a layout that
    // the source does not have.
    virtual PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                          ProgressDelegate* delegate) const = 0;
    // A new iterator with a count of 1 over the points from a relative position on, 0 (exactly the first point)
    // to 1 (the end, about), in the order of createIterator() for all points. It does not read the points
    // before them. Null, the default, if the source can only be read from its start; filters must override it
    // to be sampled. A source that can be sampled allows one thread to call getWKT() while another one calls
    // its other functions. Throws the errors of createIterator().
    virtual PointIterator* createSampleIterator(double position, const PointInfo& layout) const;

    // As PointInfo.
    std::size_t getNumChannels() const { return getPointInfo().getNumChannels(); }
    bool hasChannel(const char* name) const { return getPointInfo().hasChannel(name); }
    const ChannelInfo& getChannel(std::size_t index) const { return getPointInfo().getChannel(index); }
    const ChannelInfo* getChannel(const char* name) const { return getPointInfo().getChannel(name); }

    // The estimated number of points of a query; if the number of points of the source is unknown, its work.
    double estimatePoints(const Bounds& bounds, double fraction) const;

    // Fills the buffer, whose layout is that of the query, with an even sample of the points in the box.
    // Returns the number of points that were read, which may be larger than the buffer. Throws Cancelled
    // "operation cancelled." and the errors of createIterator() and the iterator.
    std::size_t read(const Bounds& bounds, PointData& buffer, ProgressDelegate* delegate) const;
};

class QM_API PointReader : public PointSource
{
public:
    // The name of the file type, human-readable.
    virtual const char* getFileFormatString() const = 0;

    const PointInfo& getPointInfo() const override { return m_info->getPointInfo(); }
    std::int64_t getNumPoints() const override { return m_info->getNumPoints(); }
    const char* getWKT() const override { return m_info->getWKT(); }
    const Bounds& getBounds() const override { return m_info->getBounds(); }
    const double* getScale() const override { return m_info->getScale(); }
    const double* getOffset() const override { return m_info->getOffset(); }
    std::size_t getNumClassIdNames() const override { return m_info->getNumClassIdNames(); }
    const char* const* getClassIdNames() const override { return m_info->getClassIdNames(); }

    // Replaces the coordinate system, also one that was read from the file.
    void overrideWKT(const char* wkt) { setWKT(wkt); }

protected:
    PointReader();

    void setPointInfo(const PointInfo& info) { m_info->setPointInfo(info); }
    void setNumPoints(std::int64_t count) { m_info->setNumPoints(count); }
    void setWKT(const char* wkt) { m_info->setWKT(wkt); }
    void setBounds(const Bounds& bounds) { m_info->setBounds(bounds); }
    void setQuantization(const double* scale, const double* offset)
    {
        m_info->setQuantization(scale, offset);
    }
    void setClassIdNames(const char* const* names, std::size_t count)
    {
        m_info->setClassIdNames(names, count);
    }

private:
    Scoped<PointCloudInfo> m_info;
};

// Passes all calls to the wrapped source unless a filter overrides them. Every call before init() is
// InvalidArgument.
class QM_API PointFilter : public PointSource
{
public:
    // Retains the source. Throws InvalidArgument for null.
    void init(PointSource* source);
    // Never null; throws InvalidArgument before init().
    PointSource* getSrc() const;

    const PointInfo& getPointInfo() const override { return getSrc()->getPointInfo(); }
    std::int64_t getNumPoints() const override { return getSrc()->getNumPoints(); }
    const char* getWKT() const override { return getSrc()->getWKT(); }
    void loadMetadata(Metadata& into, bool sanitize) const override
    {
        getSrc()->loadMetadata(into, sanitize);
    }
    const Bounds& getBounds() const override { return getSrc()->getBounds(); }
    const double* getScale() const override { return getSrc()->getScale(); }
    const double* getOffset() const override { return getSrc()->getOffset(); }
    std::size_t getNumClassIdNames() const override { return getSrc()->getNumClassIdNames(); }
    const char* const* getClassIdNames() const override { return getSrc()->getClassIdNames(); }
    double getTotalWork(const Bounds& bounds, double fraction) const override
    {
        return getSrc()->getTotalWork(bounds, fraction);
    }
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override
    {
        return getSrc()->createIterator(bounds, fraction, layout, delegate);
    }

protected:
    PointFilter() = default;

private:
    Scoped<PointSource> m_source;
};

class QM_API PointSourceManager : public Object
{
public:
    std::size_t getNumSources() const noexcept { return m_numSources; }
    // Source `index` with a count for the caller. Throws what opening its file throws.
    virtual PointSource* createPointSource(std::size_t index) = 0;
    // The name of source `index` in messages: its file, by default "source 0", "source 1" and so on.
    virtual std::string getSourceName(std::size_t index) const { return "source " + std::to_string(index); }
    // The overview is a source with a sample of all points: the fraction of the points that it has, and the
    // source with a count for the caller. 0 and null, the defaults, if there is none.
    virtual double getOverviewFraction() const { return 0; }
    virtual PointSource* createOverviewPointSource() { return nullptr; }

protected:
    PointSourceManager() = default;
    void setNumSources(std::size_t count) noexcept { m_numSources = count; }

private:
    std::size_t m_numSources = 0;
};

} // namespace Quillmoran
