#include "decode/container/BandTable.h"

#include "common/container/BandTableFormat.h"
#include "common/container/ChunkHeader.h"
#include "common/container/Digest.h"
#include "platform/ByteOrder.h"
#include <vxunpack/IO.h>

#include <algorithm>
#include <array>

namespace Quillmoran {

namespace {

constexpr std::int64_t maxTableBytes = 16 << 20;
// The other small chunks of a file, from its metadata on, are before the table, and are read soon.
constexpr std::int64_t tailBytes = 64 << 10;

} // namespace

std::optional<BandTable> BandTable::read(const IO& io)
{
    using namespace BandTableFormat;
    constexpr std::int64_t endSize = endBytes, minSize = headBytes + digestBytes + endBytes;
    const std::int64_t fileSize = io.size();
    const IO::Range tail{std::max<std::int64_t>(fileSize - tailBytes, 0), tailBytes};
    io.willRead({&tail, 1});
    std::array<unsigned char, endBytes> end;
    if (fileSize < endSize || readFully(io, fileSize - endSize, end.data(), end.size()) != end.size() ||
        loadBigEndian<std::uint32_t>(end.data() + 8) != CHUNK_BAND_TABLE)
        return std::nullopt;
    const auto length = loadBigEndian<std::int64_t>(end.data());
    if (length < minSize || length > std::min(maxTableBytes, fileSize))
        return std::nullopt;

    std::vector<unsigned char> payload(static_cast<std::size_t>(length));
    if (readFully(io, fileSize - length, payload.data(), payload.size()) != payload.size())
        return std::nullopt;
    const std::size_t digested = payload.size() - digestBytes - endBytes;
    Digest digest;
    digest.add(payload.data(), digested);
    BandTable table;
    table.numChannels = loadBigEndian<std::uint16_t>(&payload[1]);
    table.numBands = std::size_t{loadBigEndian<std::uint16_t>(&payload[3])} + 1;
    const std::uint64_t expected = headBytes + std::uint64_t{table.numChannels} * table.numBands * sizesBytes;
    if (payload[0] != version || digest.get() != loadBigEndian<std::uint64_t>(&payload[digested]) ||
        digested != expected)
        return std::nullopt;
    for (std::size_t at = headBytes; at < digested; at += sizesBytes) {
        const Sizes sizes{loadBigEndian<std::int64_t>(&payload[at]),
                          loadBigEndian<std::int64_t>(&payload[at + sizesBytes / 2])};
        if (sizes.data < 0 || sizes.headers < 0)
            return std::nullopt;
        table.bands.push_back(sizes);
    }
    return table;
}

} // namespace Quillmoran
