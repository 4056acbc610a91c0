// Encodes one kernel channel: from point samples to kernel samples, bands, subblocks and finally bytes. put()
// and commit() are called by one thread at a time, in the order of the points. Between these calls, any
// number of threads may call encodePending().
#pragma once

#include "encode/bands/Decomposition.h"
#include "encode/bands/SubbandWriter.h"
#include "encode/planning/ChannelPlan.h"

#include <memory>
#include <vector>

namespace Quillmoran {

// The settings that all channels of a file share.
struct BandFormat
{
    std::size_t numLevels = 1;
    bool interleaved = false;
    bool planeLengths = false;                   // one length per bit plane for lifted MQ-coded channels
    std::optional<int> rawPlanes = std::nullopt; // see SubblockFormat
};

class ChannelEncoder
{
public:
    // `channelIndex` is the index of the channel in the points. The bands are stored in `file`.
    ChannelEncoder(const KernelPlan& plan, std::size_t channelIndex, const BandFormat& format,
                   SpillFile& file);

    void put(const PointData& points, std::size_t count);
    // Ends the bands. The caller then encodes and commits the remaining subblocks.
    void finish();

    std::size_t numPending() const noexcept { return m_pending.size(); }
    // Throws InvalidArgument if the coder cannot represent the samples.
    void encodePending(std::size_t index);
    void commit();

    // After finish(): whether readers decode the bands. They derive the kernel type from the range of the
    // samples, and it can be narrower than that of the plan.
    bool isReadable() const;
    // The channel record for the file. Complete after finish().
    const WaveletChannelInfo& getRecord() const noexcept { return m_record; }
    const std::vector<SubbandWriter>& getBands() const noexcept { return m_bands; }
    std::int64_t getSize() const noexcept; // bytes of all bands

private:
    void collectPending();

    WaveletChannelInfo m_record;
    KernelConversion m_conversion;
    KernelSamples m_samples;
    bool m_hasSamples = false;
    SubblockFormat m_format;
    std::vector<SubbandWriter> m_bands;
    std::unique_ptr<Decomposition> m_decomposition;
    std::vector<SubbandWriter::Subblock*> m_pending;
    Mutex m_mutex;
    std::vector<std::unique_ptr<SubblockWriter>> m_writers; // not in use by a thread; guarded by m_mutex
};

} // namespace Quillmoran
