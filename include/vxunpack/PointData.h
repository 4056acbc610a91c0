// Blocks of points, column by column: a PointData holds one ChannelData per channel of a PointInfo. Readers
// fill blocks, filters copy and merge them, writers read them. Used by one thread at a time; different
// channels of one block may be written from different threads.
#pragma once

#include <vxunpack/Export.h>
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <vector>

namespace Quillmoran {

// A typed array of samples in native byte order. The visible range is the samples from the offset to the end;
// all indices are relative to it.
class QM_API ChannelData : public ChannelInfo
{
public:
    ChannelData() = default;
    ~ChannelData() { freeData(); }
    ChannelData(const ChannelData&) = delete;
    ChannelData& operator=(const ChannelData&) = delete;

    void init(const ChannelInfo& info, std::size_t count);
    // New samples with unspecified contents; the old ones are lost, the offset returns to 0.
    void resize(std::size_t count);
    // Adopts an array of the present count and type; one that is owned is freed with XDEALLOC.
    void setData(void* data, bool owns);
    // Changes the type alone; the array is not touched.
    void setDataType(DataType type) noexcept { setType(type); }
    // Errors InvalidArgument "offset too large": the offset must be below the sample count.
    void setOffset(std::size_t offset);

    std::size_t getNumSamples() const noexcept { return m_numSamples - m_offset; }
    const void* getData() const noexcept;
    void* getData() noexcept;

    // Each checks both ranges first: InvalidArgument "%s too small" with "dst" or "src".
    // Bytes of one type to the same type, overlap-safe; else InvalidArgument "datatype are not the same".
    static void copy(ChannelData& dst, std::size_t dstIndex, const ChannelData& src, std::size_t srcIndex,
                     std::size_t count);
    // Within the integer family or within the float family; else InvalidArgument "isFloat(dst) != isFloat(src)".
    static void convert(ChannelData& dst, std::size_t dstIndex, const ChannelData& src, std::size_t srcIndex,
                        std::size_t count);
    // Between the families: quantizes or dequantizes; else InvalidArgument "isFloat(dst) == isFloat(src)".
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
    // Needs FLOAT64 channels X, Y and Z, else InvalidArgument "must have x, y, and z channels" and the block stays
    // empty.
    void init(const PointInfo& info, std::size_t count);
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
    // An index out of range is NoSuchChannel "bad channel index"; an unknown name gives null.
    const ChannelData& getChannel(std::size_t index) const;
    ChannelData& getChannel(std::size_t index);
    const ChannelData* getChannel(const char* name) const noexcept;
    ChannelData* getChannel(const char* name) noexcept;
    bool hasChannel(const char* name) const noexcept { return getChannel(name) != nullptr; }

    // Channels are paired by position; the counts must agree, else InvalidArgument "number of channels must the same".
    static void copy(PointData& dst, std::size_t dstIndex, const PointData& src, std::size_t srcIndex,
                     std::size_t count);

    // Keeps `dst` an evenly spread sample of all points offered so far: `seen` before this call, then the
    // first `count` of `src`. Deterministic. The same errors as copy().
    static void merge(PointData& dst, std::size_t seen, const PointData& src, std::size_t count);

private:
    void cacheCoordinates() noexcept;

    std::vector<ChannelData> m_channels;
    std::size_t m_numSamples = 0;
    std::size_t m_offset = 0;
    double* m_x = nullptr;
    double* m_y = nullptr;
    double* m_z = nullptr;
};

} // namespace Quillmoran
