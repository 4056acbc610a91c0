// The record of one channel of a compressed file: the sample type of its points, the "kernel" type of its
// wavelet coefficients, the transform, and the range of the samples.
//
// A floating-point channel is stored in one of three ways: quantized to integers (scale and offset), deflated
// as it is, or split into three integer channels with prefixed names: "@f|" (FLOAT32) or "@d|" (FLOAT64) for
// the fraction, "@e|" for the exponent and "@s|" for the sign.
#pragma once

#include "common/coders/TransformUtils.h"
#include <vxunpack/DataType.h>
#include <vxunpack/ErrorCode.h>

#include <cstdint>
#include <string>

namespace Quillmoran {

class ChannelData;
class StreamReader;
class StreamWriter;

// The part of a point channel that a record holds.
enum class ChannelPart
{
    Whole,
    Fraction32,
    Fraction64,
    Exponent,
    Sign
};

class WaveletChannelInfo
{
public:
    static constexpr int recordNameSize = 16;
    static constexpr int recordSize = 39;          // bytes
    static constexpr int quantizedRecordSize = 55; // with offset and scale

    // The prefix of the names of a part's records; empty for whole channels.
    static const char* getPrefix(ChannelPart part) noexcept;

    // An end of the range of the kernel samples: an integer for an integer kernel, a double for a
    // floating-point one. The range of a new record is empty: its minimum is above its maximum.
    union Value {
        std::int64_t integer;
        double real;
    };

    // The number of significant bits of kernel samples in this range.
    static int countBits(std::int64_t low, std::int64_t high) noexcept;

    // For writing. The kernel type is derived from the bits and the headroom of the transform.
    void init(const char* name, DataType dataType, int bits, TransformType transform,
              std::uint32_t subblockSize, double offset, double scale);

    // The fixed record of the wavelet header. Both return its size in bytes. A short transfer is `code` "bad
    // read -- channel info" or "bad write -- channel info". load() derives the kernel type and the bits from
    // the range and refuses an unknown transform (General "bad transform type").
    int save(StreamWriter& writer, ErrorCode code) const;
    int load(StreamReader& reader, ErrorCode code);
    // The full name, for names that are longer than the fixed record's field. Both return the size in bytes.
    // `code` "bad read -- channel name length", "bad read -- channel name" and the same with "bad write".
    int saveExtended(StreamWriter& writer, ErrorCode code) const;
    int loadExtended(StreamReader& reader, ErrorCode code);

    const char* getName() const noexcept { return m_name.c_str(); }
    ChannelPart getPart() const noexcept;
    // The name without the prefix of its part.
    const char* getPointName() const noexcept;
    DataType getDataType() const noexcept { return m_dataType; }
    DataType getKernelDataType() const noexcept { return m_kernelDataType; }
    TransformType getTransformType() const noexcept { return m_transform; }
    int getBits() const noexcept { return m_bits; }
    std::uint32_t getSubblockSize() const noexcept { return m_subblockSize; } // samples
    Value getMinimum() const noexcept { return m_minimum; }
    Value getMaximum() const noexcept { return m_maximum; }
    double getOffset() const noexcept { return m_offset; }
    double getScale() const noexcept { return m_scale; } // 0 unless quantized
    // Whether the samples are floating point and the kernel integer.
    bool isQuantized() const noexcept;

    // Extends the range to include kernel samples. KernelDataType "bad kernel datatype" if their type is not
    // a signed one.
    void updateMinMax(const ChannelData& kernel, std::size_t count);

private:
    void deriveKernel();
    DataType integerKernel(int bits) const;

    std::string m_name;
    DataType m_dataType = INVALID;
    DataType m_kernelDataType = INVALID;
    TransformType m_transform = 0;
    int m_bits = 0;
    std::uint32_t m_subblockSize = 0;
    Value m_minimum{INT64_MAX};
    Value m_maximum{INT64_MIN};
    double m_offset = 0;
    double m_scale = 0;
};

} // namespace Quillmoran
