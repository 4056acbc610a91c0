// A source of points in memory, for tests of code that reads from a source. Columns are given as doubles and
// stored in the type of their channel; queries honour the box, the fraction and the requested channels.
#pragma once

#include "model/ChannelNames.h"
#include <vxunpack/Base.h>
#include <vxunpack/PointSource.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Quillmoran::Testing {

class MemoryPointSource final : public PointReader
{
public:
    using Columns = std::vector<std::vector<double>>;

    // Column i holds the samples of channel i; all have the same length. The bounds are those of X, Y and Z.
    static Scoped<MemoryPointSource> make(const PointInfo& layout, const Columns& columns)
    {
        Scoped<MemoryPointSource> source(new MemoryPointSource(layout, columns.front().size()));
        for (std::size_t i = 0; i < columns.size(); ++i)
            visitDataType(layout.getChannel(i).getDataType(), [&](auto zero) {
                std::transform(columns[i].begin(), columns[i].end(),
                               static_cast<decltype(zero)*>(source->m_channels[i].getData()),
                               [](double value) { return static_cast<decltype(zero)>(value); });
            });
        Bounds bounds;
        Bounds::Range* const ranges[] = {&bounds.x, &bounds.y, &bounds.z};
        for (int axis = 0; axis < 3; ++axis) {
            const ChannelData* channel = source->find(axes[axis]);
            for (std::size_t i = 0; channel && channel->getDataType() == FLOAT64 && i < source->m_count; ++i)
                ranges[axis]->grow(static_cast<const double*>(channel->getData())[i]);
        }
        source->setBounds(bounds);
        return source;
    }

    // For tests that need values that are no doubles, a scale, an unknown count, metadata.
    ChannelData& column(const char* name) { return const_cast<ChannelData&>(*find(name)); }
    using PointReader::setBounds;
    using PointReader::setClassIdNames;
    using PointReader::setNumPoints;
    using PointReader::setQuantization;
    using PointReader::setWKT;
    Metadata& metadata() { return m_metadata; }
    // Lets the source be sampled.
    void setSampled(bool isSampled) { m_isSampled = isSampled; }
    // How often all points were asked for.
    int numQueries() const { return m_numQueries; }
    // Iterators throw 40000 "test" instead of delivering the point with this index.
    void failAt(std::size_t point) { m_failingPoint = point; }

    const char* getFileFormatString() const override { return "Memory"; }
    void loadMetadata(Metadata& into, bool) const override { into.add(m_metadata); }
    // Proportional to the fraction, and the same in any box.
    double getTotalWork(const Bounds&, double fraction) const override
    {
        return static_cast<double>(m_count) * std::clamp(fraction, 0.0, 1.0);
    }
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override
    {
        ++m_numQueries;
        return new Iterator(*this, bounds, fraction, layout, delegate);
    }
    PointIterator* createSampleIterator(double position, const PointInfo& layout) const override
    {
        if (!m_isSampled)
            return nullptr;
        auto* const iterator = new Iterator(*this, Bounds::Huge(), 1, layout, nullptr);
        iterator->skip(static_cast<std::size_t>(position * static_cast<double>(m_count)));
        return iterator;
    }

private:
    class Iterator final : public PointIterator
    {
    public:
        Iterator(const MemoryPointSource& source, const Bounds& bounds, double fraction,
                 const PointInfo& layout, ProgressDelegate* delegate)
            : m_source(Scoped<const MemoryPointSource>::retained(&source))
        {
            init(bounds, fraction, layout, delegate);
            for (int axis = 0; axis < 3; ++axis)
                m_coordinates[axis] = static_cast<const double*>(source.find(axes[axis])->getData());
            for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
                const ChannelData* channel = source.find(layout.getChannel(i).getName());
                if (!channel)
                    QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
                m_channels.push_back(channel);
            }
        }

        void skip(std::size_t count) { m_next = count; }
        std::size_t getNextPoints(PointData& buffer) override
        {
            std::size_t count = 0;
            for (; m_next < m_source->m_count && count < buffer.getNumSamples(); ++m_next) {
                if (m_next == m_source->m_failingPoint)
                    QM_THROW(static_cast<ErrorCode>(40000), "test");
                if (!isWanted(m_coordinates[0][m_next], m_coordinates[1][m_next], m_coordinates[2][m_next]) ||
                    !sample())
                    continue;
                for (std::size_t i = 0; i < m_channels.size(); ++i)
                    ChannelData::copy(buffer.getChannel(i), count, *m_channels[i], m_next, 1);
                ++count;
            }
            return count;
        }

    private:
        Scoped<const MemoryPointSource> m_source;
        const double* m_coordinates[3];
        std::vector<const ChannelData*> m_channels; // of the requested layout
        std::size_t m_next = 0;
    };

    static constexpr const char* axes[] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};

    MemoryPointSource(const PointInfo& layout, std::size_t count)
        : m_count(count), m_channels(layout.getNumChannels())
    {
        setPointInfo(layout);
        setNumPoints(static_cast<std::int64_t>(count));
        for (std::size_t i = 0; i < m_channels.size(); ++i)
            m_channels[i].init(layout.getChannel(i), count);
    }

    const ChannelData* find(const char* name) const
    {
        for (const ChannelData& channel : m_channels)
            if (channel.isNamed(name))
                return &channel;
        return nullptr;
    }

    std::size_t m_count;
    bool m_isSampled = false;
    mutable std::atomic<int> m_numQueries{0}; // several threads may query
    std::size_t m_failingPoint = static_cast<std::size_t>(-1);
    std::vector<ChannelData> m_channels;
    Metadata m_metadata;
};

} // namespace Quillmoran::Testing
