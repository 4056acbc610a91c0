#include "decode/container/StoredDigests.h"

#include "common/container/ChunkHeader.h"
#include "common/container/Digest.h"
#include "platform/BoundedIO.h"
#include "platform/ByteOrder.h"
#include "platform/CheckedMath.h"
#include "platform/OpenIO.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <mutex>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::int64_t headBytes = 12;
constexpr std::int64_t tailBytes = 24; // digests of the index, the description and this chunk
constexpr std::int64_t digestBytes = 8;
constexpr std::uint8_t knownVersion = 1;
constexpr unsigned maxBlockBits = 62;
constexpr std::int64_t versionBytes = 8; // at the beginning of a file: magic and version

[[noreturn]] void throwDamaged()
{
    QM_THROW(ErrorCode::DigestDiffers, "the digests are damaged");
}

// Adds the bytes of a range. Returns false if the file is shorter.
bool addRange(Digest& digest, const IO::Location& range)
{
    std::array<unsigned char, 16384> buffer;
    const Scoped<IO> io(BoundedIO::create(range));
    const std::int64_t end = saturatingAdd(range.offset(), range.length());
    for (std::int64_t at = range.offset(); at < end;) {
        const std::size_t got = readFully(*io, at, buffer.data(), buffer.size());
        if (got == 0)
            return false;
        digest.add(buffer.data(), got);
        at += static_cast<std::int64_t>(got);
    }
    return true;
}

} // namespace

std::string StoredDigests::Samples::describe(const char* channel, std::int64_t block) const
{
    const std::int64_t first = block << blockBits;
    const std::int64_t last = first + std::min(numPoints - first, std::int64_t{1} << blockBits) - 1;
    char text[160];
    std::snprintf(text, sizeof text, "channel %.64s, points %" PRId64 " to %" PRId64 ": digest differs",
                  channel, first, last);
    return text;
}

void StoredDigests::setDigests(std::int64_t afterBands, const IO::Location& payload)
{
    const std::int64_t chunk = payload.offset() - ChunkHeader::size;
    m_rest.set(payload.io(), afterBands, chunk - afterBands);
    m_payload = payload;
}

bool StoredDigests::load() const
{
    if (!exist())
        return false;
    if (m_head)
        return m_head->version == knownVersion;
    IO* const io = m_payload.io();
    const OpenIO file(io);
    const std::int64_t begin = m_payload.offset();
    const std::int64_t length = m_payload.length();
    std::array<unsigned char, headBytes> head;
    std::array<unsigned char, tailBytes> tail;
    Digest own;
    if (length < headBytes + tailBytes || !addRange(own, {io, begin, length - digestBytes}) ||
        readFully(*io, begin, head.data(), head.size()) != head.size() ||
        readFully(*io, begin + length - tailBytes, tail.data(), tail.size()) != tail.size() ||
        own.get() != loadBigEndian<std::uint64_t>(tail.data() + 2 * digestBytes))
        throwDamaged();
    m_storedIndex = loadBigEndian<std::uint64_t>(tail.data());
    m_storedDescription = loadBigEndian<std::uint64_t>(tail.data() + digestBytes);
    m_head = Head{head[0], head[1], loadBigEndian<std::int64_t>(&head[2]),
                  loadBigEndian<std::uint16_t>(&head[10])};
    return m_head->version == knownVersion;
}

const StoredDigests::Samples* StoredDigests::getSamples(std::int64_t numPoints, std::size_t numChannels) const
{
    const std::lock_guard<Mutex> lock(m_mutex);
    if (!load())
        return nullptr;
    if (m_samples)
        return &*m_samples;
    if (m_head->blockBits > maxBlockBits || m_head->numPoints != numPoints ||
        m_head->numChannels != numChannels || numChannels == 0)
        throwDamaged();
    const std::int64_t numBlocks = numPoints == 0 ? 0 : ((numPoints - 1) >> m_head->blockBits) + 1;
    const std::int64_t bytes = m_payload.length() - headBytes - tailBytes;
    const auto blockBytes = static_cast<std::int64_t>(numChannels) * digestBytes;
    if (bytes % blockBytes != 0 || bytes / blockBytes != numBlocks)
        throwDamaged();
    readSamples(static_cast<std::size_t>(numBlocks));
    return &*m_samples;
}

// The bytes exist: load() has read them.
void StoredDigests::readSamples(std::size_t numBlocks) const
{
    Samples samples;
    samples.blockBits = m_head->blockBits;
    samples.numPoints = m_head->numPoints;
    samples.numBlocks = numBlocks;
    samples.digests.resize(numBlocks * m_head->numChannels);
    const std::size_t size = samples.digests.size() * digestBytes;
    const OpenIO file(m_payload.io());
    if (readFully(*file, m_payload.offset() + headBytes, samples.digests.data(), size) != size)
        throwDamaged();
    for (std::uint64_t& digest : samples.digests)
        digest = loadBigEndian<std::uint64_t>(&digest);
    m_samples = std::move(samples);
}

void StoredDigests::verifyIndex() const
{
    const std::lock_guard<Mutex> lock(m_mutex);
    if (m_isIndexGood || !load())
        return;
    const OpenIO file(m_payload.io());
    Digest digest;
    if (!addRange(digest, m_index) || digest.get() != m_storedIndex)
        QM_THROW(ErrorCode::DigestDiffers, "the index: digest differs");
    m_isIndexGood = true;
}

void StoredDigests::verifyDescription() const
{
    const std::lock_guard<Mutex> lock(m_mutex);
    if (m_isDescriptionGood || !load())
        return;
    const OpenIO file(m_payload.io());
    Digest digest;
    if (!addRange(digest, {m_payload.io(), 0, versionBytes}) || !addRange(digest, m_header) ||
        !addRange(digest, m_rest) || digest.get() != m_storedDescription)
        QM_THROW(ErrorCode::DigestDiffers, "headers and metadata: digest differs");
    m_isDescriptionGood = true;
}

} // namespace Quillmoran
