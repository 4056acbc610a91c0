// The record of one channel of a compressed file: how its samples are stored in points, in which "kernel"
// type its wavelet coefficients are held, how they are coded, and the conversions between the two.
//
// A floating-point channel is stored in one of three ways: quantized to integers (scale and offset), deflated
// as it is, or split into three integer channels with prefixed names: "@f|" (FLOAT32) or "@d|" (FLOAT64) the
// fraction, "@e|" the exponent, "@s|" the sign.
#pragma once

#include "common/coders/TransformUtils.h"
#include <vxunpack/ErrorCode.h>
#include <vxunpack/PointData.h>

#include <cstdint>
#include <string>

namespace Quillmoran {

class StreamReader;
class StreamWriter;

// The role of a kernel channel in a conversion.
enum ConversionAction : int
{
    CONVERT_NONE = 0,
    CONVERT_PLAIN = 1,
    CONVERT_EXTRACT_FRACTION = 2, // encoding
    CONVERT_EXTRACT_EXPONENT = 3,
    CONVERT_EXTRACT_SIGN = 4,
    CONVERT_MERGE = 5 // decoding: one of the three parts of a split channel, merged after all are decoded
};

class WaveletChannelInfo
{
public:
    static constexpr int recordNameSize = 16;
    static constexpr int recordSize = 39;          // bytes
    static constexpr int quantizedRecordSize = 55; // with offset and scale

    // The prefixes of a split channel's parts.
    static constexpr char fraction32Prefix[] = "@f|";
    static constexpr char fraction64Prefix[] = "@d|";
    static constexpr char exponentPrefix[] = "@e|";
    static constexpr char signPrefix[] = "@s|";
    static constexpr std::size_t prefixSize = 3;

    // The range of a channel's samples: integers for an integer kernel, doubles for a floating-point one.
    // Fresh ones are empty: the smallest is above the largest.
    union Value {
        std::int64_t integer;
        double real;
    };

    WaveletChannelInfo() = default;
    // Kernel buffers are scratch and are not copied.
    WaveletChannelInfo(const WaveletChannelInfo& other) { *this = other; }
    WaveletChannelInfo& operator=(const WaveletChannelInfo& other);
    virtual ~WaveletChannelInfo();

    // The significant bits of kernel samples in this range.
    static int countBits(std::int64_t low, std::int64_t high) noexcept;

    // For writing: the kernel type follows from the bits and the headroom of the transform.
    void init(const char* name, DataType dataType, int bits, TransformType transform,
              std::uint32_t subblockSize, double offset, double scale);

    // The fixed record of the wavelet header. Both return its size in bytes; a short transfer is
    // `code` "bad read -- channel info" or "bad write -- channel info". load() derives the kernel type and
    // the bits from the range and refuses an unknown transform (-1 "bad transform type").
    int save(StreamWriter& writer, ErrorCode code) const;
    int load(StreamReader& reader, ErrorCode code);
    // The full name, for names that the fixed record cuts. Errors "bad read -- channel name length",
    // "bad read -- channel name" and the like with `code`.
    int saveExtended(StreamWriter& writer, ErrorCode code) const;
    int loadExtended(StreamReader& reader, ErrorCode code);

    const char* getName() const noexcept { return m_name.c_str(); }
    DataType getDataType() const noexcept { return m_dataType; }
    DataType getKernelDataType() const noexcept { return m_kernelDataType; }
    TransformType getTransformType() const noexcept { return m_transform; }
    int getBits() const noexcept { return m_bits; }
    std::uint32_t getSubblockSize() const noexcept { return m_subblockSize; }
    Value getMinimum() const noexcept { return m_minimum; }
    Value getMaximum() const noexcept { return m_maximum; }
    double getOffset() const noexcept { return m_offset; }
    double getScale() const noexcept { return m_scale; } // 0 unless quantized
    // Whether the samples are floating point and the kernel integer.
    bool isQuantized() const noexcept;
    // The channel's name behind `prefix`, null when the name does not begin with it.
    const char* nameBehind(const char* prefix) const noexcept;

    void setupConvert(ConversionAction action, int channelIndex) noexcept;
    ConversionAction getAction() const noexcept { return m_action; }
    int getChannelIndex() const noexcept { return m_channelIndex; }
    // Scratch of the kernel type.
    ChannelData& getKernel() noexcept { return m_kernel; }
    const ChannelData& getKernel() const noexcept { return m_kernel; }
    // Gives the scratch room for at least `count` samples.
    void reserveKernel(std::size_t count);

    // Point samples [0, count) to kernel samples, by the action.
    void convertToKernel(const PointData& points, std::size_t count);
    // Kernel samples to point samples; nothing unless the action is CONVERT_PLAIN.
    void convertFromKernel(PointData& points, std::size_t count) const;
    // Called on the fraction: rebuilds floating-point samples of three decoded parts. Each part is cut to its
    // width, since coarse levels of a part can leave it.
    void mergeFromKernel(WaveletChannelInfo& exponent, WaveletChannelInfo& sign, PointData& points,
                         std::size_t count) const;
    // Widens the range by the kernel's samples. Another kernel type is KernelDataType "bad kernel datatype".
    void updateMinMax(std::size_t count);

private:
    void resetMinMax() noexcept;
    void deriveKernel();
    DataType integerKernel(int bits) const;

    std::string m_name;
    DataType m_dataType = INVALID;
    DataType m_kernelDataType = INVALID;
    TransformType m_transform = 0;
    int m_bits = 0;
    std::uint32_t m_subblockSize = 0; // samples
    Value m_minimum{INT64_MAX};
    Value m_maximum{INT64_MIN};
    double m_offset = 0;
    double m_scale = 0;
    ConversionAction m_action = CONVERT_NONE;
    int m_channelIndex = -1;
    ChannelData m_kernel;
};

} // namespace Quillmoran
