// Writers pull every point of a source through an iterator. SimplePointWriter holds the loop that the file
// writers share; NULLPointWriter runs the same pull and writes nothing.
#pragma once

#include <vxunpack/Metadata.h>
#include <vxunpack/PointSource.h>

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

class QM_API PointWriter : public Object
{
public:
    // Sets the step and origin that the output format stores coordinates with; null takes a default.
    virtual void setQuantization(const double* scale, const double* offset) = 0;
    virtual const double* getScale() const = 0;
    virtual const double* getOffset() const = 0;
    // Writes the query's points and returns how many. An output is complete or gone: when this throws,
    // nothing that was begun is left behind.
    virtual std::int64_t write(const Bounds& bounds, double fraction, const PointInfo& layout,
                               ProgressDelegate* delegate) = 0;
    // Puts into `supported` what the format can hold of `wanted`; false when dropped channels are of no
    // concern.
    virtual bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const = 0;

    // Retains the source, takes its metadata and its quantization.
    void init(PointSource* source);
    PointSource* getSrc() const { return m_source.get(); }

    // Drops the records that would not describe what a query of this box and fraction gives.
    void groomMetadata(const Bounds& bounds, double fraction);
    void setMetadata(const Metadata& metadata) { m_metadata = metadata; }
    const Metadata& getMetadata() const { return m_metadata; }

    // Points per block, at most.
    void setChunckSize(std::size_t points) { m_chunckSize = points; }
    std::size_t getChunckSize() const { return m_chunckSize; }

protected:
    PointWriter() = default;

    // The chunk size, or the number of points when that is smaller, or what a block of this layout may hold.
    std::size_t getBlockSize(const PointInfo& layout) const;
    // What the format can hold of a layout; warns of the channels that are dropped.
    PointInfo getSupported(const PointInfo& layout, ProgressDelegate* delegate) const;

private:
    Scoped<PointSource> m_source;
    Metadata m_metadata;
    std::size_t m_chunckSize = 4096;
};

class QM_API SimplePointWriter : public PointWriter
{
public:
    // Without a scale: the source's quantization where it has one, else 0.001. Without an offset: the lower
    // corner of the source's bounds, 0 where they are infinite.
    void setQuantization(const double* scale, const double* offset) override;
    const double* getScale() const override { return m_scale; }
    const double* getOffset() const override { return m_offset; }
    std::int64_t write(const Bounds& bounds, double fraction, const PointInfo& layout,
                       ProgressDelegate* delegate) override;

protected:
    SimplePointWriter() = default;

    // For formats that store integers: InvalidArgument when a scale is not a finite number above 0, or so large or
    // small that its multiples are not numbers, or an offset is not finite.
    void checkQuantization() const;

    virtual void writeBegin(const PointInfo& layout) = 0;
    virtual void writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate) = 0;
    virtual void writeEnd(std::int64_t count, const Bounds& bounds) = 0;
    // The writer's own share of the work, in points.
    virtual double getTotalWork(const Bounds& bounds, double fraction) const;
    // Called when writing fails once writeBegin() was entered: removes what was written so far.
    virtual void writeAborted() noexcept = 0;

private:
    std::int64_t writeBlocks(PointIterator& iterator, PointData& block, Bounds& written,
                             ProgressDelegate* delegate);

    double m_scale[3] = {0, 0, 0};
    double m_offset[3] = {0, 0, 0};
};

class QM_API NULLPointWriter final : public PointWriter
{
public:
    static NULLPointWriter* create();

    void setQuantization(const double* scale, const double* offset) override;
    const double* getScale() const override { return m_info->getScale(); }
    const double* getOffset() const override { return m_info->getOffset(); }
    std::int64_t write(const Bounds& bounds, double fraction, const PointInfo& layout,
                       ProgressDelegate* delegate) override;
    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override;

private:
    NULLPointWriter();

    Scoped<PointCloudInfo> m_info;
};

} // namespace Quillmoran
