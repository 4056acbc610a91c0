#include "support/Mutator.h"

#include <cstring>
#include <map>

namespace Quillmoran::Testing {

namespace {

// Fields of the wavelet header chunk: version 1, points 8, last level 2, channels 2, then the records.
constexpr std::size_t levelField = 9;
constexpr std::size_t fixedHeaderBytes = 13;
// Fields of a subband chunk: version 1, channel 2, band 2, and since version 2 two lengths of byte ranges.
constexpr std::size_t bandField = 3;
constexpr std::size_t rangesField = 5;
constexpr std::size_t fixedBandBytes = 21;

template <class T>
void put(Bytes& bytes, std::size_t at, T value)
{
    if (at + sizeof(T) <= bytes.size())
        storeBigEndian(bytes.data() + at, value);
}

std::ptrdiff_t signedOf(std::size_t value)
{
    return static_cast<std::ptrdiff_t>(value);
}

// Limits of types and of fields, and the codes of transforms.
std::uint64_t notable(Random& random)
{
    constexpr std::uint64_t wide[] = {UINT64_MAX / 8, 0x7FF0000000000000, INT64_MAX, std::uint64_t{1} << 63,
                                      UINT64_MAX};
    constexpr std::uint32_t values[] = {
        0,   1,    2,    3,    4,      10,     11,     13,         61,         63,        64,
        65,  70,   71,   73,   81,     83,     90,     91,         93,         127,       128,
        255, 2047, 2048, 2049, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    return random.chance(0.2) ? wide[random.below(std::size(wide))] : values[random.below(std::size(values))];
}

// Sets a number of any width and byte order.
void changeNumber(Bytes& bytes, std::size_t at, Random& random)
{
    const std::uint64_t value = random.chance(0.2) ? bytes.size() - random.below(2) : notable(random);
    const std::size_t width = 1u << random.below(4);
    const bool bigEndian = random.chance(0.5);
    for (std::size_t i = 0; i < width && at + i < bytes.size(); ++i)
        bytes[at + i] = static_cast<std::uint8_t>(value >> 8 * (bigEndian ? width - 1 - i : i));
}

} // namespace

void changeBytes(Bytes& bytes, Random& random)
{
    if (bytes.empty())
        return;
    // Most fields are at the beginning of a file.
    const std::size_t scope = random.chance(0.5) ? bytes.size() : std::min<std::size_t>(bytes.size(), 400);
    const auto anywhere = [&] { return random.below(scope); };
    switch (random.below(4)) {
    case 0:
        bytes[anywhere()] ^= static_cast<std::uint8_t>(1u << random.below(8));
        break;
    case 1:
        for (std::uint64_t count = random.between(1, 12); count > 0; --count)
            bytes[anywhere()] = static_cast<std::uint8_t>(random.chance(0.3) ? 0xFF : random.below(256));
        break;
    case 2:
        changeNumber(bytes, anywhere(), random);
        break;
    default:
        std::ptrdiff_t cuts[] = {signedOf(anywhere()), signedOf(anywhere()), signedOf(anywhere())};
        std::sort(std::begin(cuts), std::end(cuts));
        const auto first = bytes.begin() + cuts[0], middle = bytes.begin() + cuts[1];
        const Bytes range(first, middle);
        switch (random.below(3)) {
        case 0:
            bytes.erase(first, middle);
            break;
        case 1:
            bytes.insert(bytes.begin() + cuts[2], range.begin(), range.end());
            break;
        default:
            std::rotate(first, middle, bytes.begin() + cuts[2]);
        }
    }
}

Bytes Mutator::mutate(Bytes bytes)
{
    const bool hasChunks =
        bytes.size() >= VX7Chunks::preambleBytes && std::memcmp(bytes.data(), "vxil", 4) == 0;
    m_file = hasChunks ? VX7Chunks::parse(bytes) : VX7Chunks();
    for (std::uint64_t rounds = 1 + m_random.below(3); rounds > 0; --rounds) {
        if (m_file.chunks.empty())
            m_changer(bytes, m_random);
        else
            changeChunks();
    }
    return hasChunks ? m_file.toBytes() : bytes;
}

Bytes Mutator::mix(const Bytes& bytes, const Bytes& other)
{
    m_file = VX7Chunks::parse(bytes);
    const VX7Chunks theirs = VX7Chunks::parse(other);
    for (Chunk& chunk : m_file.chunks) {
        if (theirs.chunks.empty() || !m_random.chance(0.3))
            continue;
        const Chunk& another = theirs.chunks[m_random.below(theirs.chunks.size())];
        if (another.id != chunk.id)
            continue;
        Bytes payload = another.payload;
        // A band keeps its place in the order.
        if (chunk.id == CHUNK_SUBBAND && std::min(payload.size(), chunk.payload.size()) >= rangesField)
            std::copy_n(chunk.payload.begin() + 1, rangesField - 1, payload.begin() + 1);
        chunk.payload = std::move(payload);
    }
    return m_file.toBytes();
}

void Mutator::changeChunks()
{
    Chunk* const header = m_file.find(CHUNK_WAVELET_HEADER);
    switch (m_random.below(10)) {
    case 0:
        changeNumber(m_file.preamble, m_random.below(VX7Chunks::preambleBytes), m_random);
        break;
    case 1:
        changeNumber(pick().payload, m_random.below(fixedBandBytes), m_random);
        break;
    case 2:
    case 3: // more often in the fields before the records
        if (header && header->payload.size() > fixedHeaderBytes)
            changeNumber(header->payload,
                         m_random.below(m_random.chance(0.3) ? fixedHeaderBytes : header->payload.size()),
                         m_random);
        break;
    case 4:
        if (header)
            changeLevels(header->payload);
        break;
    case 5:
        shuffleChunks();
        break;
    default:
        changeBand(pick());
    }
}

void Mutator::changeRest(Bytes& bytes, std::size_t begin)
{
    begin = std::min(begin, bytes.size());
    Bytes rest(bytes.begin() + signedOf(begin), bytes.end());
    m_changer(rest, m_random);
    bytes.resize(begin);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
}

// Every channel gets the number of bands that the header announces: copies of its last one, or fewer.
void Mutator::changeLevels(Bytes& header)
{
    const auto levels = static_cast<std::uint16_t>(1 + m_random.below(m_random.chance(0.1) ? 80 : 8));
    put(header, levelField, static_cast<std::uint16_t>(levels - 1));
    const auto isBand = [](const Chunk& chunk) {
        return chunk.id == CHUNK_SUBBAND && chunk.payload.size() >= rangesField;
    };
    std::vector<Chunk>& chunks = m_file.chunks;
    const auto place = std::find_if(chunks.begin(), chunks.end(), isBand) - chunks.begin();
    std::map<std::uint16_t, std::vector<Chunk>> channels;
    for (const Chunk& chunk : chunks)
        if (isBand(chunk))
            channels[loadBigEndian<std::uint16_t>(chunk.payload.data() + 1)].push_back(chunk);
    chunks.erase(std::remove_if(chunks.begin(), chunks.end(), isBand), chunks.end());
    std::vector<Chunk> regular;
    for (const auto& [channel, bands] : channels) {
        for (std::uint16_t level = 0; level < levels; ++level) {
            regular.push_back(bands[std::min<std::size_t>(level, bands.size() - 1)]);
            put(regular.back().payload, bandField, level);
        }
    }
    chunks.insert(chunks.begin() + place, regular.begin(), regular.end());
}

void Mutator::shuffleChunks()
{
    Chunk& chunk = pick();
    const auto place = m_file.chunks.begin() + (&chunk - m_file.chunks.data());
    switch (m_random.below(3)) {
    case 0:
        m_file.chunks.erase(place);
        break;
    case 1:
        m_file.chunks.insert(place, Chunk(chunk));
        break;
    default:
        std::swap(chunk, pick());
    }
}

void Mutator::changeBand(Chunk& chunk)
{
    Bytes& payload = chunk.payload;
    if (chunk.id != CHUNK_SUBBAND || payload.size() < fixedBandBytes || payload[0] == 1) {
        changeRest(payload, chunk.id == CHUNK_SUBBAND ? rangesField : 1);
        return;
    }
    // The data come first, then the headers.
    const auto stored = loadBigEndian<std::uint64_t>(payload.data() + rangesField);
    const auto begin = payload.begin() + fixedBandBytes;
    const auto middle = begin + signedOf(std::min<std::uint64_t>(stored, payload.size() - fixedBandBytes));
    Bytes data(begin, middle), headers(middle, payload.end());
    switch (m_random.below(5)) {
    case 0:
        m_changer(headers, m_random);
        break;
    case 1: // a run of zeros
        if (headers.size() >= 2)
            put(headers, m_random.below(headers.size() - 1),
                static_cast<std::uint16_t>(2048 + m_random.below(300)));
        break;
    case 2:
        std::swap(headers, data);
        break;
    default:
        m_changer(data, m_random);
    }
    payload.resize(fixedBandBytes);
    put<std::uint64_t>(payload, rangesField, data.size());
    put<std::uint64_t>(payload, rangesField + 8, headers.size());
    payload.insert(payload.end(), data.begin(), data.end());
    payload.insert(payload.end(), headers.begin(), headers.end());
}

} // namespace Quillmoran::Testing
