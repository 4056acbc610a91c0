// Assembles compressed files for tests and examples from channels of samples. A plan can choose
// everything that a reader must support: versions of file and chunks, coders, subblock sizes, levels, the form
// of the index, the order of byte ranges.
#pragma once

#include "common/coders/TransformUtils.h"
#include "support/SubblockEncoder.h"
#include <vxunpack/Bounds.h>
#include <vxunpack/DataType.h>
#include <vxunpack/Metadata.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

struct ChannelPlan
{
    std::string name;
    DataType type = INVALID;
    TransformType transform = 1;
    std::uint32_t subblockSize = 64;
    double offset = 0;
    double scale = 0;
    std::vector<std::int64_t> integers = {}; // kernel samples of an integer transform
    std::vector<double> reals = {};          // of a floating-point transform
    int rawPlanes = 0;
};

struct FilePlan
{
    std::uint8_t version = 4;                // last byte of the file version
    std::uint8_t headerVersion = 2;          // of the wavelet header chunk
    std::uint8_t bandVersion = 3;            // of the subband chunks
    bool swapRanges = false;                 // headers of a band before its data
    bool planeLengthsWithoutLifting = false; // as some writers of old files did
    std::uint32_t numLevels = 4;
    std::vector<ChannelPlan> channels;

    std::uint8_t indexVersion = 2;
    std::uint32_t pointsPerEntry = 64;
    std::vector<Bounds> indexBoxes; // entry i covers points from i * pointsPerEntry
    double indexScale = 0.001;

    Metadata metadata;
    std::optional<std::string> wkt;
    std::vector<std::optional<std::string>> classNames;
    bool extendedHeader = false;
};

// A quantized coordinate, or another floating-point channel stored as integers.
inline ChannelPlan quantizedChannel(const std::string& name, std::vector<std::int64_t> steps, double offset,
                                    double scale, TransformType transform = 1)
{
    return {name, FLOAT64, transform, 64, offset, scale, std::move(steps)};
}
inline ChannelPlan integerChannel(const std::string& name, DataType type, std::vector<std::int64_t> values,
                                  TransformType transform = 1)
{
    return {name, type, transform, 64, 0, 0, std::move(values)};
}
inline ChannelPlan deflatedChannel(const std::string& name, DataType type, std::vector<double> values,
                                   TransformType transform = 70)
{
    return {name, type, transform, 64, 0, 0, {}, std::move(values)};
}
// The fraction, exponent and sign of a FLOAT64 or FLOAT32 channel.
std::vector<ChannelPlan> splitChannel(const std::string& name, DataType type,
                                      const std::vector<double>& values, TransformType transform = 10);

// Index boxes of every `pointsPerEntry` points of three coordinates.
std::vector<Bounds> makeIndexBoxes(const std::vector<double>& x, const std::vector<double>& y,
                                   const std::vector<double>& z, std::uint32_t pointsPerEntry);

// The bytes of the file. All channels must have the same number of samples.
Bytes buildFile(const FilePlan& plan);

} // namespace Quillmoran::Testing
