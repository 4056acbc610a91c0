#include "las/laszip/LASzipCoding.h"

#include "las/header/LASVariableRecord.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <vector>

namespace Quillmoran {

namespace {

//   | compressor 2 | coder 2 | version 4 | options 4 | chunk size 4 | special EVLRs 8 | position 8 | items 2 |   34
//   per item | type 2 | size 2 | version 2 |                                                              6
constexpr std::size_t fixedBytes = 34;
constexpr std::size_t itemBytes = 6;

enum Compressor : unsigned
{
    POINTWISE = 1, // no chunks
    CHUNKED = 2,
    LAYERED = 3 // chunks that code each field separately, for formats 6 to 10
};

// A part of a point.
struct Item
{
    unsigned type;
    unsigned size; // bytes; 0: any
    unsigned minVersion;
    unsigned maxVersion;
    bool extended; // of formats 6 to 10
};
constexpr Item items[] = {
    {6, 20, 1, 2, false}, // common fields of formats 0 to 5
    {7, 8, 1, 2, false},  // GPS time
    {8, 6, 1, 2, false},  // colours
    {9, 29, 1, 1, false}, // wave packet
    {0, 0, 1, 2, false},  // user bytes
    {10, 30, 3, 4, true}, // common fields of formats 6 to 10
    {11, 6, 3, 4, true},  // colours
    {12, 8, 3, 4, true},  // colours and near infrared
    {13, 29, 3, 4, true}, // wave packet
    {14, 0, 3, 4, true},  // user bytes
};

bool isKnown(unsigned type, unsigned size, unsigned version, bool extended)
{
    return std::any_of(std::begin(items), std::end(items), [=](const Item& item) {
        return item.type == type && (item.size == 0 || item.size == size) && version >= item.minVersion &&
               version <= item.maxVersion && item.extended == extended;
    });
}

// The types of a point's items, in the required order. LASzip does not check whether a type is repeated, and
// then uses memory that it has freed.
std::vector<unsigned> itemTypesOf(const LASHeader& header)
{
    const LASPointFormat format = header.pointFormat;
    const bool userBytes = header.recordLength > format.recordLength();
    std::vector<unsigned> types;
    const auto append = [&types](bool has, unsigned type) {
        if (has)
            types.push_back(type);
    };
    if (format.isExtended()) {
        append(true, 10);
        append(format.hasColour(), format.hasNearInfrared() ? 12 : 11);
        append(format.hasWaveform(), 13);
        append(userBytes, 14);
    } else {
        append(true, 6);
        append(format.hasTime(), 7);
        append(format.hasColour(), 8);
        append(format.hasWaveform(), 9);
        append(userBytes, 0);
    }
    return types;
}

// Byte streams that code an item in a layered chunk.
std::size_t layersOf(unsigned type, unsigned size)
{
    return type == 10 ? 9 : type == 12 ? 2 : type == 14 ? size : 1;
}

[[noreturn]] void throwBad(const char* what)
{
    QM_THROW(ErrorCode::LASRead, "bad LAZ compression record: %s", what);
}

} // namespace

LASzipCoding LASzipCoding::parse(const std::vector<unsigned char>& value, const LASHeader& header)
{
    if (value.size() < fixedBytes)
        throwBad("it is too short");
    const unsigned compressor = loadLittleEndian<std::uint16_t>(value.data());
    if (compressor < POINTWISE || compressor > LAYERED)
        QM_THROW(ErrorCode::LASRead, "bad LAZ compression record: unknown compressor %u", compressor);
    if (const unsigned coder = loadLittleEndian<std::uint16_t>(value.data() + 2); coder != 0)
        QM_THROW(ErrorCode::LASRead, "bad LAZ compression record: unknown coder %u", coder);
    const std::size_t numItems = loadLittleEndian<std::uint16_t>(value.data() + 32);
    if (numItems == 0 || numItems > (value.size() - fixedBytes) / itemBytes)
        throwBad("the items are longer than the record");
    LASzipCoding coding;
    coding.chunked = compressor != POINTWISE;
    coding.chunkSize = loadLittleEndian<std::uint32_t>(value.data() + 12);
    coding.numSpecialRecords = loadLittleEndian<std::int64_t>(value.data() + 16);
    coding.specialRecords = loadLittleEndian<std::int64_t>(value.data() + 24);
    std::vector<unsigned> types;
    std::size_t pointSize = 0;
    for (std::size_t i = 0; i < numItems; ++i) {
        const unsigned char* const item = value.data() + fixedBytes + i * itemBytes;
        const unsigned type = loadLittleEndian<std::uint16_t>(item);
        const unsigned size = loadLittleEndian<std::uint16_t>(item + 2);
        const unsigned version = loadLittleEndian<std::uint16_t>(item + 4);
        if (!isKnown(type, size, version, compressor == LAYERED))
            QM_THROW(ErrorCode::LASRead,
                     "bad LAZ compression record: unknown item %u of %u bytes, version %u", type, size,
                     version);
        types.push_back(type);
        pointSize += size;
        coding.numLayers += compressor == LAYERED ? layersOf(type, size) : 0;
    }
    if (types != itemTypesOf(header))
        throwBad("its points are of another format than the header's");
    if (pointSize != header.recordLength)
        throwBad("its points are of another size than the header's");
    return coding;
}

bool LASzipCoding::isSame(std::span<const unsigned char> a, std::span<const unsigned char> b)
{
    constexpr std::size_t versionAt = 4;
    constexpr std::size_t versionEnd = 8;
    return a.size() == b.size() && a.size() >= fixedBytes &&
           std::equal(a.begin(), a.begin() + versionAt, b.begin()) &&
           std::equal(a.begin() + versionEnd, a.end(), b.begin() + versionEnd);
}

std::vector<unsigned char> makeLASzipHead(LASHeader header, const std::vector<unsigned char>& value)
{
    if (header.versionMajor == 0) {
        header.versionMajor = 1;
        header.versionMinor = 2;
    }
    header.headerSize = LASHeader::sizeOfVersion(header.versionMinor);
    header.numVLRs = 1;
    header.waveformDataStart = 0;
    header.firstEVLR = 0;
    header.numEVLRs = 0;
    std::vector<unsigned char> head = header.write();
    appendLASVariableRecord(head, LASVariableRecord::compressionUserID,
                            LASVariableRecord::compressionRecordID, nullptr, value.data(), value.size());
    return head;
}

} // namespace Quillmoran
