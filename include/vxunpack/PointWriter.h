// Writers of points. A writer reads the points of a query from its source and writes them to its output.
// SimplePointWriter has the loop over blocks that the writers of exchange formats share; NULLPointWriter
// reads all points and writes nothing. Used by one thread at a time.
#pragma once

#include <vxunpack/Metadata.h>
#include <vxunpack/PointSource.h>

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

class QM_API PointWriter : public Object
{
public:
    // Sets the scale and offset of the coordinates in the output, three values each; null for the default.
    virtual void setQuantization(const double* scale, const double* offset) = 0;
    virtual const double* getScale() const = 0;
    virtual const double* getOffset() const = 0;
    // Writes the points of the query and returns their number. The delegate may be null. A failed call
    // removes its partial output and keeps the file that it would have replaced. Throws InvalidArgument
    // before init(), Cancelled, and the errors of the source and the format.
    virtual std::int64_t write(const Bounds& bounds, double fraction, const PointInfo& layout,
                               ProgressDelegate* delegate) = 0;
    // Sets `supported` to the channels of `wanted` that the format supports; returns false if dropping
    // channels needs no warning.
    virtual bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const = 0;

    // Retains the source and copies its metadata and quantization; those of an earlier source are replaced.
    // Throws InvalidArgument for null.
    void init(PointSource* source);
    // Never null; throws InvalidArgument before init().
    PointSource* getSrc() const;

    // Removes the records that do not apply to the points of this query.
    void groomMetadata(const Bounds& bounds, double fraction);
    void setMetadata(const Metadata& metadata) { m_metadata = metadata; }
    const Metadata& getMetadata() const { return m_metadata; }

    // The maximum number of points per block.
    void setChunckSize(std::size_t points) { m_chunckSize = points; }
    std::size_t getChunckSize() const { return m_chunckSize; }

protected:
    PointWriter() = default;

    // The metadata without the records that do not apply to the points of this query.
    Metadata getGroomedMetadata(const Bounds& bounds, double fraction) const;
    // The number of points per block: the chunk size, or less if there are fewer points or the points are
    // large.
    std::size_t getBlockSize(const PointInfo& layout) const;
    // The channels of a layout that the format supports; warns of the others.
    PointInfo getSupported(const PointInfo& layout, ProgressDelegate* delegate) const;

private:
    Scoped<PointSource> m_source;
    Metadata m_metadata;
    std::size_t m_chunckSize = 4096;
};

// Calls writeBegin(), writePoints() for each block and writeEnd(). After an error in one of them, calls
// writeAborted().
class QM_API SimplePointWriter : public PointWriter
{
public:
    // The default scale is the quantization of the source's coordinates, 0.001 if there is none. The default
    // offset is the lower corner of the source's bounds, 0 if that is infinite.
    void setQuantization(const double* scale, const double* offset) override;
    const double* getScale() const override { return m_scale; }
    const double* getOffset() const override { return m_offset; }
    std::int64_t write(const Bounds& bounds, double fraction, const PointInfo& layout,
                       ProgressDelegate* delegate) override;

protected:
    SimplePointWriter() = default;

    // For formats with integer coordinates: throws InvalidArgument unless scales are normal numbers above 0
    // whose multiples are finite, and offsets are finite.
    void checkQuantization() const;

    virtual void writeBegin(const PointInfo& layout) = 0;
    virtual void writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate) = 0;
    virtual void writeEnd(std::int64_t count, const Bounds& bounds) = 0;
    // The work of the writer itself, in points.
    virtual double getTotalWork(const Bounds& bounds, double fraction) const;
    // Removes the incomplete output.
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
