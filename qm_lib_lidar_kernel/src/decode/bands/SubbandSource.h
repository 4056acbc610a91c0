// The samples of a channel from any position on: a chain of sources, pulled from its root.
//
//   band 0 (low) --+
//                  stage --+
//   band 1 (high) -+       stage -- ... -- root: the channel's kernel samples
//   band 2 (high) ---------+
//
// A leaf reads one band from the file, subblock by subblock; a stage merges a low and a high source into one
// with twice the samples by inverse lifting. Each source holds one block, never a whole band. The samples do
// not depend on block sizes, on the position where reading begins, or on seeks. A chain is used by one thread
// at a time; chains share nothing but the file.
//
// Nearly all the work is decoding subblocks, which are independent. So prepare() reads the payloads that the
// next get() needs and lists their subblocks, any threads decode them, and get() finds them decoded.
#pragma once

#include "common/coders/TransformUtils.h"
#include <vxunpack/DataType.h>
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class PlannedPositions;
class SubblockReader;
struct CodedSubblock;

// The byte ranges of a band.
struct BandRanges
{
    IO::Location headers;
    IO::Location data;
    bool interleaved = false; // both ranges are the same, and each payload follows its header
    // Where reading can resume, besides the positions that the reader has passed; or null. Outlives the reader.
    const PlannedPositions* planned = nullptr;
};

class SubbandSource
{
public:
    virtual ~SubbandSource() = default;
    SubbandSource(const SubbandSource&) = delete;
    SubbandSource& operator=(const SubbandSource&) = delete;

    // A leaf over a band of `numSamples` samples. The reader must outlive it. Throws General "unkown
    // datatype" if the reader's type is not a kernel type; WaveletHeaderRead "bad read -- channel info" for
    // an unreasonably large subblock.
    static std::unique_ptr<SubbandSource>
    createSubbandReader(SubblockReader& reader, const BandRanges& ranges, std::int64_t numSamples);
    // A stage that works on blocks of up to `blockSize` low and high samples. The low source may have one
    // sample more than the high source, which may be empty only if the low source has at most one sample.
    static std::unique_ptr<SubbandSource> createPipeStage(std::size_t blockSize,
                                                          std::unique_ptr<SubbandSource> low,
                                                          std::unique_ptr<SubbandSource> high);

    // Prepares to deliver samples from `position` on. There are none at a position after the end.
    virtual void begin(std::int64_t position) = 0;
    virtual void seek(std::int64_t position) = 0;
    // Copies up to `count` samples to `out` and returns their number, which is smaller only at the end of the
    // band.
    virtual std::size_t get(void* out, std::size_t count) = 0;
    // Reads what the next `count` samples need and appends the subblocks to decode. The caller decodes them
    // with the channel's reader before it calls anything else. Optional: get() does the same if it was not
    // called.
    virtual void prepare(std::size_t count, std::vector<CodedSubblock>& work) = 0;
    // Frees buffers and streams; a later begin() creates them again.
    virtual void end() = 0;

    DataType getDataType() const noexcept { return m_dataType; }
    TransformType getTransformType() const noexcept { return m_transform; }
    std::size_t getBlockSize() const noexcept { return m_blockSize; } // samples
    std::int64_t getNumSamples() const noexcept { return m_numSamples; }

protected:
    SubbandSource(DataType type, TransformType transform, std::size_t blockSize, std::int64_t numSamples)
        : m_dataType(type), m_transform(transform), m_blockSize(blockSize), m_numSamples(numSamples)
    {}

private:
    DataType m_dataType; // a kernel type
    TransformType m_transform;
    std::size_t m_blockSize;
    std::int64_t m_numSamples;
};

} // namespace Quillmoran
