#include "support/VX7FileBuilder.h"

#include "common/bands/KernelSamples.h"
#include "common/container/ChunkHeader.h"
#include "common/container/WaveletChannelInfo.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/ForwardWavelet.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

namespace Quillmoran::Testing {

namespace {

constexpr double noScale = 0;

bool hasFloatKernel(const ChannelPlan& channel)
{
    return TransformUtils::isFloatingPoint(channel.transform);
}

std::size_t countSamples(const ChannelPlan& channel)
{
    return hasFloatKernel(channel) ? channel.reals.size() : channel.integers.size();
}

// The record, with the fields that a reader derives.
WaveletChannelInfo makeRecord(const ChannelPlan& channel)
{
    std::uint64_t largest = 0;
    std::int64_t low = INT64_MAX, high = INT64_MIN;
    for (const std::int64_t value : channel.integers) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
    if (low <= high) {
        const auto magnitude = [](std::int64_t v) {
            return v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
        };
        const std::uint64_t range = static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low);
        largest = std::max({range, magnitude(low), magnitude(high)});
    }
    int bits = static_cast<int>(std::bit_width(largest));
    if (channel.name.compare(0, 3, "@d|") == 0)
        bits = 63;
    else if (channel.name.compare(0, 3, "@f|") == 0)
        bits = 31 - TransformUtils::getHeadroom(channel.transform);
    WaveletChannelInfo record;
    record.init(channel.name.c_str(), channel.type, bits, channel.transform, channel.subblockSize,
                channel.offset, channel.scale);
    return record;
}

class FileWriter
{
public:
    explicit FileWriter(const FilePlan& plan) : m_plan(plan), m_io(ByteStore::create())
    {
        m_out.init(m_io.get(), true, 4096);
    }

    Bytes write()
    {
        m_out.put_str("vxil");
        for (const std::uint8_t byte : {std::uint8_t{4}, std::uint8_t{0}, std::uint8_t{0}, m_plan.version})
            m_out.put_be(byte);
        m_out.put_be(std::uint64_t{0});
        writeChunk(CHUNK_GROUP, [this] { writeGroup(); });
        const std::int64_t end = m_out.tell();
        m_out.seek(8, Stream::SEEK_FROM_START);
        m_out.put_be(static_cast<std::uint64_t>(end - 16));
        m_out.close(true);
        return m_io->bytes();
    }

private:
    template <class Payload>
    void writeChunk(ChunkId id, Payload payload)
    {
        ChunkHeader header;
        header.id = id;
        header.write(m_out, false);
        payload();
        header.write(m_out, true);
    }

    void writeGroup()
    {
        writeChunk(CHUNK_WAVELET_HEADER, [this] { writeHeader(); });
        writeChunk(CHUNK_INDEX, [this] { writeIndex(); });
        for (std::size_t c = 0; c < m_plan.channels.size(); ++c)
            writeBands(c);
        writeChunk(CHUNK_METADATA, [this] { m_plan.metadata.write(m_out); });
        writeChunk(CHUNK_WKT, [this] {
            m_out.put_be(std::uint8_t{1});
            writeName(m_plan.wkt);
        });
        if (m_plan.version >= 2) {
            writeChunk(CHUNK_CLASS_NAMES, [this] {
                m_out.put_be(std::uint8_t{1});
                m_out.put_be(static_cast<std::uint32_t>(m_plan.classNames.size()));
                for (const auto& name : m_plan.classNames)
                    writeName(name);
            });
        }
        if (m_plan.extendedHeader) {
            writeChunk(CHUNK_EXTENDED_HEADER, [this] {
                m_out.put_be(std::uint8_t{1});
                for (const ChannelPlan& channel : m_plan.channels)
                    makeRecord(channel).saveExtended(m_out, ErrorCode::General);
            });
        }
    }

    void writeName(const std::optional<std::string>& name)
    {
        m_out.put_be(static_cast<std::uint32_t>(name ? name->size() + 1 : 0));
        if (name)
            m_out.write(name->c_str(), name->size() + 1);
    }

    void writeHeader()
    {
        m_out.put_be(m_plan.headerVersion);
        m_out.put_be(
            static_cast<std::int64_t>(m_plan.channels.empty() ? 0 : countSamples(m_plan.channels[0])));
        m_out.put_be(static_cast<std::uint16_t>(m_plan.numLevels - 1));
        m_out.put_be(static_cast<std::uint16_t>(m_plan.channels.size()));
        for (const ChannelPlan& channel : m_plan.channels)
            saveRecord(channel);
    }

    void saveRecord(const ChannelPlan& channel)
    {
        WaveletChannelInfo record = makeRecord(channel);
        const std::size_t count = countSamples(channel);
        KernelSamples samples;
        samples.reserve(record.getKernelDataType(), count);
        visitDataType(record.getKernelDataType(), [&](auto zero) {
            using T = decltype(zero);
            auto* kernel = static_cast<T*>(samples.getData());
            for (std::size_t i = 0; i < count; ++i)
                kernel[i] = hasFloatKernel(channel) ? static_cast<T>(channel.reals[i])
                                                    : static_cast<T>(channel.integers[i]);
        });
        record.updateMinMax(samples, count);
        record.save(m_out, ErrorCode::General);
    }

    void writeIndex()
    {
        m_out.put_be(m_plan.indexVersion);
        m_out.put_be(m_plan.pointsPerEntry);
        if (m_plan.indexVersion == 1) {
            m_out.put_be(static_cast<std::uint32_t>(m_plan.indexBoxes.size()));
            for (const Bounds& box : m_plan.indexBoxes)
                for (const double value : {box.x.min, box.x.max, box.y.min, box.y.max, box.z.min, box.z.max})
                    m_out.put_be(value);
            return;
        }
        const Scoped<MemoryRTree> tree(MemoryRTree::create());
        for (std::size_t i = 0; i < m_plan.indexBoxes.size(); ++i)
            tree->insert(m_plan.indexBoxes[i], static_cast<std::int64_t>(i));
        const double scale[3] = {m_plan.indexScale, m_plan.indexScale, m_plan.indexScale};
        tree->save(m_out, scale);
    }

    void writeBands(std::size_t c)
    {
        const ChannelPlan& channel = m_plan.channels[c];
        const DataType kernel = makeRecord(channel).getKernelDataType();
        visitDataType(kernel, [&](auto zero) {
            using T = decltype(zero);
            if constexpr (std::is_signed_v<T> && sizeof(T) >= 2) {
                if (hasFloatKernel(channel))
                    writeTypedBands<T>(c, std::vector<T>(channel.reals.begin(), channel.reals.end()));
                else
                    writeTypedBands<T>(c, std::vector<T>(channel.integers.begin(), channel.integers.end()));
            } else {
                throw std::invalid_argument("no kernel type");
            }
        });
    }

    template <class T>
    void writeTypedBands(std::size_t c, std::vector<T> samples)
    {
        const ChannelPlan& channel = m_plan.channels[c];
        BandOptions options;
        options.transform = channel.transform;
        options.subblockSize = channel.subblockSize;
        options.perPlaneLengths = m_plan.version < 4 && (TransformUtils::isWavelet(channel.transform) ||
                                                         m_plan.planeLengthsWithoutLifting);
        options.rawPlanes = channel.rawPlanes;
        options.droppedPlanes = channel.droppedPlanes;
        const auto bands = decompose(std::move(samples), Lifting::of(channel.transform), m_plan.numLevels);
        for (std::size_t level = 0; level < bands.size(); ++level) {
            const EncodedBand band = encodeBand(bands[level], options, m_plan.bandVersion == 1);
            writeChunk(CHUNK_SUBBAND, [&] { writeBand(c, level, band); });
        }
    }

    void writeBand(std::size_t channel, std::size_t level, const EncodedBand& band)
    {
        m_out.put_be(m_plan.bandVersion);
        m_out.put_be(static_cast<std::uint16_t>(channel));
        m_out.put_be(static_cast<std::uint16_t>(level));
        if (m_plan.bandVersion == 1) {
            m_out.write(band.headers.data(), band.headers.size());
            return;
        }
        const Bytes& a = m_plan.swapRanges ? band.headers : band.data;
        const Bytes& b = m_plan.swapRanges ? band.data : band.headers;
        m_out.put_be(static_cast<std::int64_t>(a.size()));
        m_out.put_be(static_cast<std::int64_t>(b.size()));
        m_out.write(a.data(), a.size());
        m_out.write(b.data(), b.size());
    }

    const FilePlan& m_plan;
    Scoped<ByteStore> m_io;
    StreamWriter m_out;
};

} // namespace

ChannelPlan quantizedChannel(const std::string& name, std::vector<std::int64_t> steps, double offset,
                             double scale, TransformType transform)
{
    ChannelPlan channel = integerChannel(name, FLOAT64, std::move(steps), transform);
    channel.offset = offset;
    channel.scale = scale;
    return channel;
}

ChannelPlan integerChannel(const std::string& name, DataType type, std::vector<std::int64_t> values,
                           TransformType transform)
{
    ChannelPlan channel;
    channel.name = name;
    channel.type = type;
    channel.transform = transform;
    channel.integers = std::move(values);
    return channel;
}

ChannelPlan deflatedChannel(const std::string& name, DataType type, std::vector<double> values,
                            TransformType transform)
{
    ChannelPlan channel;
    channel.name = name;
    channel.type = type;
    channel.transform = transform;
    channel.reals = std::move(values);
    return channel;
}

std::vector<ChannelPlan> splitChannel(const std::string& name, DataType type,
                                      const std::vector<double>& values, TransformType transform)
{
    const bool narrow = type == FLOAT32;
    const int fractionBits = narrow ? 23 : 52;
    const int exponentBits = narrow ? 8 : 11;
    std::vector<std::int64_t> fraction, exponent, sign;
    for (const double value : values) {
        std::uint64_t bits = 0;
        if (narrow) {
            const auto single = static_cast<float>(value);
            std::memcpy(&bits, &single, sizeof single);
        } else {
            std::memcpy(&bits, &value, sizeof value);
        }
        fraction.push_back(static_cast<std::int64_t>(bits & ((std::uint64_t{1} << fractionBits) - 1)));
        exponent.push_back(static_cast<std::int64_t>(bits >> fractionBits & ((1u << exponentBits) - 1)));
        sign.push_back(static_cast<std::int64_t>(bits >> (fractionBits + exponentBits) & 1));
    }
    const std::string prefix = narrow ? "@f|" : "@d|";
    std::vector<ChannelPlan> parts = {
        quantizedChannel(prefix + name, std::move(fraction), 0, noScale, transform),
        quantizedChannel("@e|" + name, std::move(exponent), 0, noScale, transform),
        quantizedChannel("@s|" + name, std::move(sign), 0, noScale, transform)};
    for (ChannelPlan& part : parts)
        part.type = type;
    return parts;
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
    return FileWriter(plan).write();
}

} // namespace Quillmoran::Testing
