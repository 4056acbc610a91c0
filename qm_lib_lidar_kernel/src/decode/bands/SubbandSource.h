// A channel's samples for any run of points: a chain of sources, pulled from the root.
//
//   band 0 (low) --+
//                  stage --+
//   band 1 (high) -+       stage -- ... -- root: the channel's kernel samples
//   band 2 (high) ---------+
//
// A leaf reads one band from the file, subblock by subblock; a stage merges a low and a high source into one
// of twice the samples by inverse lifting. Each source holds one block, never a whole band. What comes out
// does not depend on block sizes, on where reading begins or on seeks. A chain is used by one thread at a
// time and shares nothing with other chains but the file.
//
// Nearly all the work is in the subblocks, which can be decoded apart: prepare() reads the payloads that a
// get() will need and lists the subblocks, any thread may decode them, and the get() finds them done.
#pragma once

#include "common/coders/TransformUtils.h"
#include <vxunpack/DataType.h>
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class SubblockReader;
struct CodedSubblock;

// The two stretches of a band. When both are the same stretch, headers and payloads alternate in it.
struct BandStretches
{
    IO::Location headers;
    IO::Location data;
    bool interleaved = false; // the headers' stretch holds the payloads too
};

class SubbandSource
{
public:
    virtual ~SubbandSource();
    SubbandSource(const SubbandSource&) = delete;
    SubbandSource& operator=(const SubbandSource&) = delete;

    // A leaf over a band of `numSamples` samples. The reader must outlive it. -1 "unkown datatype" for a type
    // that is no kernel type; WaveletHeaderRead "bad read -- channel info" for a subblock that no sane file has.
    static std::unique_ptr<SubbandSource> createSubbandReader(SubblockReader& reader, unsigned level,
                                                              bool isHigh, const BandStretches& stretches,
                                                              std::int64_t numSamples);
    // A stage that works on blocks of up to `blockSize` low and high samples. The low source may have one
    // sample more than the high one, which may be empty only if the low one has at most one sample.
    static std::unique_ptr<SubbandSource> createPipeStage(std::size_t blockSize,
                                                          std::unique_ptr<SubbandSource> low,
                                                          std::unique_ptr<SubbandSource> high);

    // Prepares to deliver samples from `position` on; a position past the end delivers nothing.
    virtual void begin(std::int64_t position) = 0;
    virtual void seek(std::int64_t position) = 0;
    // Copies up to `count` samples to `out` and returns how many; fewer only at the end of the band.
    virtual std::size_t get(void* out, std::size_t count) = 0;
    // Reads what the next `count` samples need and appends the subblocks that are to be decoded for them, by
    // the channel's reader, before anything else is called. Without prepare(), get() does it all.
    virtual void prepare(std::size_t count, std::vector<CodedSubblock>& work) = 0;
    // Frees buffers and streams; a later begin() makes them again.
    virtual void end() = 0;

    DataType getDataType() const noexcept { return m_dataType; }
    TransformType getTransformType() const noexcept { return m_transform; }
    const char* getName() const noexcept { return m_name; }
    unsigned getLevel() const noexcept { return m_level; }
    bool isHigh() const noexcept { return m_isHigh; }
    std::size_t getBlockSize() const noexcept { return m_blockSize; } // samples
    std::int64_t getNumSamples() const noexcept { return m_numSamples; }

protected:
    SubbandSource(DataType type, TransformType transform, const char* name, unsigned level, bool isHigh,
                  std::size_t blockSize, std::int64_t numSamples);

private:
    DataType m_dataType; // a kernel type
    TransformType m_transform;
    const char* m_name;
    unsigned m_level;
    bool m_isHigh;
    std::size_t m_blockSize;
    std::int64_t m_numSamples;
};

} // namespace Quillmoran
