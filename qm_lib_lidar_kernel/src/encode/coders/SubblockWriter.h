// Encodes samples as subblocks: a small header into one stream of bytes, a payload into another. See
// decode/coders/SubblockReader.h, the counterpart.
//
// A writer is made for the coder of a channel's transform: MQIntegerWriter, ACIntegerWriter or
// GZFloatingPointWriter. Subblocks are independent, so several writers can share the work of a channel. Each
// writer is used by one thread at a time.
#pragma once

#include "common/coders/SubblockFormat.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class SubblockWriter
{
public:
    using Bytes = std::vector<std::uint8_t>;

    // Smaller subblocks may not have the capacity for their payloads; see getCapacity().
    static constexpr std::size_t smallestSubblock = 16;
    // The maximum for one header.
    static constexpr std::size_t longestZeroRun = 2048;

    // Throws InvalidArgument "unkown datatype"; General "bad transform type".
    static std::unique_ptr<SubblockWriter> create(const SubblockFormat& format);

    explicit SubblockWriter(const SubblockFormat& format) : m_format(format) {}
    virtual ~SubblockWriter();
    SubblockWriter(const SubblockWriter&) = delete;
    SubblockWriter& operator=(const SubblockWriter&) = delete;

    // Whether a subblock is stored without a payload: all its bits are zero. -0.0 is not zero.
    static bool isZero(const void* samples, std::size_t bytes) noexcept;
    // Appends the header of `count` zero subblocks, 1 to longestZeroRun.
    static void putZeroRun(TransformType transform, std::size_t count, Bytes& headers);

    // Appends a subblock of `count` samples, at most a full one and not all zero. Throws InvalidArgument if
    // the coder cannot represent the samples.
    virtual void encode(const void* samples, std::size_t count, Bytes& headers, Bytes& data) = 0;

    const SubblockFormat& getFormat() const noexcept { return m_format; }
    // Readers refuse larger payloads of integers: one and a half times the raw size of a full subblock.
    static std::size_t getCapacity(const SubblockFormat& format) noexcept
    {
        return format.subblockSize * DataTypeUtils::getSize(format.type) * 3 / 2;
    }

protected:
    static constexpr std::uint32_t firstPayloadHeader = 2048;

    std::size_t getCapacity() const noexcept { return getCapacity(m_format); }
    // The header of coders that store only a length.
    static void putPayloadHeader(std::size_t length, Bytes& headers);

private:
    SubblockFormat m_format;
};

// The writers of the three coders, for the table in Coder.cpp.
std::unique_ptr<SubblockWriter> createMQWriter(const SubblockFormat& format);
std::unique_ptr<SubblockWriter> createACWriter(const SubblockFormat& format);
std::unique_ptr<SubblockWriter> createGZWriter(const SubblockFormat& format);

template <class T>
void appendBigEndian(SubblockWriter::Bytes& bytes, T value)
{
    for (std::size_t i = sizeof(T); i-- > 0;)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

} // namespace Quillmoran
