// The payload of the chunk with the sizes of all bands:
//
//   version, number of channels, number of bands - 1 | sizes of data and headers, by channel and band |
//   digest of the bytes before | length of the payload, id of the chunk
//
// It is the last chunk of a file, so that its end can be found without reading anything else.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Quillmoran::BandTableFormat {

constexpr std::uint8_t version = 1;
constexpr std::size_t headBytes = 5;
constexpr std::size_t sizesBytes = 16;
constexpr std::size_t digestBytes = 8;
constexpr std::size_t endBytes = 12;

} // namespace Quillmoran::BandTableFormat
