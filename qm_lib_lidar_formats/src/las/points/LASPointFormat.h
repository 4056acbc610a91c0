// The point data record formats of LAS: their fields and where these are in the record. Shared by reader and
// writer. Numbers are sizes in bytes.
//
//   formats 0-5   | X 4 | Y 4 | Z 4 | intensity 2 | returns 1 | class 1 | angle 1 | user 1 | source 2 |
//   formats 6-10  | X 4 | Y 4 | Z 4 | intensity 2 | returns 1 | flags 1 | class 1 | user 1 | angle 2 |
//                 | source 2 | time 8 |
//
// After these fields follow, if the format has them: time 8 (formats 0-5), red, green and blue 2 each, near
// infrared 2, wave packet 29. A file's records may be longer; the rest are user bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

struct LASPointFormat
{
    static constexpr std::uint8_t last = 10;

    std::uint8_t number;

    // The formats of LAS 1.4, with more returns, classes and scan angles.
    bool isExtended() const noexcept { return number >= 6; }
    bool hasTime() const noexcept { return number == 1 || number >= 3; }
    bool hasColour() const noexcept
    {
        return number == 2 || number == 3 || number == 5 || number == 7 || number == 8 || number == 10;
    }
    bool hasNearInfrared() const noexcept { return number == 8 || number == 10; }
    bool hasWaveform() const noexcept { return number == 4 || number == 5 || number >= 9; }

    // Bytes of the fields that the format defines.
    std::size_t recordLength() const noexcept
    {
        return colourOffset() + (hasColour() ? 6u : 0u) + (hasNearInfrared() ? 2u : 0u) +
               (hasWaveform() ? wavePacketLength : 0u);
    }

    static constexpr std::size_t wavePacketLength = 29;
    std::size_t timeOffset() const noexcept { return isExtended() ? 22 : 20; }
    std::size_t colourOffset() const noexcept { return isExtended() ? 30u : 20u + (hasTime() ? 8u : 0u); }
    std::size_t nearInfraredOffset() const noexcept { return colourOffset() + 6; }
    std::size_t wavePacketOffset() const noexcept { return recordLength() - wavePacketLength; }
};

} // namespace Quillmoran
