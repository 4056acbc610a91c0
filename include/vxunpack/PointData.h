// Blocks of points, stored by channel: a PointData has one ChannelData per channel of a PointInfo. Iterators
// fill blocks and writers read them. Used by one thread at a time, but threads may write to different
// channels of one block at the same time.
#pragma once

#include <vxunpack/Export.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <vector>

namespace Quillmoran {

// A typed array of samples in the byte order of the machine. Samples before the offset are hidden; indices
// count from the offset.
class QM_API ChannelData : public ChannelInfo
{
public:
    ChannelData() = default;
    ~ChannelData() { freeData(); }
    ChannelData(const ChannelData&) = delete;
    ChannelData& operator=(const ChannelData&) = delete;

    // Copies the description and allocates `count` samples. Throws OSError (ENOMEM).
    void init(const ChannelInfo& info, std::size_t count);
    // Copies the description and refers to `count` samples of the caller, which must outlive the channel.
    void wrap(const ChannelInfo& info, void* data, std::size_t count);
    // Replaces the samples by `count` samples with unspecified contents and sets the offset to 0.
    void resize(std::size_t count);
    // Replaces the array by one with the same count and type. With `owns`, the channel frees it with
    // XDEALLOC; otherwise the array must outlive the channel.
    void setData(void* data, bool owns);
    // Changes the type without converting the samples.
    void setDataType(DataType type) noexcept { setType(type); }
    // Hides the first `offset` of all samples. Throws InvalidArgument "offset too large" unless `offset` is
    // less than their number.
    void setOffset(std::size_t offset);

    std::size_t getNumSamples() const noexcept { return m_numSamples - m_offset; }
    // The first sample after the offset; owned by the channel.
    const void* getData() const noexcept;
    void* getData() noexcept;

    // These three functions check both ranges first, and throw InvalidArgument "%s too small" with "dst" or
    // "src".
    //
    // Copies samples between channels of the same type; the ranges may overlap. Throws InvalidArgument
    // "datatype are not the same".
    static void copy(ChannelData& dst, std::size_t dstIndex, const ChannelData& src, std::size_t srcIndex,
                     std::size_t count);
    // Converts between integer types or between floating-point types, as a C++ cast does; narrowing wraps.
    // Throws InvalidArgument "isFloat(dst) != isFloat(src)".
    static void convert(ChannelData& dst, std::size_t dstIndex, const ChannelData& src, std::size_t srcIndex,
                        std::size_t count);
    // Quantizes a floating-point to an integer channel, floor((value - offset) / scale + 0.5), or dequantizes
    // an integer to a floating-point channel, value * scale + offset. Values out of range wrap. Throws
    // InvalidArgument "isFloat(dst) == isFloat(src)".
    static void convert(ChannelData& dst, std::size_t dstIndex, const ChannelData& src, std::size_t srcIndex,
                        double offset, double scale, std::size_t count);

private:
    void freeData() noexcept;

    std::size_t m_numSamples = 0; // allocated
    std::size_t m_offset = 0;
    void* m_data = nullptr;
    bool m_ownsData = false;
};

class QM_API PointData
{
public:
    // Allocates `count` points with unspecified contents. Throws InvalidArgument "must have x, y, and z
    // channels" unless the layout has them as FLOAT64; the block is then empty.
    void init(const PointInfo& info, std::size_t count);
    // The same with the caller's arrays, one per channel, which must outlive the block.
    void wrap(const PointInfo& info, void* const* arrays, std::size_t count);
    // As ChannelData, for all channels.
    void resize(std::size_t count);
    void setOffset(std::size_t offset);

    std::size_t getNumSamples() const noexcept { return m_numSamples - m_offset; }
    const double* getX() const noexcept { return m_x + m_offset; }
    const double* getY() const noexcept { return m_y + m_offset; }
    const double* getZ() const noexcept { return m_z + m_offset; }
    double* getX() noexcept { return m_x + m_offset; }
    double* getY() noexcept { return m_y + m_offset; }
    double* getZ() noexcept { return m_z + m_offset; }

    std::size_t getNumChannels() const noexcept { return m_channels.size(); }
    // By index: throws NoSuchChannel "bad channel index" if out of range. By name: the first match, or null.
    const ChannelData& getChannel(std::size_t index) const;
    ChannelData& getChannel(std::size_t index);
    const ChannelData* getChannel(const char* name) const noexcept;
    ChannelData* getChannel(const char* name) noexcept;
    bool hasChannel(const char* name) const noexcept { return getChannel(name) != nullptr; }

    // Copies points between blocks whose channels have the same types in the same order. Throws
    // InvalidArgument "number of channels must the same" and the errors of ChannelData::copy().
    static void copy(PointData& dst, std::size_t dstIndex, const PointData& src, std::size_t srcIndex,
                     std::size_t count);

    // Updates `dst`, an even sample of the `seen` points merged so far, to an even sample of these points and
    // the first `count` points of `src`. Deterministic. Throws the same errors as copy().
    static void merge(PointData& dst, std::size_t seen, const PointData& src, std::size_t count);

private:
    void reset(const PointInfo& info);
    void cacheCoordinates() noexcept;

    std::vector<ChannelData> m_channels;
    std::size_t m_numSamples = 0;
    std::size_t m_offset = 0;
    double* m_x = nullptr;
    double* m_y = nullptr;
    double* m_z = nullptr;
};

} // namespace Quillmoran
