#include "encode/bands/ChannelEncoder.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace Quillmoran {

// The channel with one transform and subblock size. Thread safety as that of ChannelEncoder.
class ChannelEncoder::Coding
{
public:
    Coding(const KernelPlan& plan, const KernelPlan::Coding& coding, std::size_t channelIndex,
           const BandFormat& format, SpillFile& file);

    void put(const PointData& points, std::size_t count);
    void finish();
    void encode(SubbandWriter::Subblock& subblock);
    void commit();

    bool isReadable() const;
    const WaveletChannelInfo& getRecord() const noexcept { return m_record; }
    std::vector<SubbandWriter>& getBands() noexcept { return m_bands; }
    const std::vector<SubbandWriter>& getBands() const noexcept { return m_bands; }
    std::int64_t getSize() const noexcept;

private:
    WaveletChannelInfo m_record;
    KernelConversion m_conversion;
    KernelSamples m_samples;
    bool m_hasSamples = false;
    SubblockFormat m_format;
    std::vector<SubbandWriter> m_bands;
    std::unique_ptr<Decomposition> m_decomposition;
    Mutex m_mutex;
    std::vector<std::unique_ptr<SubblockWriter>> m_writers; // not in use by a thread; guarded by m_mutex
};

ChannelEncoder::Coding::Coding(const KernelPlan& plan, const KernelPlan::Coding& coding,
                               std::size_t channelIndex, const BandFormat& format, SpillFile& file)
{
    const auto [transform, subblockSize] = coding;
    m_record.init(plan.name.c_str(), plan.dataType, plan.bits, transform, subblockSize, plan.offset,
                  plan.scale);
    m_conversion.setupConvert(m_record, channelIndex);
    m_format = {m_record.getKernelDataType(),
                transform,
                subblockSize,
                format.planeLengths && TransformUtils::isWavelet(transform),
                format.rawPlanes,
                format.prefer};
    m_bands.assign(format.numLevels, SubbandWriter(m_format, format.interleaved, file));
    m_decomposition = Decomposition::create(m_format.type, transform, format.numLevels);
}

void ChannelEncoder::Coding::put(const PointData& points, std::size_t count)
{
    m_conversion.convertToKernel(points, m_samples, count);
    m_record.updateMinMax(m_samples, count);
    m_hasSamples |= count != 0;
    m_decomposition->put(m_samples.getData(), count, false, m_bands);
}

void ChannelEncoder::Coding::finish()
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
}

void ChannelEncoder::Coding::encode(SubbandWriter::Subblock& subblock)
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
    subblock.encode(*writer);
    const std::lock_guard<Mutex> lock(m_mutex);
    m_writers.push_back(std::move(writer));
}

void ChannelEncoder::Coding::commit()
{
    for (SubbandWriter& band : m_bands)
        band.commit();
}

bool ChannelEncoder::Coding::isReadable() const
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

std::int64_t ChannelEncoder::Coding::getSize() const noexcept
{
    std::int64_t size = 0;
    for (const SubbandWriter& band : m_bands)
        size += band.headers().size() + band.data().size();
    return size;
}

ChannelEncoder::ChannelEncoder(const KernelPlan& plan, std::size_t channelIndex, const BandFormat& format,
                               SpillFile& file)
{
    const auto add = [&](const KernelPlan::Coding& coding) {
        m_codings.push_back(std::make_unique<Coding>(plan, coding, channelIndex, format, file));
    };
    add({plan.transform, plan.subblockSize});
    std::for_each(plan.others.begin(), plan.others.end(), add);
}

ChannelEncoder::~ChannelEncoder() = default;

void ChannelEncoder::put(const PointData& points, std::size_t count)
{
    for (const auto& coding : m_codings)
        coding->put(points, count);
    collectPending();
}

void ChannelEncoder::finish()
{
    for (const auto& coding : m_codings)
        coding->finish();
    collectPending();
}

void ChannelEncoder::collectPending()
{
    m_pending.clear();
    for (const auto& coding : m_codings)
        for (SubbandWriter& band : coding->getBands())
            for (std::size_t i = 0; i < band.numPending(); ++i)
                m_pending.emplace_back(coding.get(), &band.getPending(i));
}

void ChannelEncoder::encodePending(std::size_t index)
{
    const auto [coding, subblock] = m_pending[index];
    coding->encode(*subblock);
}

void ChannelEncoder::commit()
{
    for (const auto& coding : m_codings)
        coding->commit();
    m_pending.clear();
}

const ChannelEncoder::Coding& ChannelEncoder::getSmallest() const noexcept
{
    return **std::min_element(m_codings.begin(), m_codings.end(),
                              [](const auto& a, const auto& b) { return a->getSize() < b->getSize(); });
}

bool ChannelEncoder::isReadable() const
{
    return getSmallest().isReadable();
}

const WaveletChannelInfo& ChannelEncoder::getRecord() const noexcept
{
    return getSmallest().getRecord();
}

const std::vector<SubbandWriter>& ChannelEncoder::getBands() const noexcept
{
    return getSmallest().getBands();
}

std::int64_t ChannelEncoder::getSize() const noexcept
{
    return getSmallest().getSize();
}

} // namespace Quillmoran
