#include "las/header/LASHeader.h"

#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr char signature[] = "LASF";
constexpr std::size_t minHeaderBytes = 227;
constexpr std::size_t maxHeaderBytes = 375;
// The upper bits of the point format mark a compressed file.
constexpr std::uint8_t compressedMark = 0x80;
constexpr std::uint8_t formatMask = 0x3F;
constexpr std::size_t formatAt = 104;

// Reader and Writer visit the fields of a block of known size; reading and writing share the lists of fields
// below.
struct Reader
{
    template <class T>
    void operator()(T& value)
    {
        value = loadLittleEndian<T>(next);
        next += sizeof(T);
    }
    void text(std::string& value)
    {
        const auto* begin = reinterpret_cast<const char*>(next);
        value.assign(begin, strnlen(begin, LASHeader::textBytes));
        next += LASHeader::textBytes;
    }

    const unsigned char* next;
};

struct Writer
{
    template <class T>
    void operator()(const T& value)
    {
        storeLittleEndian(next, value);
        next += sizeof(T);
    }
    void text(const std::string& value)
    {
        if (writesText)
            std::memcpy(next, value.data(), std::min(value.size(), LASHeader::textBytes));
        next += LASHeader::textBytes;
    }

    unsigned char* next;
    bool writesText;
};

template <class Field, class Header>
void visitIdentification(Field& field, Header& header)
{
    field(header.fileSourceID);
    field(header.globalEncoding);
    field(header.projectID.data1);
    field(header.projectID.data2);
    field(header.projectID.data3);
    for (auto& byte : header.projectID.data4)
        field(byte);
    field(header.versionMajor);
    field(header.versionMinor);
    field.text(header.systemIdentifier);
    field.text(header.generatingSoftware);
    field(header.creationDay);
    field(header.creationYear);
}

template <class Field, class Header, class Byte>
void visitPoints(Field& field, Header& header, Byte& markedFormat)
{
    field(header.headerSize);
    field(header.pointDataOffset);
    field(header.numVLRs);
    field(markedFormat);
    field(header.recordLength);
    field(header.legacyPointCount);
    for (auto& count : header.legacyPointsByReturn)
        field(count);
    for (auto& value : header.scale)
        field(value);
    for (auto& value : header.offset)
        field(value);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        field(header.max[axis]);
        field(header.min[axis]);
    }
}

template <class Field, class Header>
void visitLaterVersions(Field& field, Header& header)
{
    if (header.versionMinor >= 3)
        field(header.waveformDataStart);
    if (header.versionMinor >= 4) {
        field(header.firstEVLR);
        field(header.numEVLRs);
        field(header.pointCount);
        for (auto& count : header.pointsByReturn)
            field(count);
    }
}

[[noreturn]] void throwBad(const char* what)
{
    QM_THROW(ErrorCode::LASRead, "bad LAS header: %s", what);
}

void check(const LASHeader& header, std::size_t bytesRead)
{
    const bool known = header.versionMajor == 1 && header.versionMinor <= 4;
    const bool unset = header.versionMajor == 0 && header.versionMinor == 0;
    if (!known && !unset)
        QM_THROW(ErrorCode::LASRead, "bad LAS header: unknown version %d.%d", header.versionMajor,
                 header.versionMinor);
    if (header.headerSize < LASHeader::sizeOfVersion(header.versionMinor))
        throwBad("the header size is too small for the version");
    if (bytesRead < LASHeader::sizeOfVersion(header.versionMinor))
        throwBad("the file is too short");
    if (header.pointFormat.number > LASPointFormat::last)
        QM_THROW(ErrorCode::LASRead, "bad LAS header: unknown point format %d", header.pointFormat.number);
    if (header.recordLength < header.pointFormat.recordLength())
        throwBad("the point record length is too small for the point format");
    if (header.pointDataOffset < header.headerSize)
        throwBad("the points begin inside the header");
    for (std::size_t axis = 0; axis < 3; ++axis) {
        // A negative scale would swap minimum and maximum.
        constexpr char names[] = "xyz";
        if (!(header.scale[axis] > 0) || std::isinf(header.scale[axis]))
            QM_THROW(ErrorCode::LASRead, "bad LAS header: the %c scale is %g", names[axis],
                     header.scale[axis]);
        if (!std::isfinite(header.offset[axis]))
            QM_THROW(ErrorCode::LASRead, "bad LAS header: the %c offset is %g", names[axis],
                     header.offset[axis]);
    }
}

void store(const LASHeader& header, std::vector<unsigned char>& block, bool writesText)
{
    Writer field{block.data() + 4, writesText};
    const auto format = header.pointFormat.number;
    const auto markedFormat = static_cast<std::uint8_t>(header.compressed ? format | compressedMark : format);
    visitIdentification(field, header);
    visitPoints(field, header, markedFormat);
    visitLaterVersions(field, header);
}

} // namespace

std::uint16_t LASHeader::sizeOfVersion(std::uint8_t minor) noexcept
{
    return minor >= 4 ? maxHeaderBytes : minor == 3 ? minHeaderBytes + 8 : minHeaderBytes;
}

void LASHeader::read(const IO& io)
{
    std::array<unsigned char, maxHeaderBytes> bytes;
    parse({bytes.data(), readFully(io, 0, bytes.data(), bytes.size())});
}

void LASHeader::parse(std::span<const unsigned char> file)
{
    // Bytes after the end of the file are zeros; check() gets the number that exists.
    std::array<unsigned char, maxHeaderBytes> bytes{};
    std::copy_n(file.begin(), std::min(file.size(), bytes.size()), bytes.begin());
    if (std::memcmp(bytes.data(), signature, 4) != 0)
        throwBad("no \"LASF\" at the beginning");
    Reader field{bytes.data() + 4};
    std::uint8_t markedFormat = 0;
    visitIdentification(field, *this);
    visitPoints(field, *this, markedFormat);
    pointFormat.number = markedFormat & formatMask;
    compressed = (markedFormat & compressedMark) != 0;
    visitLaterVersions(field, *this);
    check(*this, file.size());
}

std::vector<unsigned char> LASHeader::write() const
{
    std::vector<unsigned char> bytes(headerSize);
    std::memcpy(bytes.data(), signature, 4);
    store(*this, bytes, true);
    return bytes;
}

std::vector<unsigned char> LASHeader::writeOver(std::vector<unsigned char> block) const
{
    const auto spareBit = static_cast<std::uint8_t>(block[formatAt] & ~(compressedMark | formatMask));
    block.resize(headerSize);
    store(*this, block, false);
    block[formatAt] = static_cast<std::uint8_t>(block[formatAt] | spareBit);
    return block;
}

std::uint64_t LASHeader::getPointCount() const noexcept
{
    // The legacy count of a 1.4 file may be 0 or outdated; some writers of 1.4 set only the legacy count.
    return versionMinor >= 4 && pointCount != 0 ? pointCount : legacyPointCount;
}

} // namespace Quillmoran
