// The extra bytes of point records: fields that follow those of the point format. The value of the VLR
// "LASF_Spec" 4 describes them, with 192 bytes for each field or array of fields:
//
//   | reserved 2 | type 1 | options 1 | name 32 | unused 4 | no data 24 | min 24 | max 24 | scale 24 | offset 24 |
//   | description 32 |
//
// Types 1 to 10 are numbers, 11 to 20 arrays of two of them and 21 to 30 arrays of three; type 0 is a run of
// bytes whose number is in the options, which otherwise say what of no data, min, max, scale and offset is set.
#pragma once

#include "las/points/LASFields.h"
#include <vxunpack/PointInfo.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Quillmoran {

// A field of the extra bytes and its channel.
struct LASExtraField
{
    std::string channel; // unique among the channels of the file, without control characters, valid UTF-8
    DataType stored = INVALID; // in the record
    std::size_t offset = 0;    // bytes into the record
    // Samples are stored numbers * axis.scale + axis.offset, of type FLOAT64, if this restores every stored
    // number exactly. Otherwise they are the stored numbers; a scale of 0 marks these.
    LASFields::Axis axis{0, 0};
    // The descriptor of this field alone; none if its bytes are part of a longer field or have no descriptor.
    std::span<const unsigned char> descriptor{};

    bool isScaled() const noexcept { return axis.scale != 0; }
    ChannelInfo toChannel() const;

    // As LASFields::unpack(), for `count` samples of the channel's type.
    void unpack(void* samples, const unsigned char* records, std::size_t stride, std::size_t count) const;
    // False if a sample is not the value of a stored number; its number is then not specified.
    bool pack(unsigned char* records, std::size_t stride, const void* samples, std::size_t count) const;
};

namespace LASExtraBytes {

inline constexpr std::size_t descriptorBytes = 192;

// The fields of all extra bytes in records of `recordLength` bytes. Each byte that no descriptor covers is a
// UINT8 field. Descriptors of unknown types, or of more bytes than the record has, are ignored, with all that
// follow. `descriptors` is the value of the VLR, possibly empty; the fields refer to it.
std::vector<LASExtraField> describe(LASPointFormat format, std::size_t recordLength,
                                    std::span<const unsigned char> descriptors);
// The same for records that end with the last described field.
std::vector<LASExtraField> describe(LASPointFormat format, std::span<const unsigned char> descriptors);

// A descriptor for the field alone, with the name of its channel.
std::vector<unsigned char> makeDescriptor(const LASExtraField& field);

} // namespace LASExtraBytes

} // namespace Quillmoran
