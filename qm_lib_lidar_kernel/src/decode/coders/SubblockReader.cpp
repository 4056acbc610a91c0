#include "decode/coders/SubblockReader.h"

#include "common/coders/Coder.h"
#include "decode/MemoryBudget.h"
#include "platform/Stream.h"

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr ErrorCode subblockError = ErrorCode::SubbandRead;

} // namespace

std::unique_ptr<SubblockReader> SubblockReader::create(const SubblockFormat& format)
{
    return TransformUtils::getCoder(format.transform).createReader(format);
}

void SubblockReader::takeMemory(std::uint64_t bytes)
{
    if (m_budget)
        m_budget->take(bytes);
}

std::size_t SubblockReader::readHeader(StreamReader& headers, SubblockHeader& header) const
{
    header = {};
    const std::size_t zeros = readSubblockHeader(headers, header);
    if (header.payloadLength > m_payloadCapacity)
        QM_THROW(subblockError, "bad read -- subblock data");
    return zeros;
}

std::size_t SubblockReader::readSubblockHeader(StreamReader& headers, SubblockHeader& header) const
{
    std::uint32_t value = 0;
    if (!headers.get_be(value))
        QM_THROW(subblockError, "bad read -- subblock header");
    if (value < firstPayloadHeader)
        return std::size_t{value} + 1;
    header.payloadLength = value - firstPayloadHeader;
    return 0;
}

void SubblockReader::readPayload(const SubblockHeader& header, StreamReader& data,
                                 std::vector<std::uint8_t>& bytes)
{
    if (header.payloadLength > data.remaining())
        QM_THROW(subblockError, "bad read -- subblock data");
    const auto length = static_cast<std::size_t>(header.payloadLength);
    const std::size_t before = bytes.size();
    const std::size_t capacity = bytes.capacity();
    if (length > capacity - before) {
        const std::size_t wanted = std::max(before + length, capacity + capacity / 2);
        takeMemory(wanted - capacity);
        bytes.reserve(wanted);
    }
    bytes.resize(before + length);
    if (data.read(bytes.data() + before, length) != length)
        QM_THROW(subblockError, "bad read -- subblock data");
}

void SubblockReader::decodeTwo(const CodedSubblock& first, const CodedSubblock& second) const
{
    decode(first);
    decode(second);
}

std::size_t SubblockReader::loadSubblock(StreamReader& headers, StreamReader& data, void* out,
                                         std::size_t count, std::size_t pendingZeros)
{
    SubblockHeader header;
    const std::size_t zeros = pendingZeros != 0 ? pendingZeros : readHeader(headers, header);
    if (zeros != 0) {
        std::memset(out, 0, count * elementSize());
        return zeros - 1;
    }
    std::vector<std::uint8_t> payload;
    readPayload(header, data, payload);
    decode({header, payload.data(), out, count});
    return 0;
}

std::size_t SubblockReader::skipSubblocks(std::uint64_t skip, StreamReader& headers, StreamReader& data,
                                          std::size_t pendingZeros) const
{
    for (;;) {
        const std::uint64_t taken = std::min<std::uint64_t>(pendingZeros, skip);
        pendingZeros -= static_cast<std::size_t>(taken);
        skip -= taken;
        if (skip == 0)
            return pendingZeros;
        SubblockHeader header;
        pendingZeros = readHeader(headers, header);
        if (pendingZeros == 0) {
            data.seek(static_cast<std::int64_t>(header.payloadLength), Stream::SEEK_FROM_CURRENT);
            --skip;
        }
    }
}

} // namespace Quillmoran
