#include "encode/PointEncoder.h"

#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>

#include <algorithm>

namespace Quillmoran {

namespace {

std::exception_ptr firstOf(const std::vector<std::exception_ptr>& refusals)
{
    const auto refusal = std::find_if(refusals.begin(), refusals.end(),
                                      [](const std::exception_ptr& each) { return each != nullptr; });
    return refusal == refusals.end() ? nullptr : *refusal;
}

} // namespace

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

std::exception_ptr PointEncoder::encode(std::size_t channel, const PointData& points, std::size_t count)
{
    m_digests[channel].add(points.getChannel(channel), count);
    const std::size_t first = m_firstParts[channel];
    std::vector<std::exception_ptr> refusals(m_firstParts[channel + 1] - first);
    nestedParallelLoop(refusals.size(), [&](std::size_t i) {
        m_channels[first + i]->put(points, count);
        refusals[i] = encodePending(*m_channels[first + i]);
    });
    return firstOf(refusals);
}

void PointEncoder::addToIndex(const PointData& points, std::size_t count)
{
    m_numPoints += static_cast<std::int64_t>(count);
    m_index.add(points, count);
}

std::exception_ptr PointEncoder::finish()
{
    for (ChannelDigests& digests : m_digests)
        digests.finish();
    std::vector<std::exception_ptr> refusals(m_channels.size());
    parallelLoop(m_channels.size(), [&](std::size_t channel) {
        m_channels[channel]->finish();
        refusals[channel] = encodePending(*m_channels[channel]);
    });
    return firstOf(refusals);
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

std::exception_ptr PointEncoder::encodePending(ChannelEncoder& channel)
{
    std::vector<std::exception_ptr> refusals(channel.numPending());
    nestedParallelLoop(refusals.size(), [&](std::size_t i) {
        try {
            channel.encodePending(i);
        } catch (const Error& error) {
            if (error.code() != ErrorCode::InvalidArgument)
                throw;
            refusals[i] = std::current_exception();
        }
    });
    if (std::exception_ptr refusal = firstOf(refusals))
        return refusal;
    channel.commit();
    return nullptr;
}

} // namespace Quillmoran
