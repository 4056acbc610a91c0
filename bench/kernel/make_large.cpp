// Writes a file of any number of points without holding them: make_large PATH MILLIONS
//
// Bands of a channel without lifting are its even and odd samples over and over, so a file can be made of one
// coded subblock per channel, repeated. Each point's coordinates recur every 4096 points; sizes and work are
// those of a real file.
#include "common/ChannelInfo.h"
#include "common/ChunkHeader.h"
#include "framework/Metadata.h"
#include "index/MemoryRTree.h"
#include "platform/FileIO.h"
#include "platform/Stream.h"
#include "support/Random.h"
#include "support/SubblockEncoder.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

using namespace Quillmoran;
using Testing::BandOptions;
using Testing::EncodedBand;

namespace {

constexpr std::size_t subblockSize = 4096;
constexpr std::uint32_t numLevels = 8;

struct Channel
{
    const char* name;
    DataType type;
    TransformType transform;
    int bits; // of a sample
};

constexpr Channel channels[] = {
    {"X", FLOAT64, 10, 20},       {"Y", FLOAT64, 10, 20},      {"Z", FLOAT64, 10, 14},
    {"Intensity", UINT16, 90, 8}, {"ReturnNum", UINT8, 90, 2}, {"ClassId", UINT8, 90, 3},
    {"ScanAngle", SINT8, 90, 5},  {"SourceId", UINT16, 90, 4}, {"Red", UINT16, 90, 8},
    {"Green", UINT16, 90, 8},     {"Blue", UINT16, 90, 8},
};

class LargeFile
{
public:
    LargeFile(const char* path, std::int64_t numPoints) : m_numPoints(numPoints), m_file(FileIO::create())
    {
        m_file->init(path, "w");
        m_out.init(m_file.get(), true, 1 << 20);
    }

    void write()
    {
        m_out.put_str("vxil");
        m_out.put_be(std::uint32_t{0x04000004});
        m_out.put_be(UINT64_MAX);
        chunk(CHUNK_GROUP, [this] {
            chunk(CHUNK_WAVELET_HEADER, [this] { writeHeader(); });
            chunk(CHUNK_INDEX, [this] {
                m_out.put_be(std::uint8_t{1});
                m_out.put_be(std::uint32_t{subblockSize});
                m_out.put_be(std::uint32_t{0});
            });
            for (std::size_t c = 0; c < std::size(channels); ++c)
                writeBands(c);
            chunk(CHUNK_METADATA, [this] { Metadata().write(m_out); });
            for (const ChunkId id : {CHUNK_WKT, CHUNK_CLASS_NAMES}) {
                chunk(id, [this] {
                    m_out.put_be(std::uint8_t{1});
                    m_out.put_be(std::uint32_t{0});
                });
            }
        });
        m_out.close(true);
    }

private:
    template <class Payload>
    void chunk(ChunkId id, Payload payload)
    {
        ChunkHeader header;
        header.id = id;
        header.write(m_out, false);
        payload();
        header.write(m_out, true);
    }

    WaveletChannelInfo record(const Channel& channel) const
    {
        WaveletChannelInfo info;
        const bool quantized = DataTypeUtils::isFloat(channel.type);
        info.init(channel.name, channel.type, 31, channel.transform, subblockSize, 0, quantized ? 0.01 : 0);
        info.reserveKernel(2);
        auto* kernel = static_cast<std::int32_t*>(info.getKernel().getData());
        kernel[0] = -(1 << 20); // one width of kernel for all, so that one coder serves
        kernel[1] = 1 << 20;
        info.updateMinMax(2);
        return info;
    }

    void writeHeader()
    {
        m_out.put_be(std::uint8_t{2});
        m_out.put_be(m_numPoints);
        m_out.put_be(static_cast<std::uint16_t>(numLevels - 1));
        m_out.put_be(static_cast<std::uint16_t>(std::size(channels)));
        for (const Channel& channel : channels)
            record(channel).save(m_out, -1);
    }

    void writeBands(std::size_t c)
    {
        Testing::Random random(c);
        std::vector<std::int32_t> samples(subblockSize);
        for (std::int32_t& sample : samples)
            sample = static_cast<std::int32_t>(random.below(std::uint64_t{1} << channels[c].bits));
        BandOptions options;
        options.transform = channels[c].transform;
        options.subblockSize = subblockSize;
        const EncodedBand full = Testing::encodeBand(samples, options, false);
        for (std::uint32_t band = 0; band < numLevels; ++band) {
            std::int64_t count = ((m_numPoints - 1) >> (numLevels - 1 - band)) + 1;
            if (band == 0)
                count = ((m_numPoints - 1) >> (numLevels - 1)) + 1;
            else
                count /= 2;
            const auto rest = static_cast<std::size_t>(count % static_cast<std::int64_t>(subblockSize));
            const EncodedBand last =
                Testing::encodeBand(std::vector<std::int32_t>(
                                        samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(rest)),
                                    options, false);
            chunk(CHUNK_SUBBAND,
                  [&] { writeBand(c, band, count / static_cast<std::int64_t>(subblockSize), full, last); });
        }
    }

    void writeBand(std::size_t c, std::uint32_t band, std::int64_t repeats, const EncodedBand& full,
                   const EncodedBand& last)
    {
        const auto length = [&](std::size_t each, std::size_t end) {
            return repeats * static_cast<std::int64_t>(each) + static_cast<std::int64_t>(end);
        };
        m_out.put_be(std::uint8_t{3});
        m_out.put_be(static_cast<std::uint16_t>(c));
        m_out.put_be(static_cast<std::uint16_t>(band));
        m_out.put_be(length(full.data.size(), last.data.size()));
        m_out.put_be(length(full.headers.size(), last.headers.size()));
        for (const auto part : {&EncodedBand::data, &EncodedBand::headers}) {
            for (std::int64_t i = 0; i < repeats; ++i)
                m_out.write((full.*part).data(), (full.*part).size());
            m_out.write((last.*part).data(), (last.*part).size());
        }
    }

    std::int64_t m_numPoints;
    Scoped<FileIO::Imp> m_file;
    StreamWriter m_out;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3 || std::atof(argv[2]) <= 0) {
        std::fprintf(stderr, "usage: make_large PATH MILLIONS\n");
        return 1;
    }
    try {
        LargeFile(argv[1], static_cast<std::int64_t>(std::atof(argv[2]) * 1e6)).write();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}
