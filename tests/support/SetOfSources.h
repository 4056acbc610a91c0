// A manager of sources in memory, for tests of code that reads sets of sources. It counts the requests for each
// source. Also queries of any source as rows of numbers.
#pragma once

#include <vxunpack/PointSource.h>

#include <vector>

namespace Quillmoran::Testing {

class SetOfSources final : public PointSourceManager
{
public:
    static Scoped<SetOfSources> make(std::vector<Scoped<PointSource>> sources)
    {
        Scoped<SetOfSources> set(new SetOfSources);
        set->setNumSources(sources.size());
        set->m_requests.resize(sources.size());
        set->m_sources = std::move(sources);
        return set;
    }

    void setOverview(const Scoped<PointSource>& overview, double fraction)
    {
        m_overview = overview;
        m_fraction = fraction;
    }

    PointSource* createPointSource(std::size_t index) override
    {
        ++m_requests.at(index);
        m_sources[index]->retain();
        return m_sources[index].get();
    }
    double getOverviewFraction() const override { return m_fraction; }
    PointSource* createOverviewPointSource() override
    {
        if (m_overview)
            m_overview->retain();
        return m_overview.get();
    }

    // The number of requests for each source since the last call.
    std::vector<int> takeRequests()
    {
        std::vector<int> requests(m_requests.size());
        requests.swap(m_requests);
        return requests;
    }

private:
    std::vector<Scoped<PointSource>> m_sources;
    std::vector<int> m_requests;
    Scoped<PointSource> m_overview;
    double m_fraction = 0;
};

// The points that are left, one row of samples per point.
inline std::vector<std::vector<double>> readRows(PointIterator& iterator, const PointInfo& layout,
                                                 std::size_t blockPoints = 7)
{
    PointData block;
    block.init(layout, blockPoints);
    std::vector<std::vector<double>> rows;
    while (const std::size_t count = iterator.getNextPoints(block)) {
        const std::size_t first = rows.size();
        rows.resize(first + count);
        for (std::size_t c = 0; c < layout.getNumChannels(); ++c) {
            const ChannelData& channel = block.getChannel(c);
            visitDataType(channel.getDataType(), [&](auto zero) {
                for (std::size_t i = 0; i < count; ++i)
                    rows[first + i].push_back(
                        static_cast<double>(static_cast<const decltype(zero)*>(channel.getData())[i]));
            });
        }
    }
    return rows;
}

// All points of a query.
inline std::vector<std::vector<double>> readRows(const PointSource& source, const PointInfo& layout,
                                                 const Bounds& bounds = Bounds::Huge(), double fraction = 1,
                                                 std::size_t blockPoints = 7,
                                                 ProgressDelegate* delegate = nullptr)
{
    const Scoped<PointIterator> iterator(source.createIterator(bounds, fraction, layout, delegate));
    return readRows(*iterator, layout, blockPoints);
}

} // namespace Quillmoran::Testing
