// Sources of points and the iterators that deliver them block by block.
//
// A source describes a point cloud and makes iterators for a query: a box, a sampling fraction (1 keeps all
// points, a value in (0, 1) an evenly spaced share) and the wanted channels. PointReader is a source with a
// file behind it, PointFilter one that wraps another, PointSourceManager a numbered collection of them.
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

    virtual const PointInfo& getPointInfo() const = 0;
    // unknownNumPoints when it takes a pass over the points to know.
    virtual std::int64_t getNumPoints() const = 0;
    // Coordinate-system text, or null.
    virtual const char* getWKT() const = 0;
    // Appends the source's records.
    virtual void loadMetadata(Metadata& into, bool sanitize) const = 0;
    virtual const Bounds& getBounds() const = 0;
    // Three doubles each, or null when the source has no common quantization.
    virtual const double* getScale() const = 0;
    virtual const double* getOffset() const = 0;
    virtual std::size_t getNumClassIdNames() const = 0;
    virtual const char* const* getClassIdNames() const = 0;
    // An estimate, in points, of what reading that box at that fraction costs.
    virtual double getTotalWork(const Bounds& bounds, double fraction) const = 0;
    // A new iterator with a count of 1. The delegate may be null and must outlive the iterator.
    virtual PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                          ProgressDelegate* delegate) const = 0;

    std::size_t getNumChannels() const { return getPointInfo().getNumChannels(); }
    bool hasChannel(const char* name) const { return getPointInfo().hasChannel(name); }
    const ChannelInfo& getChannel(std::size_t index) const { return getPointInfo().getChannel(index); }
    const ChannelInfo* getChannel(const char* name) const { return getPointInfo().getChannel(name); }

    // About how many points a query gives, of a source that does not know how many it has, how much work they
    // are.
    double estimatePoints(const Bounds& bounds, double fraction) const;

    // Fills the caller's buffer, whose layout is the query's, with an even sample of all points in the box.
    // Returns how many points were seen (the buffer holds at most its own size). A cancelled delegate is
    // Cancelled "operation cancelled.".
    std::size_t read(const Bounds& bounds, PointData& buffer, ProgressDelegate* delegate) const;
};

class QM_API PointReader : public PointSource
{
public:
    // The name of the file type, for people.
    virtual const char* getFileFormatString() const = 0;

    const PointInfo& getPointInfo() const override { return m_info->getPointInfo(); }
    std::int64_t getNumPoints() const override { return m_info->getNumPoints(); }
    const char* getWKT() const override { return m_info->getWKT(); }
    const Bounds& getBounds() const override { return m_info->getBounds(); }
    const double* getScale() const override { return m_info->getScale(); }
    const double* getOffset() const override { return m_info->getOffset(); }
    std::size_t getNumClassIdNames() const override { return m_info->getNumClassIdNames(); }
    const char* const* getClassIdNames() const override { return m_info->getClassIdNames(); }

    // Replaces the coordinate-system text, also one read from the file.
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

// Forwards everything to the wrapped source unless a filter overrides it.
class QM_API PointFilter : public PointSource
{
public:
    void init(PointSource* source) { m_source = Scoped<PointSource>::retained(source); }
    PointSource* getSrc() const { return m_source.get(); }

    const PointInfo& getPointInfo() const override { return m_source->getPointInfo(); }
    std::int64_t getNumPoints() const override { return m_source->getNumPoints(); }
    const char* getWKT() const override { return m_source->getWKT(); }
    void loadMetadata(Metadata& into, bool sanitize) const override
    {
        m_source->loadMetadata(into, sanitize);
    }
    const Bounds& getBounds() const override { return m_source->getBounds(); }
    const double* getScale() const override { return m_source->getScale(); }
    const double* getOffset() const override { return m_source->getOffset(); }
    std::size_t getNumClassIdNames() const override { return m_source->getNumClassIdNames(); }
    const char* const* getClassIdNames() const override { return m_source->getClassIdNames(); }
    double getTotalWork(const Bounds& bounds, double fraction) const override
    {
        return m_source->getTotalWork(bounds, fraction);
    }
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override
    {
        return m_source->createIterator(bounds, fraction, layout, delegate);
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
    // A new count of source `index`.
    virtual PointSource* createPointSource(std::size_t index) = 0;
    // The name that messages give source `index`: its file, by default "source 0", "source 1" ...
    virtual std::string getSourceName(std::size_t index) const { return "source " + std::to_string(index); }
    // The sampling fraction that the overview holds; 0 and null without an overview.
    virtual double getOverviewFraction() const { return 0; }
    virtual PointSource* createOverviewPointSource() { return nullptr; }

protected:
    PointSourceManager() = default;
    void setNumSources(std::size_t count) noexcept { m_numSources = count; }

private:
    std::size_t m_numSources = 0;
};

} // namespace Quillmoran
