#include "support/Mutator.h"

#include "support/DigestChunk.h"

#include <cstring>

namespace Quillmoran::Testing {

namespace {

// Fields of the wavelet header chunk: version 1, points 8, last level 2, channels 2, then the records.
constexpr std::size_t levelField = 9;
constexpr std::size_t fixedHeaderBytes = 13;
// Fields of a subband chunk: version 1, channel 2, band 2, and since version 2 two lengths of byte ranges.
constexpr std::size_t bandField = 3;
constexpr std::size_t rangesField = 5;
constexpr std::size_t fixedBandBytes = 21;

std::ptrdiff_t signedOf(std::size_t value)
{
    return static_cast<std::ptrdiff_t>(value);
}

void insert(Bytes& bytes, std::size_t at, const Bytes& range)
{
    bytes.insert(bytes.begin() + signedOf(at), range.begin(), range.end());
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
    default: // remove, repeat or move a range
        std::size_t cuts[] = {anywhere(), anywhere(), anywhere()};
        std::sort(std::begin(cuts), std::end(cuts));
        const auto first = bytes.begin() + signedOf(cuts[0]), middle = bytes.begin() + signedOf(cuts[1]);
        const std::uint64_t kind = random.below(3);
        if (kind == 0)
            bytes.erase(first, middle);
        else if (kind == 1)
            insert(bytes, cuts[2], Bytes(first, middle));
        else
            std::rotate(first, middle, bytes.begin() + signedOf(cuts[2]));
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
    // Otherwise most changes of a file with digests would be refused before a point is decoded.
    Chunk* const digests = m_file.find(CHUNK_DIGESTS);
    if (digests && m_random.chance(0.5))
        DigestChunk::renew(digests->payload, m_file.toBytes());
    return hasChunks ? m_file.toBytes() : bytes;
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
        if (header && header->payload.size() > fixedHeaderBytes)
            changeLevels(header->payload.data() + levelField);
        break;
    case 5:
        shuffleChunks();
        break;
    default:
        changeBand(pick());
    }
}

// Every channel gets the number of bands that the header announces: copies of its last one, or fewer.
void Mutator::changeLevels(std::uint8_t* lastLevel)
{
    const auto before = loadBigEndian<std::uint16_t>(lastLevel);
    const auto after = static_cast<std::uint16_t>(m_random.below(m_random.chance(0.1) ? 80 : 8));
    storeBigEndian(lastLevel, after);
    std::vector<Chunk> chunks;
    for (const Chunk& chunk : m_file.chunks) {
        const bool isBand = chunk.id == CHUNK_SUBBAND && chunk.payload.size() >= rangesField;
        const int level = isBand ? loadBigEndian<std::uint16_t>(chunk.payload.data() + bandField) : -1;
        if (level <= after)
            chunks.push_back(chunk);
        for (int next = level + 1; level == before && next <= after; ++next) {
            chunks.push_back(chunk);
            storeBigEndian(chunks.back().payload.data() + bandField, static_cast<std::uint16_t>(next));
        }
    }
    m_file.chunks = std::move(chunks);
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

// Changes what follows the fields: of bands since version 2, a byte range whose length is then made to agree.
void Mutator::changeBand(Chunk& chunk)
{
    Bytes& payload = chunk.payload;
    const bool isBand = chunk.id == CHUNK_SUBBAND;
    const bool hasRanges = isBand && payload.size() >= fixedBandBytes && payload[0] != 1;
    const std::size_t fixed = hasRanges ? fixedBandBytes : isBand ? rangesField : 1;
    const auto begin = payload.begin() + signedOf(std::min(fixed, payload.size()));
    // The data come first, then the headers.
    const auto stored = hasRanges ? loadBigEndian<std::uint64_t>(payload.data() + rangesField) : UINT64_MAX;
    const auto rest = static_cast<std::size_t>(payload.end() - begin);
    const auto middle = begin + signedOf(std::min<std::uint64_t>(stored, rest));
    Bytes data(begin, middle), headers(middle, payload.end());
    const std::uint64_t kind = hasRanges ? m_random.below(5) : 4;
    if (kind == 0)
        m_changer(headers, m_random);
    else if (kind == 1 && headers.size() >= 2) // a run of zeros
        storeBigEndian(headers.data() + m_random.below(headers.size() - 1),
                       static_cast<std::uint16_t>(2048 + m_random.below(300)));
    else if (kind == 2)
        std::swap(headers, data);
    else
        m_changer(data, m_random);
    payload.erase(begin, payload.end());
    if (hasRanges) {
        storeBigEndian<std::uint64_t>(payload.data() + rangesField, data.size());
        storeBigEndian<std::uint64_t>(payload.data() + rangesField + 8, headers.size());
    }
    insert(payload, payload.size(), data);
    insert(payload, payload.size(), headers);
}

} // namespace Quillmoran::Testing
