// Turns the subblocks of a band back into samples. A subblock is a run of samples of a fixed size: a small
// header in one stream and, unless the header announces zeros, a payload in another.
//
//   header  h < 2048: this and the next h subblocks are zero, no payload
//           h >= 2048: a payload follows; what h tells beside that is the coder's
//
// The reader is made for the coder of the channel's transform: MQInteger, ACInteger or GZFloatingPoint, and
// serves all bands of the channel. Headers are read one after the other; payloads, once they are in memory,
// are decoded in any order and on any thread.
#pragma once

#include "common/coders/BitPlanes.h"
#include "common/coders/TransformUtils.h"
#include <vxunpack/DataType.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class MemoryBudget;
class StreamReader;

// What the header of a subblock tells of its payload.
struct SubblockHeader
{
    std::uint64_t payloadLength = 0; // bytes; 0 for zeros
    BitPlanes planes{-1, -1, -2};    // of MQ-coded integers
};

// A payload in memory and the place for its samples.
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
    // The reader for a kernel type and a transform. `perPlaneLengths` asks for one length per bit plane,
    // which old files have for wavelet transforms that are MQ coded. `name` is kept as it is given. Errors
    // InvalidArgument: "unkown datatype"; -1 "bad transform type".
    static std::unique_ptr<SubblockReader> create(DataType type, TransformType transform, const char* name,
                                                  std::size_t subblockSize, bool perPlaneLengths);

    virtual ~SubblockReader() = default;
    SubblockReader(const SubblockReader&) = delete;
    SubblockReader& operator=(const SubblockReader&) = delete;

    // Prepares the coder; once, before anything is loaded.
    virtual void init() = 0;
    // What the reader and its bands allocate is taken from this budget, which must outlive them; without one
    // there is no limit.
    void setBudget(MemoryBudget* budget) noexcept { m_budget = budget; }
    void takeMemory(std::uint64_t bytes);

    // Produces subblock `index` of `count` samples in `out` and returns how many of the following subblocks
    // are known to be zero. `pendingZeros` is what the previous call returned. Errors SubbandRead: "bad read --
    // subblock header", "bad read -- subblock data" and those of the plane lengths.
    std::size_t loadSubblock(std::size_t index, StreamReader& headers, StreamReader& data, void* out,
                             std::size_t count, std::size_t pendingZeros);
    // Passes over `skip` subblocks without decoding them and returns the zeros pending behind them.
    std::size_t skipSubblocks(std::uint64_t skip, StreamReader& headers, StreamReader& data,
                              std::size_t pendingZeros) const;

    // The steps of loadSubblock(). Reads one header. 0: a payload follows; else the number of zero subblocks,
    // this one included.
    std::size_t readHeader(StreamReader& headers, SubblockHeader& header) const;
    // Appends a payload to `bytes`, which is compared with the bytes that are there before it grows.
    void readPayload(const SubblockHeader& header, StreamReader& data, std::vector<std::uint8_t>& bytes);
    // Any number of threads may decode at a time.
    virtual void decode(const CodedSubblock& subblock) const = 0;
    // A coder whose steps wait for each other decodes two subblocks in turn.
    virtual void decodeTwo(const CodedSubblock& first, const CodedSubblock& second) const;
    // Whether that is faster than one after the other.
    virtual bool prefersTwo() const noexcept { return false; }

    DataType getDataType() const noexcept { return m_dataType; }
    TransformType getTransformType() const noexcept { return m_transform; }
    const char* getName() const noexcept { return m_name; }
    std::size_t getSubblockSize() const noexcept { return m_subblockSize; }

protected:
    SubblockReader(DataType type, TransformType transform, const char* name, std::size_t subblockSize,
                   bool perPlaneLengths);

    // The largest payload of a full subblock. What a file announces beyond it is refused; the buffer itself
    // grows with the payloads that really come.
    void init(std::uint64_t payloadCapacity) { m_payloadCapacity = payloadCapacity; }

    // This form suits coders that announce nothing but a length: 32 bits, the zeros or 2048 more than the
    // length.
    virtual std::size_t readSubblockHeader(StreamReader& headers, SubblockHeader& header) const;

    static constexpr std::uint32_t firstPayloadHeader = 2048;

    std::size_t elementSize() const noexcept { return DataTypeUtils::getSize(m_dataType); }
    bool hasPlaneLengths() const noexcept { return m_perPlaneLengths; }

private:
    DataType m_dataType;
    TransformType m_transform;
    const char* m_name;
    std::size_t m_subblockSize;
    bool m_perPlaneLengths;
    MemoryBudget* m_budget = nullptr;
    std::uint64_t m_payloadCapacity = 0;
    std::vector<std::uint8_t> m_payload; // of loadSubblock()
};

} // namespace Quillmoran
