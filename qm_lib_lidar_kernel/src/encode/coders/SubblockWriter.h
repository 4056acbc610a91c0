// Codes runs of samples as the subblocks that decode/coders/SubblockReader.h reads back: a small header into one
// stretch of bytes, a payload into another.
//
// The writer is made for the coder of the channel's transform: MQIntegerWriter, ACIntegerWriter or
// GZFloatingPointWriter. Subblocks do not depend on each other, so any number of writers may share the work
// of a channel; each serves one thread at a time.
#pragma once

#include "common/coders/TransformUtils.h"
#include <vxunpack/DataType.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

struct SubblockFormat
{
    static constexpr int chooseRawPlanes = -1;

    DataType type = INVALID; // of the kernel
    TransformType transform = 0;
    std::size_t subblockSize = 0; // samples
    // One length per bit plane in place of a single one, as old files have for lifted channels.
    bool perPlaneLengths = false;
    // MQ coding: how many of the lowest planes are raw, or to choose it by what the coder would gain.
    int rawPlanes = chooseRawPlanes;
};

class SubblockWriter
{
public:
    using Bytes = std::vector<std::uint8_t>;

    // Smaller subblocks may not have room for their payloads; see getCapacity().
    static constexpr std::size_t smallestSubblock = 16;
    // What one header can announce.
    static constexpr std::size_t longestZeroRun = 2048;

    // Errors InvalidArgument: "unkown datatype"; -1 "bad transform type".
    static std::unique_ptr<SubblockWriter> create(const SubblockFormat& format);

    virtual ~SubblockWriter();
    SubblockWriter(const SubblockWriter&) = delete;
    SubblockWriter& operator=(const SubblockWriter&) = delete;

    // Whether a subblock is stored without a payload: all its bits are zero, so that -0.0 is none.
    static bool isZero(const void* samples, std::size_t bytes) noexcept;
    // Appends the header of `count` zero subblocks, 1 to longestZeroRun.
    static void putZeroRun(TransformType transform, std::size_t count, Bytes& headers);

    // Appends a subblock of `count` samples, at most a full one and not all zero. InvalidArgument "%s" when the coder
    // cannot hold the samples.
    virtual void encode(const void* samples, std::size_t count, Bytes& headers, Bytes& data) = 0;

    const SubblockFormat& getFormat() const noexcept { return m_format; }

protected:
    explicit SubblockWriter(const SubblockFormat& format) : m_format(format) {}

    static constexpr std::uint32_t firstPayloadHeader = 2048;

    // Readers refuse larger payloads of integers: one and a half times the raw size of a full subblock.
    std::size_t getCapacity() const noexcept
    {
        return m_format.subblockSize * DataTypeUtils::getSize(m_format.type) * 3 / 2;
    }
    // The header of the coders that announce nothing but a length.
    static void putPayloadHeader(std::size_t length, Bytes& headers);

private:
    SubblockFormat m_format;
};

template <class T>
void appendBigEndian(SubblockWriter::Bytes& bytes, T value)
{
    for (std::size_t i = sizeof(T); i-- > 0;)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

} // namespace Quillmoran
