#include "encode/bands/ChannelEncoder.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace Quillmoran {

ChannelEncoder::ChannelEncoder(const KernelPlan& plan, std::size_t channelIndex, const BandFormat& format,
                               SpillFile& file)
{
    m_record.init(plan.name.c_str(), plan.dataType, plan.bits, plan.transform, plan.subblockSize, plan.offset,
                  plan.scale);
    m_conversion.setupConvert(m_record, channelIndex);
    m_format = {m_record.getKernelDataType(), plan.transform, plan.subblockSize,
                format.planeLengths && TransformUtils::isWavelet(plan.transform), format.rawPlanes};
    m_bands.assign(format.numLevels, SubbandWriter(m_format, format.interleaved, file));
    m_decomposition = Decomposition::create(m_format.type, plan.transform, format.numLevels);
}

void ChannelEncoder::put(const PointData& points, std::size_t count)
{
    m_conversion.convertToKernel(points, m_samples, count);
    m_record.updateMinMax(m_samples, count);
    m_hasSamples |= count != 0;
    m_decomposition->put(m_samples.getData(), count, false, m_bands);
    collectPending();
}

void ChannelEncoder::finish()
{
    if (!m_hasSamples) {
        // Readers would take an empty range for the widest one.
        m_samples.reserve(m_format.type, 1);
        std::memset(m_samples.getData(), 0, DataTypeUtils::getSize(m_format.type));
        m_record.updateMinMax(m_samples, 1);
    }
    m_decomposition->put(nullptr, 0, true, m_bands);
    for (SubbandWriter& band : m_bands)
        band.finish();
    collectPending();
}

void ChannelEncoder::collectPending()
{
    m_pending.clear();
    for (SubbandWriter& band : m_bands)
        for (std::size_t i = 0; i < band.numPending(); ++i)
            m_pending.push_back(&band.getPending(i));
}

void ChannelEncoder::encodePending(std::size_t index)
{
    std::unique_ptr<SubblockWriter> writer;
    {
        const std::lock_guard<Mutex> lock(m_mutex);
        if (!m_writers.empty()) {
            writer = std::move(m_writers.back());
            m_writers.pop_back();
        }
    }
    if (!writer)
        writer = SubblockWriter::create(m_format);
    m_pending[index]->encode(*writer);
    const std::lock_guard<Mutex> lock(m_mutex);
    m_writers.push_back(std::move(writer));
}

void ChannelEncoder::commit()
{
    for (SubbandWriter& band : m_bands)
        band.commit();
    m_pending.clear();
}

bool ChannelEncoder::isReadable() const
{
    if (!TransformUtils::isInteger(m_record.getTransformType()) ||
        m_record.getPart() == ChannelPart::Fraction32 || m_record.getPart() == ChannelPart::Fraction64)
        return true;
    WaveletChannelInfo read;
    read.init(m_record.getName(), m_record.getDataType(),
              WaveletChannelInfo::countBits(m_record.getMinimum().integer, m_record.getMaximum().integer),
              m_record.getTransformType(), m_record.getSubblockSize(), m_record.getOffset(),
              m_record.getScale());
    const std::size_t size = DataTypeUtils::getSize(read.getKernelDataType());
    const std::size_t own = DataTypeUtils::getSize(m_format.type);
    // Without an update step no sum needs more than the headroom, so the narrower type has the same
    // coefficients. Smoothed samples can grow with each level.
    if (size >= own || TransformUtils::hasUpdate(m_record.getTransformType()))
        return size == own;
    SubblockFormat format = m_format;
    format.type = read.getKernelDataType();
    return std::all_of(m_bands.begin(), m_bands.end(), [&](const SubbandWriter& band) {
        return band.getLargestPayload() <= SubblockWriter::getCapacity(format);
    });
}

std::int64_t ChannelEncoder::getSize() const noexcept
{
    std::int64_t size = 0;
    for (const SubbandWriter& band : m_bands)
        size += band.headers().size() + band.data().size();
    return size;
}

} // namespace Quillmoran
