#include "encode/PointEncoder.h"

#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace Quillmoran {

PointEncoder::PointEncoder(const std::vector<ChannelPlan>& plans, const BandFormat& format,
                           std::uint32_t pointsPerEntry)
    : m_index(pointsPerEntry), m_digests(plans.size())
{
    for (std::size_t i = 0; i < plans.size(); ++i) {
        m_firstParts.push_back(m_channels.size());
        for (const KernelPlan& plan : plans[i])
            m_channels.push_back(std::make_unique<ChannelEncoder>(plan, i, format, m_file));
    }
    m_firstParts.push_back(m_channels.size());
}

bool PointEncoder::encode(const PointData& points, std::size_t count,
                          const std::function<bool(std::size_t)>& examine,
                          const std::function<void()>& meanwhile)
{
    m_numPoints += static_cast<std::int64_t>(count);
    std::atomic<bool> isSuitable = true;
    parallelLoop(m_digests.size() + 1, [&](std::size_t job) {
        if (job == 0)
            m_index.add(points, count);
        else if (examine(job - 1))
            put(job - 1, points, count);
        else
            isSuitable = false;
    });
    if (isSuitable)
        return encodePending(meanwhile);
    meanwhile();
    return false;
}

void PointEncoder::put(std::size_t channel, const PointData& points, std::size_t count)
{
    m_digests[channel].add(points.getChannel(channel), count);
    for (std::size_t part = m_firstParts[channel]; part < m_firstParts[channel + 1]; ++part)
        m_channels[part]->put(points, count);
}

bool PointEncoder::finish()
{
    parallelLoop(m_channels.size(), [this](std::size_t channel) { m_channels[channel]->finish(); });
    for (ChannelDigests& digests : m_digests)
        digests.finish();
    return encodePending([] {});
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

bool PointEncoder::isReadable() const
{
    return std::all_of(m_channels.begin(), m_channels.end(),
                       [](const auto& channel) { return channel->isReadable(); });
}

bool PointEncoder::encodePending(const std::function<void()>& meanwhile)
{
    std::vector<std::pair<ChannelEncoder*, std::size_t>> jobs;
    for (const auto& channel : m_channels)
        for (std::size_t i = 0; i < channel->numPending(); ++i)
            jobs.emplace_back(channel.get(), i);
    std::vector<std::exception_ptr> refusals(jobs.size());
    parallelLoop(jobs.size() + 1, [&](std::size_t job) {
        if (job == 0)
            return meanwhile();
        try {
            jobs[job - 1].first->encodePending(jobs[job - 1].second);
        } catch (const Error& error) {
            if (error.code() != ErrorCode::InvalidArgument)
                throw;
            refusals[job - 1] = std::current_exception();
        }
    });
    const auto refusal = std::find_if(refusals.begin(), refusals.end(),
                                      [](const std::exception_ptr& each) { return each != nullptr; });
    if (refusal != refusals.end()) {
        m_refusal = *refusal;
        return false;
    }
    parallelLoop(m_channels.size(), [this](std::size_t channel) { m_channels[channel]->commit(); });
    return true;
}

} // namespace Quillmoran
