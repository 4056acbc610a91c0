// Codes one kernel channel: point samples become kernel samples, bands, subblocks, and these the bytes of the
// file. Its user decides what runs where: put() and commit() are called by one thread at a time and in the
// order of the points, between them encodePending() by any number of threads.
#pragma once

#include "encode/bands/Decomposition.h"
#include "encode/bands/SubbandWriter.h"
#include "encode/planning/ChannelPlan.h"

#include <memory>
#include <vector>

namespace Quillmoran {

// What all channels of a file have in common.
struct BandFormat
{
    std::size_t numLevels = 1;
    bool interleaved = false;
    bool planeLengths = false; // one length per bit plane for MQ-coded channels that are lifted
    int rawPlanes = SubblockFormat::chooseRawPlanes;
};

class ChannelEncoder
{
public:
    // `channelIndex` is that of the channel in the points. The bands spill into the file.
    ChannelEncoder(const KernelPlan& plan, int channelIndex, const BandFormat& format, SpillFile& file);

    void put(const PointData& points, std::size_t count);
    // Ends the bands; one more round of encoding and commit() follows.
    void finish();

    std::size_t numPending() const noexcept { return m_pending.size(); }
    // InvalidArgument when the coder cannot hold the samples.
    void encodePending(std::size_t index);
    void commit();

    // The record as it is to be written once all points were put.
    const WaveletChannelInfo& getInfo() const noexcept { return m_info; }
    const std::vector<SubbandWriter>& getBands() const noexcept { return m_bands; }
    std::int64_t getSize() const noexcept; // bytes of all bands

private:
    void collectPending();
    std::unique_ptr<SubblockWriter> takeWriter();
    void returnWriter(std::unique_ptr<SubblockWriter> writer);

    WaveletChannelInfo m_info;
    bool m_hasSamples = false;
    SubblockFormat m_format;
    std::vector<SubbandWriter> m_bands;
    std::unique_ptr<Decomposition> m_decomposition;
    std::vector<SubbandWriter::Subblock*> m_pending;
    Mutex m_mutex; // of the writers at rest, as many as threads have worked on this channel at once
    std::vector<std::unique_ptr<SubblockWriter>> m_writers;
};

} // namespace Quillmoran
