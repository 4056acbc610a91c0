// The layout of a point: its channels in order. Channel i of a PointInfo is channel i of the matching
// PointData.
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
    // Chosen channels of a layout, in the order given. Errors NoSuchChannel: "bad channel index",
    // "bad channel name '%s'" (channels before the bad one stay copied).
    void init(const PointInfo& source, const std::size_t* indices, std::size_t count);
    void init(const PointInfo& source, const char* const* names, std::size_t count);
    // The same, reading the descriptions of a buffer's channels.
    void init(const PointData& source);
    void init(const PointData& source, const std::size_t* indices, std::size_t count);
    void init(const PointData& source, const char* const* names, std::size_t count);

    void append(const ChannelInfo& channel) { m_channels.push_back(channel); }

    std::size_t getNumChannels() const noexcept { return m_channels.size(); }
    // An index out of range is NoSuchChannel "bad channel index"; an unknown name gives null.
    const ChannelInfo& getChannel(std::size_t index) const;
    ChannelInfo& getChannel(std::size_t index);
    const ChannelInfo* getChannel(const char* name) const noexcept;
    ChannelInfo* getChannel(const char* name) noexcept;
    bool hasChannel(const char* name) const noexcept { return getChannel(name) != nullptr; }
    // The first match, or -1.
    int getChannelIndex(const char* name) const noexcept;

    // Bytes of one point, all channels together.
    std::size_t getPointSize() const noexcept;
    // Points for a block of at most `most` points and some 1 MiB, at least 1. What is done with points never
    // depends on the blocks that they come in, and a point can have tens of thousands of channels.
    std::size_t getBlockPoints(std::size_t most) const noexcept;

    bool operator==(const PointInfo& other) const noexcept { return m_channels == other.m_channels; }

    // Whether "X", "Y" and "Z" are there, each FLOAT64. Whoever needs coordinates tests this.
    bool hasValidXYZ() const noexcept;

private:
    template <class Source>
    void copyByIndex(const Source& source, const std::size_t* indices, std::size_t count);
    template <class Source>
    void copyByName(const Source& source, const char* const* names, std::size_t count);

    std::vector<ChannelInfo> m_channels;
};

} // namespace Quillmoran
