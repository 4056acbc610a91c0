#include "encode/PointEncoder.h"

#include "platform/ParallelLoop.h"

#include <algorithm>
#include <utility>

namespace Quillmoran {

PointEncoder::PointEncoder(const std::vector<ChannelPlan>& plans, const BandFormat& format,
                           std::uint32_t pointsPerEntry)
    : m_index(pointsPerEntry), m_digests(plans.size())
{
    for (std::size_t i = 0; i < plans.size(); ++i) {
        for (const KernelPlan& plan : plans[i])
            m_channels.push_back(std::make_unique<ChannelEncoder>(plan, i, format, m_file));
        m_digested.resize(m_channels.size());
        m_digested.back() = i;
    }
}

void PointEncoder::encode(BlockReader& reader, const std::function<void(std::size_t)>& onBlock)
{
    reader.forEach([&](const PointData& points, std::size_t count) {
        m_numPoints += static_cast<std::int64_t>(count);
        parallelLoop(m_channels.size() + 1, [&](std::size_t job) {
            if (job == 0) {
                m_index.add(points, count);
                return;
            }
            if (const auto channel = m_digested[job - 1]) // before put(), which reads the same samples
                m_digests[*channel].add(points.getChannel(*channel), count);
            m_channels[job - 1]->put(points, count);
        });
        encodePending([&reader] { reader.readNext(); });
        onBlock(count);
    });
    parallelLoop(m_channels.size(), [this](std::size_t channel) { m_channels[channel]->finish(); });
    encodePending([] {});
    for (ChannelDigests& digests : m_digests)
        digests.finish();
}

bool PointEncoder::isWithinPlans() const
{
    return std::all_of(m_channels.begin(), m_channels.end(), [](const auto& channel) {
        const WaveletChannelInfo& record = channel->getRecord();
        return !TransformUtils::isInteger(record.getTransformType()) ||
               WaveletChannelInfo::countBits(record.getMinimum().integer, record.getMaximum().integer) <=
                   record.getBits();
    });
}

void PointEncoder::encodePending(const std::function<void()>& meanwhile)
{
    std::vector<std::pair<ChannelEncoder*, std::size_t>> jobs;
    for (const auto& channel : m_channels)
        for (std::size_t i = 0; i < channel->numPending(); ++i)
            jobs.emplace_back(channel.get(), i);
    parallelLoop(jobs.size() + 1, [&](std::size_t job) {
        if (job == 0)
            meanwhile();
        else
            jobs[job - 1].first->encodePending(jobs[job - 1].second);
    });
    parallelLoop(m_channels.size(), [this](std::size_t channel) { m_channels[channel]->commit(); });
}

} // namespace Quillmoran
