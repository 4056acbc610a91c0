#include "pdal/BPFHeader.h"

#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t fixedBytes = 176;
constexpr std::int64_t compressionOffset = 14;
constexpr std::size_t labelBytes = 32;
constexpr std::size_t dimensionBytes = 3 * sizeof(double) + labelBytes;

void readWhole(const IO& io, std::int64_t position, void* bytes, std::size_t count)
{
    if (readFully(io, position, bytes, count) != count)
        QM_THROW(ErrorCode::BPFRead, "the file ends within its header");
}

} // namespace

void BPFHeader::read(const IO& io)
{
    unsigned char bytes[fixedBytes];
    readWhole(io, 0, bytes, sizeof bytes);
    constexpr char magic[] = {'B', 'P', 'F', '!', '0', '0', '0', '3'};
    if (std::memcmp(bytes, magic, sizeof magic) != 0)
        QM_THROW(ErrorCode::BPFRead, "not a BPF file of version 3");
    headerSize = loadLittleEndian<std::int32_t>(bytes + 8);
    compression = static_cast<BPFCompression>(bytes[compressionOffset]);
    numPoints = loadLittleEndian<std::int32_t>(bytes + 16);
    isUTM = loadLittleEndian<std::int32_t>(bytes + 20) == 1;
    const std::size_t count = bytes[12];
    if (numPoints < 0 || headerSize < 0 ||
        static_cast<std::size_t>(headerSize) < fixedBytes + count * dimensionBytes)
        QM_THROW(ErrorCode::BPFRead, "bad BPF header");
    readDimensions(io, count);
    if (compression != BPFCompression::None)
        forEachBlock(io, [](std::int64_t, std::int64_t, std::int64_t) {});
    else if (io.size() - headerSize < getPointBytes())
        QM_THROW(ErrorCode::BPFRead, "the file ends before the last of its %d points", numPoints);
}

void BPFHeader::readDimensions(const IO& io, std::size_t count)
{
    std::vector<unsigned char> bytes(count * dimensionBytes);
    readWhole(io, fixedBytes, bytes.data(), bytes.size());
    const unsigned char* const minima = bytes.data() + count * sizeof(double);
    const unsigned char* const maxima = minima + count * sizeof(double);
    const unsigned char* const labels = maxima + count * sizeof(double);
    dimensions.clear();
    for (std::size_t i = 0; i < count; ++i) {
        const auto* const label = reinterpret_cast<const char*>(labels + i * labelBytes);
        if (!std::isalpha(labels[i * labelBytes]))
            QM_THROW(ErrorCode::BPFRead, "bad BPF header"); // PDAL does not terminate on such names
        dimensions.push_back({std::string(label, strnlen(label, labelBytes)),
                              loadLittleEndian<double>(bytes.data() + i * sizeof(double)),
                              loadLittleEndian<double>(minima + i * sizeof(double)),
                              loadLittleEndian<double>(maxima + i * sizeof(double))});
    }
}

// Before each block are its sizes before and after compression.
void BPFHeader::forEachBlock(const IO& io,
                             const std::function<void(std::int64_t, std::int64_t, std::int64_t)>& visit) const
{
    constexpr std::int64_t sizesBytes = 8;
    std::int64_t missing = getPointBytes();
    for (std::int64_t position = headerSize; missing > 0;) {
        unsigned char sizes[sizesBytes];
        if (readFully(io, position, sizes, sizeof sizes) != sizeof sizes)
            QM_THROW(ErrorCode::BPFRead, "the file ends before the last of its %d points", numPoints);
        const std::int64_t size = loadLittleEndian<std::uint32_t>(sizes);
        const std::int64_t packedSize = loadLittleEndian<std::uint32_t>(sizes + 4);
        position += sizesBytes;
        if (size > missing)
            QM_THROW(ErrorCode::BPFRead, "bad block of compressed points");
        if (packedSize > io.size() - position)
            QM_THROW(ErrorCode::BPFRead, "the file ends before the last of its %d points", numPoints);
        visit(position, packedSize, size);
        position += packedSize;
        missing -= size;
    }
}

std::int64_t BPFHeader::getPointBytes() const
{
    return std::int64_t{numPoints} * static_cast<std::int64_t>(dimensions.size() * sizeof(float));
}

void BPFHeader::addOrigins(const IO& io, const std::vector<Origin>& origins) const
{
    const std::size_t count = dimensions.size();
    std::vector<unsigned char> bytes(3 * count * sizeof(double)); // offsets, minima, maxima
    readWhole(io, fixedBytes, bytes.data(), bytes.size());
    const auto add = [&bytes](std::size_t index, double difference) {
        unsigned char* const at = bytes.data() + index * sizeof(double);
        storeLittleEndian(at, loadLittleEndian<double>(at) + difference);
    };
    for (const Origin& each : origins) {
        const auto isNamed = [&each](const BPFDimension& dimension) { return dimension.label == each.label; };
        const auto found = std::find_if(dimensions.begin(), dimensions.end(), isNamed);
        const auto index = static_cast<std::size_t>(found - dimensions.begin());
        if (index == count)
            QM_THROW(ErrorCode::PointWrite, "dimension '%s' is missing in the output", each.label.c_str());
        add(index, each.origin / each.scale);
        add(count + index, each.origin);
        add(2 * count + index, each.origin);
    }
    writeFully(io, fixedBytes, bytes.data(), bytes.size());
}

void BPFHeader::setPlain(const IO& io)
{
    const auto none = BPFCompression::None;
    writeFully(io, compressionOffset, &none, sizeof none);
}

} // namespace Quillmoran
