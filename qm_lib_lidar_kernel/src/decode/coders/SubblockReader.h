// Decodes the subblocks of a band. A subblock is a fixed number of consecutive samples: a small header in one
// stream and, unless the header announces zeros, a payload in another stream.
//
//   header  h < 2048: this and the next h subblocks are zero; no payload
//           h >= 2048: a payload follows; each coder defines the rest of the header
//
// A channel has one reader, made for the coder of its transform: MQInteger, ACInteger or GZFloatingPoint.
// Headers are read one after the other by one thread. Payloads in memory are decoded in any order and on any
// thread.
//
// The counterpart is encode/coders/SubblockWriter.h.
#pragma once

#include "common/coders/BitPlanes.h"
#include "common/coders/SubblockFormat.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class MemoryBudget;
class StreamReader;

// The header of a subblock with a payload.
struct SubblockHeader
{
    std::uint64_t payloadLength = 0; // bytes; 0 for zeros
    BitPlanes planes{-1, -1, -2};    // of MQ-coded integers
};

// A payload in memory and the buffer for its samples.
struct CodedSubblock
{
    SubblockHeader header;
    const std::uint8_t* payload = nullptr;
    void* samples = nullptr;
    std::size_t count = 0; // of samples, at most a full subblock
};

class SubblockReader
{
public:
    // Throws InvalidArgument "unkown datatype"; General "bad transform type".
    static std::unique_ptr<SubblockReader> create(const SubblockFormat& format);

    explicit SubblockReader(const SubblockFormat& format) : m_format(format) {}
    virtual ~SubblockReader() = default;
    SubblockReader(const SubblockReader&) = delete;
    SubblockReader& operator=(const SubblockReader&) = delete;

    // Prepares the coder. Called once, before anything is read.
    virtual void init() = 0;
    // The reader and its bands take their memory from this budget, which must outlive them. Without a budget
    // there is no limit.
    void setBudget(MemoryBudget* budget) noexcept { m_budget = budget; }
    void takeMemory(std::uint64_t bytes);

    // Reads one header. Returns 0 if a payload follows, else the number of zero subblocks, including this
    // one. SubbandRead: "bad read -- subblock header", "bad read -- subblock data" and the errors of plane
    // lengths.
    std::size_t readHeader(StreamReader& headers, SubblockHeader& header) const;
    // Appends a payload to `bytes`. The length is checked against the stream before `bytes` grows. Throws
    // SubbandRead "bad read -- subblock data".
    void readPayload(const SubblockHeader& header, StreamReader& data, std::vector<std::uint8_t>& bytes);
    // Skips `skip` subblocks without decoding them. `pendingZeros` is the number of subblocks from here on
    // that are known to be zero; returns the same number for the position after the skipped subblocks.
    std::size_t skipSubblocks(std::uint64_t skip, StreamReader& headers, StreamReader& data,
                              std::size_t pendingZeros) const;

    // May be called from several threads at a time.
    virtual void decode(const CodedSubblock& subblock) const = 0;
    // Decodes two subblocks. A coder whose steps depend on each other interleaves them to hide latency.
    virtual void decodeTwo(const CodedSubblock& first, const CodedSubblock& second) const;
    // Whether decodeTwo() is faster than two calls of decode().
    virtual bool prefersTwo() const noexcept { return false; }

    // Reads and decodes the next subblock of `count` samples into `out`. `pendingZeros` and the returned
    // value are those of skipSubblocks(). For tests and tools; chains of a query prepare many subblocks
    // first.
    std::size_t loadSubblock(StreamReader& headers, StreamReader& data, void* out, std::size_t count,
                             std::size_t pendingZeros);

    const SubblockFormat& getFormat() const noexcept { return m_format; }

protected:
    // Sets the largest payload of a full subblock. Headers that announce more are refused.
    void init(std::uint64_t payloadCapacity) { m_payloadCapacity = payloadCapacity; }
    // For integers: one and a half times the size of the samples.
    void initForIntegers() { init(std::uint64_t{m_format.subblockSize} * elementSize() * 3 / 2); }

    // The 32-bit header of coders that store only a length: zeros, or 2048 plus the length of the payload.
    virtual std::size_t readSubblockHeader(StreamReader& headers, SubblockHeader& header) const;

    static constexpr std::uint32_t firstPayloadHeader = 2048;

private:
    std::size_t elementSize() const noexcept { return DataTypeUtils::getSize(m_format.type); }

    SubblockFormat m_format;
    MemoryBudget* m_budget = nullptr;
    std::uint64_t m_payloadCapacity = 0;
};

// The readers of the three coders, for the table in Coder.cpp.
std::unique_ptr<SubblockReader> createMQReader(const SubblockFormat& format);
std::unique_ptr<SubblockReader> createACReader(const SubblockFormat& format);
std::unique_ptr<SubblockReader> createGZReader(const SubblockFormat& format);

} // namespace Quillmoran
