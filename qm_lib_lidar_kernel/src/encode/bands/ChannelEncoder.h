// Encodes one kernel channel: from point samples to kernel samples, bands, subblocks and finally bytes. A plan
// can ask for several codings; the smallest is kept. put() and commit() are called by one thread at a time, in
// the order of the points. Between these calls, any number of threads may call encodePending().
#pragma once

#include "encode/bands/Decomposition.h"
#include "encode/bands/SubbandWriter.h"
#include "encode/planning/ChannelPlan.h"

#include <memory>
#include <utility>
#include <vector>

namespace Quillmoran {

// The settings that all channels of a file share.
struct BandFormat
{
    std::size_t numLevels = 1;
    bool interleaved = false;
    bool planeLengths = false;                   // one length per bit plane for lifted MQ-coded channels
    std::optional<int> rawPlanes = std::nullopt; // see SubblockFormat
    Preference prefer = Preference::Balanced;
};

class ChannelEncoder
{
public:
    // `channelIndex` is the index of the channel in the points. The bands are stored in `file`.
    ChannelEncoder(const KernelPlan& plan, std::size_t channelIndex, const BandFormat& format,
                   SpillFile& file);
    ~ChannelEncoder();

    void put(const PointData& points, std::size_t count);
    // Ends the bands. The caller then encodes and commits the remaining subblocks.
    void finish();

    std::size_t numPending() const noexcept { return m_pending.size(); }
    // Throws InvalidArgument if the coder cannot represent the samples.
    void encodePending(std::size_t index);
    void commit();

    // This and the functions below are for after finish() and the last commit(). Whether readers decode the
    // bands: they derive the kernel type from the range of the samples, and it can be narrower than that of the
    // plan.
    bool isReadable() const;
    // The channel record for the file.
    const WaveletChannelInfo& getRecord() const noexcept;
    const std::vector<SubbandWriter>& getBands() const noexcept;
    std::int64_t getSize() const noexcept; // bytes of all bands

private:
    class Coding;

    void collectPending();
    const Coding& getSmallest() const noexcept;

    std::vector<std::unique_ptr<Coding>> m_codings; // at least one
    std::vector<std::pair<Coding*, SubbandWriter::Subblock*>> m_pending;
};

} // namespace Quillmoran
