#include "support/VX7FileBuilder.h"

#include "common/bands/KernelSamples.h"
#include "common/coders/KernelTypes.h"
#include "common/container/WaveletChannelInfo.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/ForwardWavelet.h"
#include "support/VX7Chunks.h"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace Quillmoran::Testing {

namespace {

struct EncodedChannel
{
    WaveletChannelInfo record;
    std::vector<EncodedBand> bands;
};

int countBits(const ChannelPlan& channel)
{
    // The kernels of fractions do not depend on their samples.
    if (channel.name.compare(0, 3, "@d|") == 0)
        return 52;
    if (channel.name.compare(0, 3, "@f|") == 0)
        return 23;
    if (channel.integers.empty())
        return 64;
    const auto [low, high] = std::minmax_element(channel.integers.begin(), channel.integers.end());
    return WaveletChannelInfo::countBits(*low, *high);
}

EncodedChannel encodeChannel(const FilePlan& plan, const ChannelPlan& channel)
{
    EncodedChannel encoded;
    WaveletChannelInfo& record = encoded.record;
    record.init(channel.name.c_str(), channel.type, countBits(channel), channel.transform,
                channel.subblockSize, channel.offset, channel.scale);
    const bool isWavelet = TransformUtils::isWavelet(channel.transform);
    const BandOptions options{channel.transform, channel.subblockSize,
                              plan.version < 4 && (isWavelet || plan.planeLengthsWithoutLifting),
                              channel.rawPlanes};
    visitKernelType(record.getKernelDataType(), ErrorCode::General, [&](auto zero) {
        using T = decltype(zero);
        std::vector<T> samples(channel.integers.begin(), channel.integers.end());
        if (TransformUtils::isFloatingPoint(channel.transform))
            samples.assign(channel.reals.begin(), channel.reals.end());
        KernelSamples kernel;
        kernel.reserve(record.getKernelDataType(), samples.size());
        std::copy(samples.begin(), samples.end(), static_cast<T*>(kernel.getData()));
        record.updateMinMax(kernel, samples.size());
        const auto bands = decompose(std::move(samples), Lifting::of(channel.transform), plan.numLevels);
        for (const std::vector<T>& band : bands)
            encoded.bands.push_back(encodeBand(band, options, plan.bandVersion == 1));
    });
    return encoded;
}

void writeName(StreamWriter& out, const std::optional<std::string>& name)
{
    out.put_be(static_cast<std::uint32_t>(name ? name->size() + 1 : 0));
    if (name)
        out.write(name->c_str(), name->size() + 1);
}

void writeIndex(StreamWriter& out, const FilePlan& plan)
{
    out.put_be(plan.indexVersion);
    out.put_be(plan.pointsPerEntry);
    if (plan.indexVersion == 1) {
        out.put_be(static_cast<std::uint32_t>(plan.indexBoxes.size()));
        for (const Bounds& box : plan.indexBoxes)
            for (const double value : {box.x.min, box.x.max, box.y.min, box.y.max, box.z.min, box.z.max})
                out.put_be(value);
        return;
    }
    const Scoped<MemoryRTree> tree(MemoryRTree::create());
    for (std::size_t i = 0; i < plan.indexBoxes.size(); ++i)
        tree->insert(plan.indexBoxes[i], static_cast<std::int64_t>(i));
    const double scale[3] = {plan.indexScale, plan.indexScale, plan.indexScale};
    tree->save(out, scale);
}

void writeBand(StreamWriter& out, const FilePlan& plan, const EncodedBand& band)
{
    if (plan.bandVersion == 1) {
        out.write(band.headers.data(), band.headers.size());
        return;
    }
    const Bytes& a = plan.swapRanges ? band.headers : band.data;
    const Bytes& b = plan.swapRanges ? band.data : band.headers;
    out.put_be(static_cast<std::int64_t>(a.size()));
    out.put_be(static_cast<std::int64_t>(b.size()));
    out.write(a.data(), a.size());
    out.write(b.data(), b.size());
}

} // namespace

std::vector<ChannelPlan> splitChannel(const std::string& name, DataType type,
                                      const std::vector<double>& values, TransformType transform)
{
    const bool narrow = type == FLOAT32;
    const int fraction = narrow ? 23 : 52;
    const int exponent = narrow ? 8 : 11;
    const std::tuple<const char*, int, int> parts[] = {
        {narrow ? "@f|" : "@d|", 0, fraction}, {"@e|", fraction, exponent}, {"@s|", fraction + exponent, 1}};
    std::vector<ChannelPlan> channels;
    for (const auto& [prefix, shift, width] : parts) {
        std::vector<std::int64_t> integers;
        for (const double value : values) {
            std::uint64_t bits = 0;
            const auto single = static_cast<float>(value);
            if (narrow)
                std::memcpy(&bits, &single, sizeof single);
            else
                std::memcpy(&bits, &value, sizeof value);
            integers.push_back(static_cast<std::int64_t>(bits >> shift & ((std::uint64_t{1} << width) - 1)));
        }
        channels.push_back(integerChannel(prefix + name, type, std::move(integers), transform));
    }
    return channels;
}

std::vector<Bounds> makeIndexBoxes(const std::vector<double>& x, const std::vector<double>& y,
                                   const std::vector<double>& z, std::uint32_t pointsPerEntry)
{
    std::vector<Bounds> boxes;
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (i % pointsPerEntry == 0)
            boxes.emplace_back();
        boxes.back().x.grow(x[i]);
        boxes.back().y.grow(y[i]);
        boxes.back().z.grow(z[i]);
    }
    return boxes;
}

Bytes buildFile(const FilePlan& plan)
{
    VX7Chunks file;
    file.preamble = {'v', 'x', 'i', 'l', 4, 0, 0, plan.version};
    file.preamble.resize(VX7Chunks::preambleBytes);
    const auto addChunk = [&](ChunkId id, const auto& write) {
        file.chunks.push_back({id, writtenBytes(write)});
    };
    std::vector<EncodedChannel> channels;
    std::size_t numPoints = 0;
    for (const ChannelPlan& channel : plan.channels) {
        channels.push_back(encodeChannel(plan, channel));
        if (channels.size() == 1)
            numPoints = std::max(channel.integers.size(), channel.reals.size());
    }
    addChunk(CHUNK_WAVELET_HEADER, [&](StreamWriter& out) {
        out.put_be(plan.headerVersion);
        out.put_be(static_cast<std::int64_t>(numPoints));
        out.put_be(static_cast<std::uint16_t>(plan.numLevels - 1));
        out.put_be(static_cast<std::uint16_t>(channels.size()));
        for (const EncodedChannel& channel : channels)
            channel.record.save(out, ErrorCode::General);
    });
    // The nodes of an index refer to each other by their positions in the file.
    const Bytes before(file.toBytes().size() + ChunkHeader::size);
    addChunk(CHUNK_INDEX, [&](StreamWriter& out) {
        out.write(before.data(), before.size());
        writeIndex(out, plan);
    });
    Bytes& index = file.chunks.back().payload;
    index.erase(index.begin(), index.begin() + static_cast<std::ptrdiff_t>(before.size()));
    for (std::size_t c = 0; c < channels.size(); ++c)
        for (std::size_t level = 0; level < plan.numLevels; ++level)
            addChunk(CHUNK_SUBBAND, [&](StreamWriter& out) {
                out.put_be(plan.bandVersion);
                out.put_be(static_cast<std::uint16_t>(c));
                out.put_be(static_cast<std::uint16_t>(level));
                writeBand(out, plan, channels[c].bands[level]);
            });
    addChunk(CHUNK_METADATA, [&](StreamWriter& out) { plan.metadata.write(out); });
    addChunk(CHUNK_WKT, [&](StreamWriter& out) {
        out.put_be(std::uint8_t{1});
        writeName(out, plan.wkt);
    });
    if (plan.version >= 2)
        addChunk(CHUNK_CLASS_NAMES, [&](StreamWriter& out) {
            out.put_be(std::uint8_t{1});
            out.put_be(static_cast<std::uint32_t>(plan.classNames.size()));
            for (const auto& name : plan.classNames)
                writeName(out, name);
        });
    if (plan.extendedHeader)
        addChunk(CHUNK_EXTENDED_HEADER, [&](StreamWriter& out) {
            out.put_be(std::uint8_t{1});
            for (const EncodedChannel& channel : channels)
                channel.record.saveExtended(out, ErrorCode::General);
        });
    return file.toBytes();
}

} // namespace Quillmoran::Testing
