#include "support/VX7FileBuilder.h"

#include "common/bands/KernelSamples.h"
#include "common/coders/KernelTypes.h"
#include "common/container/ChunkHeader.h"
#include "common/container/WaveletChannelInfo.h"
#include "index/MemoryRTree.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/ForwardWavelet.h"

#include <algorithm>
#include <cstring>

namespace Quillmoran::Testing {

namespace {

constexpr std::uint32_t defaultSubblock = 64;

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

class FileWriter
{
public:
    explicit FileWriter(const FilePlan& plan) : m_plan(plan), m_io(ByteStore::create())
    {
        for (const ChannelPlan& channel : plan.channels)
            m_channels.push_back(encodeChannel(plan, channel));
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
        for (std::size_t c = 0; c < m_channels.size(); ++c)
            for (std::size_t level = 0; level < m_channels[c].bands.size(); ++level)
                writeChunk(CHUNK_SUBBAND, [&] { writeBand(c, level, m_channels[c].bands[level]); });
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
                for (const EncodedChannel& channel : m_channels)
                    channel.record.saveExtended(m_out, ErrorCode::General);
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
        std::size_t numPoints = 0;
        if (!m_plan.channels.empty())
            numPoints = std::max(m_plan.channels[0].integers.size(), m_plan.channels[0].reals.size());
        m_out.put_be(m_plan.headerVersion);
        m_out.put_be(static_cast<std::int64_t>(numPoints));
        m_out.put_be(static_cast<std::uint16_t>(m_plan.numLevels - 1));
        m_out.put_be(static_cast<std::uint16_t>(m_channels.size()));
        for (const EncodedChannel& channel : m_channels)
            channel.record.save(m_out, ErrorCode::General);
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
    std::vector<EncodedChannel> m_channels;
    Scoped<ByteStore> m_io;
    StreamWriter m_out;
};

} // namespace

ChannelPlan quantizedChannel(const std::string& name, std::vector<std::int64_t> steps, double offset,
                             double scale, TransformType transform)
{
    return {name, FLOAT64, transform, defaultSubblock, offset, scale, std::move(steps), {}};
}

ChannelPlan integerChannel(const std::string& name, DataType type, std::vector<std::int64_t> values,
                           TransformType transform)
{
    return {name, type, transform, defaultSubblock, 0, 0, std::move(values), {}};
}

ChannelPlan deflatedChannel(const std::string& name, DataType type, std::vector<double> values,
                            TransformType transform)
{
    return {name, type, transform, defaultSubblock, 0, 0, {}, std::move(values)};
}

std::vector<ChannelPlan> splitChannel(const std::string& name, DataType type,
                                      const std::vector<double>& values, TransformType transform)
{
    const bool narrow = type == FLOAT32;
    const auto bitsOf = [narrow](double value) {
        std::uint64_t bits = 0;
        const auto single = static_cast<float>(value);
        if (narrow)
            std::memcpy(&bits, &single, sizeof single);
        else
            std::memcpy(&bits, &value, sizeof value);
        return bits;
    };
    const int fraction = narrow ? 23 : 52;
    const int exponent = narrow ? 8 : 11;
    struct Part
    {
        const char* prefix;
        int shift, width;
    };
    std::vector<ChannelPlan> channels;
    for (const Part& part : {Part{narrow ? "@f|" : "@d|", 0, fraction}, Part{"@e|", fraction, exponent},
                             Part{"@s|", fraction + exponent, 1}}) {
        std::vector<std::int64_t> integers;
        for (const double value : values)
            integers.push_back(static_cast<std::int64_t>(bitsOf(value) >> part.shift &
                                                         ((std::uint64_t{1} << part.width) - 1)));
        channels.push_back(integerChannel(part.prefix + name, type, std::move(integers), transform));
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
    return FileWriter(plan).write();
}

} // namespace Quillmoran::Testing
