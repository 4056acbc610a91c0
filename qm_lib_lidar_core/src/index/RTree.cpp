#include "index/RTree.h"

#include "platform/Stream.h"
#include <vxunpack/Base.h>

#include <cmath>

namespace Quillmoran {

namespace {

constexpr ErrorCode readError = ErrorCode::IndexRead;
constexpr ErrorCode writeError = ErrorCode::IndexWrite;

template <class T>
void put(StreamWriter& writer, T value, const char* field)
{
    if (!writer.put_be(value))
        QM_THROW(writeError, "bad write -- %s", field);
}

template <class T>
T take(const unsigned char*& at)
{
    const T value = loadBigEndian<T>(at);
    at += sizeof(T);
    return value;
}

std::uint32_t quantize(double value, double scale, double offset)
{
    const double position = std::floor((value - offset) / scale + 0.5);
    // NaN fails both comparisons.
    if (!(position >= 0 && position <= UINT32_MAX))
        QM_THROW(writeError, "the rtree is too big");
    return static_cast<std::uint32_t>(position);
}

constexpr Bounds::Range Bounds::*ranges[] = {&Bounds::x, &Bounds::y, &Bounds::z};

} // namespace

void RTree::Preamble::write(StreamWriter& writer) const
{
    put(writer, static_cast<std::uint8_t>(maxNodes), "max nodes");
    put(writer, level, "level");
    put(writer, count, "count");
    for (const Axis& axis : axes) {
        put(writer, axis.scale, "scale");
        put(writer, axis.offset, "offset");
    }
}

void RTree::Preamble::read(StreamReader& reader)
{
    unsigned char bytes[preambleBytes];
    if (reader.read(bytes, preambleBytes) != preambleBytes)
        QM_THROW(readError, "bad read -- count");
    // The first byte, the capacity of a branch, is implied by the size of the records.
    const unsigned char* at = bytes + 1;
    level = take<std::uint8_t>(at);
    count = take<std::uint32_t>(at);
    for (Axis& axis : axes) {
        axis.scale = take<double>(at);
        axis.offset = take<double>(at);
    }
}

void RTree::Record::write(StreamWriter& writer, const Axis axes[3]) const
{
    put(writer, static_cast<std::uint8_t>(count), "node count");
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto [scale, offset] = axes[axis];
            const Bounds::Range& range = nodes[i].box.*ranges[axis];
            put(writer, quantize(range.min, scale, offset), "node bounds");
            put(writer, quantize(range.max, scale, offset), "node bounds");
        }
        put(writer, nodes[i].payload, "payload");
    }
    static constexpr unsigned char zeros[maxNodes * nodeBytes] = {};
    const std::size_t filler = (maxNodes - count) * nodeBytes;
    if (writer.write(zeros, filler) != filler)
        QM_THROW(writeError, "bad write -- filler");
}

void RTree::Record::read(StreamReader& reader, const Axis axes[3])
{
    unsigned char bytes[recordBytes];
    const std::size_t got = reader.read(bytes, recordBytes);
    if (got == 0 || bytes[0] > maxNodes)
        QM_THROW(readError, "bad read -- node count");
    count = bytes[0];
    if (got < 1 + count * nodeBytes) {
        const bool inPayload = (got - 1) % nodeBytes >= nodeBytes - sizeof(Node::payload);
        QM_THROW(readError, inPayload ? "bad read -- node payload" : "bad read -- node bounds");
    }
    const unsigned char* at = bytes + 1;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto [scale, offset] = axes[axis];
            Bounds::Range& range = nodes[i].box.*ranges[axis];
            range.min = take<std::uint32_t>(at) * scale + offset;
            range.max = take<std::uint32_t>(at) * scale + offset;
        }
        nodes[i].payload = take<std::uint32_t>(at);
    }
}

bool RTree::Iterator::next(double x, double y, double z, std::int64_t& value)
{
    const Bounds point{{x, x}, {y, y}, {z, z}};
    return advance(&point, value);
}

} // namespace Quillmoran
