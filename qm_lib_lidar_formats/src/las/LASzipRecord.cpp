#include "las/LASzipRecord.h"

#include "platform/Base.h"
#include "platform/ByteOrder.h"

#include <cstddef>
#include <iterator>

namespace Quillmoran {

namespace {

//   | compressor 2 | coder 2 | version 4 | options 4 | chunk size 4 | two numbers that are not used 16 |
//   items 2 |    34 per item | type 2 | size 2 | version 2 | 6
constexpr std::size_t fixedBytes = 34;
constexpr std::size_t itemBytes = 6;

// The parts of a point, by their number: bytes (0: any number of them) and the newest version of the coding.
struct Item
{
    std::uint16_t size;
    std::uint16_t newestVersion;
};
constexpr Item items[] = {
    {0, 2},  // bytes of the owner
    {2, 0},  // formats of points that nobody writes: 16-bit, 32-bit, 64-bit, float, double
    {4, 0},  //
    {8, 0},  //
    {4, 0},  //
    {8, 0},  //
    {20, 2}, // formats 0 to 5
    {8, 2},  // GPS time of formats 1, 3, 4 and 5
    {6, 2},  // colours of formats 2, 3 and 5
    {29, 1}, // wave packet of formats 4 and 5
    {30, 4}, // formats 6 to 10
    {6, 4},  // colours of format 7
    {8, 4},  // colours and near infrared of formats 8 and 10
    {29, 4}, // wave packet of formats 9 and 10
    {0, 4},  // bytes of the owner in formats 6 to 10
};

[[noreturn]] void throwBad(const char* what)
{
    QM_THROW(40602, "bad LAZ compression record: %s", what);
}

} // namespace

void checkLASzipRecord(const std::vector<unsigned char>& value, const LASHeader& header)
{
    if (value.size() < fixedBytes)
        throwBad("it is too short");
    constexpr unsigned newestCompressor = 3;
    const unsigned compressor = loadLittleEndian<std::uint16_t>(value.data());
    if (compressor == 0 || compressor > newestCompressor)
        QM_THROW(40602, "bad LAZ compression record: unknown compressor %u", compressor);
    if (const unsigned coder = loadLittleEndian<std::uint16_t>(value.data() + 2); coder != 0)
        QM_THROW(40602, "bad LAZ compression record: unknown coder %u", coder);
    const std::size_t numItems = loadLittleEndian<std::uint16_t>(value.data() + 32);
    if (numItems == 0 || numItems > (value.size() - fixedBytes) / itemBytes)
        throwBad("its items do not fit");
    std::size_t pointSize = 0;
    for (std::size_t i = 0; i < numItems; ++i) {
        const unsigned char* const item = value.data() + fixedBytes + i * itemBytes;
        const unsigned type = loadLittleEndian<std::uint16_t>(item);
        const unsigned size = loadLittleEndian<std::uint16_t>(item + 2);
        const unsigned version = loadLittleEndian<std::uint16_t>(item + 4);
        if (type >= std::size(items) || (items[type].size != 0 && items[type].size != size) ||
            version > items[type].newestVersion)
            QM_THROW(40602, "bad LAZ compression record: unknown item %u of %u bytes, version %u", type, size,
                     version);
        pointSize += size;
    }
    if (pointSize != header.recordLength)
        throwBad("its points are of another size than the header's");
}

void checkLASzipChunks(const IO& io, const LASHeader& header, const std::vector<unsigned char>& value)
{
    constexpr unsigned withoutChunks = 1; // the compressor of the oldest files
    if (loadLittleEndian<std::uint16_t>(value.data()) == withoutChunks || header.getPointCount() == 0)
        return;
    // | position of the table 8 | chunks ... | table: version 4 | number of chunks 4 | ...
    // A position of -1 means that it stands in the last 8 bytes of the file.
    const std::int64_t size = io.size();
    unsigned char bytes[8];
    const auto read = [&](std::int64_t position) {
        if (position < 0 || readFully(io, position, bytes, sizeof bytes) != sizeof bytes)
            QM_THROW(40602, "the LAZ chunk table is missing");
    };
    read(header.pointDataOffset);
    if (loadLittleEndian<std::int64_t>(bytes) == -1)
        read(size - static_cast<std::int64_t>(sizeof bytes));
    read(loadLittleEndian<std::int64_t>(bytes));
    const auto numChunks = loadLittleEndian<std::uint32_t>(bytes + 4);
    constexpr std::int64_t smallestChunk = 20; // it begins with a whole point
    if (numChunks > size / smallestChunk)
        QM_THROW(40602, "bad LAZ chunk table: %u chunks do not fit into the file", numChunks);
}

} // namespace Quillmoran
