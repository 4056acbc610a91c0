// Changes compressed files so that they remain well-formed: lengths agree, chunks keep their order, every
// channel has its bands. With bytes changed at random the container code would reject nearly all inputs before
// they reach the coders.
#include "support/Random.h"
#include "support/VX7File.h"

#include <cstring>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed);
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* a, std::size_t aSize,
                                                 const std::uint8_t* b, std::size_t bSize, std::uint8_t* out,
                                                 std::size_t maxSize, unsigned seed);

namespace Quillmoran::Fuzz {

namespace {

using Testing::Random;
using Chunk = VX7File::Chunk;

// Fields of the wavelet header chunk: version 1, points 8, last level 2, channels 2, then the records.
constexpr std::size_t pointsField = 1;
constexpr std::size_t levelField = 9;
constexpr std::size_t channelsField = 11;
constexpr std::size_t fixedHeaderBytes = 13;
// Fields of a subband chunk: version 1, channel 2, band 2, and since version 2 the lengths of two byte ranges.
constexpr std::size_t rangesField = 5;
constexpr std::size_t fixedBandBytes = 21;

constexpr std::uint64_t notableValues[] = {0,
                                           1,
                                           2,
                                           63,
                                           64,
                                           65,
                                           255,
                                           2047,
                                           2048,
                                           2049,
                                           0x7FFF,
                                           0x8000,
                                           0xFFFF,
                                           0x7FFFFFFF,
                                           0xFFFFFFFF,
                                           INT64_MAX,
                                           std::uint64_t{1} << 63,
                                           UINT64_MAX};

class Mutator
{
public:
    Mutator(VX7File file, unsigned seed) : m_file(std::move(file)), m_random(seed) {}

    Bytes mutate()
    {
        for (std::uint64_t rounds = 1 + m_random.below(3); rounds > 0; --rounds)
            change();
        return m_file.toBytes();
    }

    // Replaces payloads with those of another file.
    Bytes mixWith(const VX7File& other)
    {
        for (Chunk& chunk : m_file.chunks) {
            if (other.chunks.empty() || !m_random.chance(0.3))
                continue;
            const Chunk& theirs = other.chunks[m_random.below(other.chunks.size())];
            if (theirs.id == chunk.id)
                replaceBody(chunk, theirs);
        }
        return m_file.toBytes();
    }

private:
    void change()
    {
        if (m_file.chunks.empty())
            return;
        switch (m_random.below(12)) {
        case 0:
            changeVersions();
            break;
        case 1:
            changePoints();
            break;
        case 2:
        case 3:
            changeRecord();
            break;
        case 4:
            changeLevels();
            break;
        case 5:
            shuffleChunks();
            break;
        case 6:
            mutateBytes(pick().payload, 0);
            break;
        default:
            changeBand();
        }
    }

    Chunk& pick() { return m_file.chunks[m_random.below(m_file.chunks.size())]; }
    std::uint64_t notable() { return notableValues[m_random.below(std::size(notableValues))]; }

    // Lets libFuzzer change the bytes from `begin` on; their number may change.
    void mutateBytes(Bytes& bytes, std::size_t begin)
    {
        begin = std::min(begin, bytes.size());
        const std::size_t size = bytes.size() - begin;
        const std::size_t maxSize = size + 64;
        bytes.resize(begin + maxSize);
        bytes.resize(begin + LLVMFuzzerMutate(bytes.data() + begin, size, maxSize));
    }

    template <class T>
    static void put(Bytes& bytes, std::size_t at, T value)
    {
        if (at + sizeof(T) <= bytes.size())
            storeBigEndian(bytes.data() + at, value);
    }

    void changeVersions()
    {
        switch (m_random.below(3)) {
        case 0:
            m_file.preamble[7] = static_cast<std::uint8_t>(1 + m_random.below(4));
            break;
        case 1:
            mutateBytes(m_file.preamble, 4);
            m_file.preamble.resize(VX7File::preambleBytes);
            break;
        default:
            put<std::uint8_t>(pick().payload, 0, static_cast<std::uint8_t>(m_random.below(5)));
        }
    }

    void changePoints()
    {
        if (Chunk* header = m_file.find(CHUNK_WAVELET_HEADER))
            put<std::uint64_t>(header->payload, pointsField,
                               m_random.chance(0.3) ? notable() : m_random.below(5000));
    }

    // A record holds texts and numbers of different sizes; a change keeps its length.
    void changeRecord()
    {
        Chunk* const header = m_file.find(CHUNK_WAVELET_HEADER);
        if (!header || header->payload.size() <= fixedHeaderBytes)
            return;
        Bytes& payload = header->payload;
        const std::size_t at = fixedHeaderBytes + m_random.below(payload.size() - fixedHeaderBytes);
        switch (m_random.below(4)) {
        case 0:
            payload[at] = static_cast<std::uint8_t>(m_random.below(256));
            break;
        case 1: { // one of the codes of transforms
            constexpr std::uint8_t codes[] = {1, 3, 10, 11, 13, 61, 63, 70, 71, 73, 81, 83, 90, 91, 93};
            payload[at] = codes[m_random.below(std::size(codes))];
            break;
        }
        case 2:
            put<std::uint32_t>(payload, at, static_cast<std::uint32_t>(notable()));
            break;
        default:
            put<std::uint64_t>(payload, at, notable());
        }
    }

    // Every channel gets the number of bands that the header announces: copies of its last one, or fewer.
    void changeLevels()
    {
        Chunk* const header = m_file.find(CHUNK_WAVELET_HEADER);
        if (!header || header->payload.size() < fixedHeaderBytes)
            return;
        const auto levels = static_cast<std::uint16_t>(1 + m_random.below(m_random.chance(0.1) ? 80 : 8));
        const auto channels = loadBigEndian<std::uint16_t>(header->payload.data() + channelsField);
        put<std::uint16_t>(header->payload, levelField, static_cast<std::uint16_t>(levels - 1));
        std::vector<Chunk> chunks;
        std::vector<std::vector<Chunk>> bands(std::min<std::size_t>(channels, 64));
        std::size_t bandsAt = m_file.chunks.size();
        for (std::size_t i = 0; i < m_file.chunks.size(); ++i) {
            Chunk& chunk = m_file.chunks[i];
            if (chunk.id != CHUNK_SUBBAND || chunk.payload.size() < rangesField) {
                chunks.push_back(std::move(chunk));
                continue;
            }
            bandsAt = std::min(bandsAt, chunks.size());
            const auto channel = loadBigEndian<std::uint16_t>(chunk.payload.data() + 1);
            if (channel < bands.size())
                bands[channel].push_back(std::move(chunk));
        }
        std::vector<Chunk> regular;
        for (std::size_t channel = 0; channel < bands.size(); ++channel) {
            for (std::size_t level = 0; level < levels && !bands[channel].empty(); ++level) {
                Chunk band = bands[channel][std::min(level, bands[channel].size() - 1)];
                put<std::uint16_t>(band.payload, 1, static_cast<std::uint16_t>(channel));
                put<std::uint16_t>(band.payload, 3, static_cast<std::uint16_t>(level));
                regular.push_back(std::move(band));
            }
        }
        chunks.insert(chunks.begin() + static_cast<std::ptrdiff_t>(std::min(bandsAt, chunks.size())),
                      regular.begin(), regular.end());
        m_file.chunks = std::move(chunks);
    }

    void shuffleChunks()
    {
        const std::size_t at = m_random.below(m_file.chunks.size());
        const auto place = m_file.chunks.begin() + static_cast<std::ptrdiff_t>(at);
        switch (m_random.below(3)) {
        case 0:
            m_file.chunks.erase(place);
            break;
        case 1:
            m_file.chunks.insert(place, Chunk(m_file.chunks[at]));
            break;
        default:
            std::swap(*place, pick());
        }
    }

    void changeBand()
    {
        Chunk& chunk = pick();
        if (chunk.id != CHUNK_SUBBAND || chunk.payload.size() < fixedBandBytes || chunk.payload[0] == 1) {
            mutateBytes(chunk.payload, chunk.id == CHUNK_SUBBAND ? rangesField : 1);
            return;
        }
        // The data come first, then the headers.
        const auto stored = loadBigEndian<std::uint64_t>(chunk.payload.data() + rangesField);
        const auto begin = chunk.payload.begin() + fixedBandBytes;
        const auto dataBytes = static_cast<std::ptrdiff_t>(
            std::min<std::uint64_t>(stored, chunk.payload.size() - fixedBandBytes));
        Bytes data(begin, begin + dataBytes);
        Bytes headers(begin + dataBytes, chunk.payload.end());
        switch (m_random.below(5)) {
        case 0:
            mutateBytes(headers, 0);
            break;
        case 1:
            if (headers.size() >= 2)
                put<std::uint16_t>(headers, m_random.below(headers.size() - 1),
                                   static_cast<std::uint16_t>(2048 + m_random.below(300)));
            break;
        case 2:
            std::swap(headers, data);
            break;
        default:
            mutateBytes(data, 0);
        }
        Bytes& payload = chunk.payload;
        payload.resize(fixedBandBytes);
        put<std::uint64_t>(payload, rangesField, data.size());
        put<std::uint64_t>(payload, rangesField + 8, headers.size());
        payload.insert(payload.end(), data.begin(), data.end());
        payload.insert(payload.end(), headers.begin(), headers.end());
    }

    // A band keeps its place in the order.
    static void replaceBody(Chunk& chunk, const Chunk& theirs)
    {
        Bytes payload = theirs.payload;
        if (chunk.id == CHUNK_SUBBAND && payload.size() >= rangesField && chunk.payload.size() >= rangesField)
            std::copy_n(chunk.payload.begin() + 1, 4, payload.begin() + 1);
        chunk.payload = std::move(payload);
    }

    VX7File m_file;
    Random m_random;
};

std::size_t store(const Bytes& bytes, std::uint8_t* out, std::size_t maxSize)
{
    const std::size_t size = std::min(bytes.size(), maxSize);
    if (size != 0)
        std::memcpy(out, bytes.data(), size);
    return size;
}

} // namespace

} // namespace Quillmoran::Fuzz

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed)
{
    using namespace Quillmoran::Fuzz;
    // Some inputs are changed at random nevertheless, to damage lengths too.
    if (size < VX7File::preambleBytes || seed % 16 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    return store(Mutator(VX7File::parse({data, size}), seed).mutate(), data, maxSize);
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* a, std::size_t aSize,
                                                 const std::uint8_t* b, std::size_t bSize, std::uint8_t* out,
                                                 std::size_t maxSize, unsigned seed)
{
    using namespace Quillmoran::Fuzz;
    const VX7File theirs = VX7File::parse({b, bSize});
    return store(Mutator(VX7File::parse({a, aSize}), seed).mixWith(theirs), out, maxSize);
}
