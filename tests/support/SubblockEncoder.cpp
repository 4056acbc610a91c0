#include "support/SubblockEncoder.h"

#include "encode/bands/SubbandWriter.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"

namespace Quillmoran::Testing {

template <class T>
EncodedBand encodeBand(const std::vector<T>& samples, const BandOptions& options, bool interleaved)
{
    const SubblockFormat format{kernelOf<T>, options.transform, options.subblockSize, options.perPlaneLengths,
                                options.rawPlanes};
    SpillFile file;
    SubbandWriter band(format, interleaved, file);
    band.put(samples.data(), samples.size());
    band.finish();
    const auto coder = SubblockWriter::create(format);
    for (std::size_t i = 0; i < band.numPending(); ++i)
        band.getPending(i).encode(*coder);
    band.commit();
    return {writtenBytes([&](StreamWriter& out) { band.headers().copyTo(out); }),
            writtenBytes([&](StreamWriter& out) { band.data().copyTo(out); })};
}

template EncodedBand encodeBand(const std::vector<std::int16_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<std::int32_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<std::int64_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<float>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<double>&, const BandOptions&, bool);

} // namespace Quillmoran::Testing
