#include "support/SubblockEncoder.h"

#include "encode/coders/SubblockWriter.h"
#include "support/Kernels.h"

#include <algorithm>
#include <cstdlib>
#include <type_traits>

namespace Quillmoran::Testing {

namespace {

// Clears the planes below `dropped` of integer magnitudes, but never the highest plane in use.
template <class T>
void dropPlanes(std::vector<T>& samples, int dropped)
{
    if constexpr (std::is_integral_v<T>) {
        std::int64_t all = 0;
        for (const T sample : samples)
            all |= std::abs(std::int64_t{sample});
        while (dropped > 0 && all >> dropped == 0)
            --dropped;
        for (T& sample : samples)
            sample = static_cast<T>(sample / (std::int64_t{1} << dropped) * (std::int64_t{1} << dropped));
    }
}

} // namespace

template <class T>
EncodedBand encodeBand(const std::vector<T>& samples, const BandOptions& options, bool interleaved)
{
    const auto writer = SubblockWriter::create(
        {kernelOf<T>, options.transform, options.subblockSize, options.perPlaneLengths, options.rawPlanes});
    EncodedBand band;
    std::size_t zeros = 0;
    const auto flushZeros = [&] {
        while (zeros != 0) {
            const std::size_t run = std::min(zeros, options.maxZeroRun);
            SubblockWriter::putZeroRun(options.transform, run, band.headers);
            zeros -= run;
        }
    };
    for (std::size_t at = 0; at < samples.size(); at += options.subblockSize) {
        const std::size_t end = std::min(at + options.subblockSize, samples.size());
        std::vector<T> subblock(samples.begin() + static_cast<std::ptrdiff_t>(at),
                                samples.begin() + static_cast<std::ptrdiff_t>(end));
        if (options.droppedPlanes != 0)
            dropPlanes(subblock, options.droppedPlanes);
        if (SubblockWriter::isZero(subblock.data(), subblock.size() * sizeof(T))) {
            ++zeros;
            continue;
        }
        flushZeros();
        Bytes payload;
        writer->encode(subblock.data(), subblock.size(), band.headers, payload);
        Bytes& data = interleaved ? band.headers : band.data;
        data.insert(data.end(), payload.begin(), payload.end());
    }
    flushZeros();
    return band;
}

template EncodedBand encodeBand(const std::vector<std::int16_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<std::int32_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<std::int64_t>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<float>&, const BandOptions&, bool);
template EncodedBand encodeBand(const std::vector<double>&, const BandOptions&, bool);

} // namespace Quillmoran::Testing
