// The layout of a point: its channels in order. Channel i of a PointInfo describes channel i of a PointData
// with that layout. A value type without locks: const methods may be called concurrently.
#pragma once

#include <vxunpack/ChannelInfo.h>
#include <vxunpack/Export.h>

#include <cstddef>
#include <vector>

namespace Quillmoran {

class PointData;

class QM_API PointInfo
{
public:
    // `count` blank channels.
    void init(std::size_t count);
    void init(const PointInfo& source) { *this = source; }
    // The channels of a block of points.
    void init(const PointData& source);
    // Copies the given channels of a PointInfo or a PointData, in the given order. Throws NoSuchChannel "bad
    // channel index" or "bad channel name '%s'" at the first bad one; the channels before it have then been
    // copied, and the others are blank.
    template <class Source>
    void init(const Source& source, const std::size_t* indices, std::size_t count);
    template <class Source>
    void init(const Source& source, const char* const* names, std::size_t count);

    void append(const ChannelInfo& channel) { m_channels.push_back(channel); }

    std::size_t getNumChannels() const noexcept { return m_channels.size(); }
    // By index: throws NoSuchChannel "bad channel index" if out of range. By name: the first match, or null.
    // References and pointers are valid until the layout changes.
    const ChannelInfo& getChannel(std::size_t index) const;
    ChannelInfo& getChannel(std::size_t index);
    const ChannelInfo* getChannel(const char* name) const noexcept;
    ChannelInfo* getChannel(const char* name) noexcept;
    bool hasChannel(const char* name) const noexcept { return getChannel(name) != nullptr; }
    // The index of the first match, or -1.
    int getChannelIndex(const char* name) const noexcept;

    // Bytes of one point in all channels.
    std::size_t getPointSize() const noexcept;
    // A suitable number of points for a block: 1 MiB of samples, but at most `max` points and at least 1. A
    // point can have tens of thousands of channels. Results never depend on the size of blocks.
    std::size_t getBlockPoints(std::size_t max) const noexcept;

    bool operator==(const PointInfo& other) const noexcept { return m_channels == other.m_channels; }

    // Whether the channels "X", "Y" and "Z" exist and are FLOAT64, as queries and blocks require.
    bool hasValidXYZ() const noexcept;

private:
    std::vector<ChannelInfo> m_channels;
};

} // namespace Quillmoran
