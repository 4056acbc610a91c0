// Bands for tests of the decoder: samples encoded by the band writer, in every form that a file may have.
#pragma once

#include "common/coders/TransformUtils.h"
#include <vxunpack/DataType.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace Quillmoran::Testing {

using Bytes = std::vector<std::uint8_t>;

struct BandOptions
{
    TransformType transform = 1;
    std::size_t subblockSize = 64;
    bool perPlaneLengths = false;
    int rawPlanes = 0; // number of lowest planes that are raw
};

// The two byte ranges of a band; if interleaved, everything is in `headers`.
struct EncodedBand
{
    Bytes headers;
    Bytes data;
};

// The kernel type of samples.
template <class T>
constexpr DataType kernelOf = std::is_same_v<T, std::int16_t>   ? SINT16
                              : std::is_same_v<T, std::int32_t> ? SINT32
                              : std::is_same_v<T, std::int64_t> ? SINT64
                              : std::is_same_v<T, float>        ? FLOAT32
                              : std::is_same_v<T, double>       ? FLOAT64
                                                                : INVALID;

// int16, int32 or int64 for the integer coders, float or double for deflate.
template <class T>
EncodedBand encodeBand(const std::vector<T>& samples, const BandOptions& options, bool interleaved);

inline Bytes fromHex(const std::string& hex)
{
    Bytes bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

template <class T>
void putBigEndian(Bytes& bytes, T value)
{
    for (std::size_t i = sizeof(T); i-- > 0;)
        bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i)));
}

} // namespace Quillmoran::Testing
